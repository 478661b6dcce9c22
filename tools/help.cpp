#include "tools/help.h"

#include <algorithm>
#include <memory>
#include <numeric>
#include <sstream>

#include "tools/help_tables.h"
#include "tools/terminal.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

// Appends words, broken between them so that no line is longer than `width`; lines after the first
// are indented.
void AppendWrapped(std::string* out, const std::string& text, size_t width, size_t indent) {
  std::istringstream words(text);
  size_t column = out->size() - (out->rfind('\n') + 1);  // npos + 1 is 0
  bool first = true;
  for (std::string word; words >> word; first = false) {
    if (!first && column + 1 + word.size() > width) {
      *out += '\n' + std::string(indent, ' ');
      column = indent;
    } else if (!first) {
      *out += ' ';
      ++column;
    }
    *out += word;
    column += word.size();
  }
  *out += '\n';
}

void AppendRows(std::string* out, const std::string& heading, const std::vector<HelpRow>& rows,
                size_t width) {
  constexpr size_t kIndent = 2;
  constexpr size_t kWidestName = 20;  // texts of longer ones begin on a line of their own
  constexpr size_t kRoom = 50;        // on a narrower screen all texts do
  if (rows.empty()) return;
  size_t widest = 0;
  for (const HelpRow& row : rows) {
    if (row.name.size() <= kWidestName) widest = std::max(widest, row.name.size());
  }
  const size_t column = kIndent + (width < kRoom ? 4 : widest + 2);
  *out += '\n';
  AppendWrapped(out, heading, width, 0);
  for (const HelpRow& row : rows) {
    std::string line = std::string(kIndent, ' ') + row.name;
    if (line.size() + 2 > column) {
      *out += line + '\n';
      line.clear();
    }
    line.resize(column, ' ');
    *out += line;
    AppendWrapped(out, row.text, width, column);
  }
}

std::string Layout(const CLI::App& app, const std::string& name, size_t width) {
  std::string out;
  AppendWrapped(&out, "usage: " + UsageOf(app, name), width, 7);
  out += '\n';
  AppendWrapped(&out, app.get_description(), width, 0);
  std::vector<HelpRow> rows;
  for (const CLI::App* verb : Verbs(app)) {
    rows.push_back({verb->get_name(), FirstSentence(verb->get_description())});
  }
  AppendRows(&out, "Verbs:", rows, width);
  AppendRows(&out, "Arguments:", PositionalRowsOf(app), width);
  for (const CLI::App* group : OptionGroups(app)) {
    AppendRows(&out, group->get_description() + ", one of:", RowsOf(OptionsOf(*group)), width);
  }
  AppendRows(&out, "Options:", RowsOf(OptionsOf(app)), width);
  out += '\n';
  std::istringstream footer(app.get_footer());
  for (std::string line; std::getline(footer, line);) {
    if (line.starts_with(' ')) {
      out += line + '\n';
    } else {
      AppendWrapped(&out, line, width, 0);
    }
  }
  return out;
}

// Letters to put in, take out or change.
size_t Distance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); ++i) {
    size_t diagonal = std::exchange(row[0], i + 1);
    for (size_t k = 0; k < b.size(); ++k) {
      const size_t changed = diagonal + (a[i] == b[k] ? 0 : 1);
      diagonal = row[k + 1];
      row[k + 1] = std::min({changed, row[k] + 1, row[k + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string HelpFormatter::make_help(const CLI::App* app, std::string name,
                                     CLI::AppFormatMode /*mode*/) const {
  return Layout(*app, name, ColumnsOf(stream_));
}

std::string HelpOn(const CLI::App& app, std::FILE* stream) {
  return HelpFormatter(stream).make_help(&app, app.get_name(), CLI::AppFormatMode::Normal);
}

CLI::App* FindVerb(CLI::App& app, const std::string& name) {
  // One that help does not list, too.
  const auto named = app.get_subcommands(
      [&](const CLI::App* verb) { return !name.empty() && verb->get_name() == name; });
  if (!named.empty()) return named.front();
  constexpr size_t kFewLetters = 2;
  const std::string* meant = nullptr;
  size_t least = kFewLetters + 1;
  for (const CLI::App* verb : Verbs(app)) {
    const std::string& known = verb->get_name();
    const size_t distance = !name.empty() && known.starts_with(name) ? 1 : Distance(name, known);
    if (distance < std::min(least, known.size())) {
      least = distance;
      meant = &known;
    }
  }
  throw ToolError(eUsage, "there is no verb \"" + name + "\"; " +
                              (meant != nullptr ? "did you mean " + *meant + '?'
                                                : "kelcache --help lists them"));
}

void AddHelp(CLI::App& app, Work* work) {
  const auto name = std::make_shared<std::string>();
  CLI::App* verb = app.add_subcommand("help", "Explains the command or one of its verbs.");
  verb->add_option("VERB", *name, "The verb");
  verb->footer("Example:\n  kelcache help convert");
  verb->callback([name, work, &app] {
    *work = [name, &app] {
      const std::string help =
          name->empty() ? HelpOn(app, stdout) : FindVerb(app, *name)->help(app.get_name());
      std::fputs(help.c_str(), stdout);
      return eDone;
    };
  });
}

}  // namespace kelcache
