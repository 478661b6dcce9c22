#include "tools/help.h"

#include <algorithm>
#include <memory>
#include <numeric>
#include <sstream>

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

struct Row {
  std::string name;
  std::string text;
};

void AppendRows(std::string* out, const std::string& heading, const std::vector<Row>& rows,
                size_t width) {
  constexpr size_t kIndent = 2;
  constexpr size_t kWidestName = 20;  // texts of longer ones begin on a line of their own
  constexpr size_t kRoom = 50;        // on a narrower screen all texts do
  if (rows.empty()) return;
  size_t widest = 0;
  for (const Row& row : rows) {
    if (row.name.size() <= kWidestName) widest = std::max(widest, row.name.size());
  }
  const size_t column = kIndent + (width < kRoom ? 4 : widest + 2);
  *out += '\n';
  AppendWrapped(out, heading, width, 0);
  for (const Row& row : rows) {
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

std::string FirstSentence(const std::string& text) {
  std::string sentence = text.substr(0, text.find(". "));
  if (sentence.ends_with('.')) sentence.pop_back();
  return sentence;
}

std::vector<const CLI::App*> Verbs(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* verb) { return !verb->get_name().empty(); });
}

// Options of which a verb takes one or some are a nameless subcommand to the parser.
std::vector<const CLI::App*> OptionGroups(const CLI::App& verb) {
  return verb.get_subcommands([](const CLI::App* group) { return group->get_name().empty(); });
}

std::vector<const CLI::Option*> OptionsOf(const CLI::App& app) {
  const bool isGroup = app.get_name().empty();
  auto options = app.get_options([&](const CLI::Option* option) {
    return option->nonpositional() && !(isGroup && option == app.get_help_ptr());
  });
  // Help itself comes last.
  std::stable_partition(options.begin(), options.end(),
                        [&](const CLI::Option* option) { return option != app.get_help_ptr(); });
  return options;
}

// The parser gives an option's type and what its value may be in one text.
struct ValueWords {
  explicit ValueWords(const CLI::Option& option) {
    const std::string both = option.get_type_name();
    const size_t colon = both.find(':');
    name = both.substr(0, colon);
    if (colon != std::string::npos) range = both.substr(colon + 1);
    if (range.find('|') != std::string::npos) {
      name = range;
      range.clear();
    } else if (name == "FLOAT") {
      name = "NUMBER";
    } else if (name == "UINT" || name == "INT") {
      name = "N";
    }
  }
  std::string name;
  std::string range;
};

std::string NameOf(const CLI::Option& option) {
  std::string name = CLI::detail::find_and_replace(option.get_name(false, true), ",", ", ");
  const std::string value = ValueWords(option).name;
  if (option.get_type_size() == 0 || value.empty()) return name;
  name += ' ' + value;
  return option.get_delimiter() != '\0' ? name + ",..." : name;
}

std::string TextOf(const CLI::Option& option) {
  std::vector<std::string> more;
  if (option.get_type_size() != 0) {
    const std::string range = ValueWords(option).range;
    if (!range.empty()) more.push_back(range);
    if (!option.get_default_str().empty()) more.push_back("default " + option.get_default_str());
  }
  for (const CLI::Option* other : option.get_excludes()) {
    more.push_back("not with " + other->get_name(false, false));
  }
  const std::string& text = option.get_description();
  return more.empty() ? text : text + " (" + CLI::detail::join(more, "; ") + ')';
}

std::vector<Row> RowsOf(const std::vector<const CLI::Option*>& options) {
  std::vector<Row> rows;
  rows.reserve(options.size());
  for (const CLI::Option* option : options) rows.push_back({NameOf(*option), TextOf(*option)});
  return rows;
}

std::vector<const CLI::Option*> PositionalsOf(const CLI::App& app) {
  return app.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

std::string PositionalName(const CLI::Option& option) {
  const bool isMany = option.get_expected_max() >= CLI::detail::expected_max_vector_size;
  return option.get_name(true, false) + (isMany ? "..." : "");
}

std::string UsageOf(const CLI::App& app, const std::string& name) {
  std::string usage = "usage: " + name;
  if (!Verbs(app).empty()) usage += " VERB [FILE...]";
  for (const CLI::Option* option : PositionalsOf(app)) {
    const std::string word = PositionalName(*option);
    usage += ' ' + (option->get_required() ? word : '[' + word + ']');
  }
  for (const CLI::Option* option : OptionsOf(app)) {
    if (option->get_required()) usage += ' ' + NameOf(*option);
  }
  for (const CLI::App* group : OptionGroups(app)) {
    std::vector<std::string> names;
    for (const CLI::Option* option : OptionsOf(*group)) names.push_back(NameOf(*option));
    usage += " (" + CLI::detail::join(names, " | ") + ')';
  }
  const bool onlyHelp = OptionsOf(app).size() == 1;
  return onlyHelp ? usage : usage + " [OPTIONS]";
}

std::string Layout(const CLI::App& app, const std::string& name, size_t width) {
  std::string out;
  AppendWrapped(&out, UsageOf(app, name), width, 7);
  out += '\n';
  AppendWrapped(&out, app.get_description(), width, 0);
  std::vector<Row> rows;
  for (const CLI::App* verb : Verbs(app)) {
    rows.push_back({verb->get_name(), FirstSentence(verb->get_description())});
  }
  AppendRows(&out, "Verbs:", rows, width);
  rows.clear();
  for (const CLI::Option* option : PositionalsOf(app)) {
    rows.push_back({PositionalName(*option), option->get_description()});
  }
  AppendRows(&out, "Arguments:", rows, width);
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
  constexpr size_t kFewLetters = 2;
  const std::string* meant = nullptr;
  size_t least = kFewLetters + 1;
  for (const CLI::App* verb : Verbs(app)) {
    const std::string& known = verb->get_name();
    if (known == name) return app.get_subcommand(name);
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
