#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace kelcache {

// What the parser knows of verbs and options, in the words in which help, manual pages and
// completion tell it.

struct HelpRow {
  std::string name;
  std::string text;
};

std::vector<const CLI::App*> Verbs(const CLI::App& app);

/// Options of which a verb takes one or some are a nameless subcommand to the parser.
std::vector<const CLI::App*> OptionGroups(const CLI::App& verb);

/// Without the groups' own; help itself comes last.
std::vector<const CLI::Option*> OptionsOf(const CLI::App& app);
/// With the groups' own.
std::vector<const CLI::Option*> AllOptionsOf(const CLI::App& app);
std::vector<const CLI::Option*> PositionalsOf(const CLI::App& app);

/// "-o, --output", "--frames".
std::vector<std::string> SpellingsOf(const CLI::Option& option);
bool TakesValue(const CLI::Option& option);
/// "FRAME", "json|csv", "N,..."; "" for a flag.
std::string ValueNameOf(const CLI::Option& option);
/// The words that a value is one of; none where it is free.
std::vector<std::string> ChoicesOf(const CLI::Option& option);

std::vector<HelpRow> RowsOf(const std::vector<const CLI::Option*>& options);
std::vector<HelpRow> PositionalRowsOf(const CLI::App& app);

/// "kelcache convert FILES... [OPTIONS]".
std::string UsageOf(const CLI::App& app, const std::string& name);

std::string FirstSentence(const std::string& text);

}  // namespace kelcache
