#include "tools/help_tables.h"

#include <algorithm>
#include <cctype>

namespace kelcache {

std::string FirstSentence(const std::string& text) {
  std::string sentence = text.substr(0, text.find(". "));
  if (sentence.ends_with('.')) sentence.pop_back();
  return sentence;
}

std::vector<const CLI::App*> Verbs(const CLI::App& app) {
  return app.get_subcommands(
      [](const CLI::App* verb) { return !verb->get_name().empty() && !verb->get_group().empty(); });
}

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

std::vector<const CLI::Option*> AllOptionsOf(const CLI::App& app) {
  std::vector<const CLI::Option*> options;
  for (const CLI::App* group : OptionGroups(app)) {
    for (const CLI::Option* option : OptionsOf(*group)) options.push_back(option);
  }
  for (const CLI::Option* option : OptionsOf(app)) options.push_back(option);
  return options;
}

namespace {

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

std::string PositionalName(const CLI::Option& option) {
  const bool isMany = option.get_expected_max() >= CLI::detail::expected_max_vector_size;
  return option.get_name(true, false) + (isMany ? "..." : "");
}

}  // namespace

std::vector<std::string> SpellingsOf(const CLI::Option& option) {
  return CLI::detail::split(option.get_name(false, true), ',');
}

bool TakesValue(const CLI::Option& option) {
  return option.get_type_size() != 0;
}

std::string ValueNameOf(const CLI::Option& option) {
  return TakesValue(option) ? ValueWords(option).name : "";
}

std::vector<std::string> ChoicesOf(const CLI::Option& option) {
  const std::string name = ValueNameOf(option);
  std::vector<std::string> choices;
  if (name.find('|') == std::string::npos) return choices;
  for (const std::string& word : CLI::detail::split(name, '|')) {
    const bool isWord = std::all_of(word.begin(), word.end(), [](unsigned char c) {
      return std::islower(c) != 0 || std::isdigit(c) != 0 || c == '-' || c == '[' || c == ']';
    });
    if (isWord) choices.push_back(word);
  }
  return choices;
}

std::vector<HelpRow> RowsOf(const std::vector<const CLI::Option*>& options) {
  std::vector<HelpRow> rows;
  rows.reserve(options.size());
  for (const CLI::Option* option : options) rows.push_back({NameOf(*option), TextOf(*option)});
  return rows;
}

std::vector<const CLI::Option*> PositionalsOf(const CLI::App& app) {
  return app.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

std::vector<HelpRow> PositionalRowsOf(const CLI::App& app) {
  std::vector<HelpRow> rows;
  for (const CLI::Option* option : PositionalsOf(app)) {
    rows.push_back({PositionalName(*option), option->get_description()});
  }
  return rows;
}

std::string UsageOf(const CLI::App& app, const std::string& name) {
  std::string usage = name;
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

}  // namespace kelcache
