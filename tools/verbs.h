#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "tools/formats.h"
#include "tools/options.h"
#include "tools/tool_error.h"

namespace kelcache {

/// A verb's work, run once the command line is parsed. What it throws, main turns into a line on
/// standard error and an exit status.
using Work = std::function<EExit()>;

/// The option --as, common to the verbs that open a file.
inline void AddAsOption(CLI::App* verb, std::string* asName) {
  verb->add_option("--as", *asName, "Read the file as this format, whatever its extension")
      ->check(OneOf(FormatNames()));
}

// Each adds its verb to the command line and sets `work` when the verb is chosen.
void AddInfo(CLI::App& app, Work* work);
void AddPlay(CLI::App& app, Work* work);
void AddDump(CLI::App& app, Work* work);
void AddMake(CLI::App& app, Work* work);
void AddCheck(CLI::App& app, Work* work);
void AddVerify(CLI::App& app, Work* work);
void AddRecover(CLI::App& app, Work* work);
void AddConvert(CLI::App& app, Work* work);
void AddDiff(CLI::App& app, Work* work);
void AddRetime(CLI::App& app, Work* work);
void AddTrim(CLI::App& app, Work* work);
void AddExtract(CLI::App& app, Work* work);
void AddMerge(CLI::App& app, Work* work);
void AddResample(CLI::App& app, Work* work);
void AddTransform(CLI::App& app, Work* work);
void AddHelp(CLI::App& app, Work* work);

}  // namespace kelcache
