#include "tools/table.h"

#include <algorithm>

#include "tools/terminal.h"

namespace kelcache {

std::vector<std::string> TableLines(const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  const auto widthOf = [](const std::string& cell) -> std::size_t {
    return WidthOf(Printable(cell));
  };
  for (const std::vector<std::string>& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], widthOf(row[i]));
  }
  std::vector<std::string> lines;
  for (const std::vector<std::string>& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string padding(widths[i] - widthOf(row[i]), ' ');
      line += i == 0 ? row[i] + padding : "  " + padding + row[i];
    }
    lines.push_back(std::move(line));
  }
  return lines;
}

}  // namespace kelcache
