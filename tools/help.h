#pragma once

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>

namespace kelcache {

/// Lays out help: a usage line, the description, verbs or options, and the footer. Text is broken
/// between words at the stream's width; lines of a footer that begin with spaces, which are
/// examples, stay whole. The first sentence of a verb's description stands for it in the list.
class HelpFormatter : public CLI::FormatterBase {
 public:
  explicit HelpFormatter(std::FILE* stream) : stream_(stream) {}
  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override;

 private:
  std::FILE* stream_;
};

/// Help on the command with all its verbs.
std::string HelpOn(const CLI::App& app, std::FILE* stream);

/// The verb of a name; throws eUsage when there is none, with the one that may have been meant.
CLI::App* FindVerb(CLI::App& app, const std::string& name);

}  // namespace kelcache
