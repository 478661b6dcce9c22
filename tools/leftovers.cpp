#include "tools/leftovers.h"

#include "tools/terminal.h"

namespace kelcache {
void TellOfLeftovers(const std::string& file, Format format) {
  const FormatRow& row = RowOf(format);
  const unsigned int count = row.leftovers != nullptr ? row.leftovers(file) : 0;
  if (count == 0) return;
  PrintError(file + ": " + (count == 1 ? "a writer" : "writers") +
             " died and left a part of a cache beside it; kelcache recover " + file + " saves it");
}

}  // namespace kelcache
