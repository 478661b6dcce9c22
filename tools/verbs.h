#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "host/KelTime.h"
#include "tools/tool_error.h"

namespace kelsdk {

/// For the command line: "25", "23.976" (which stands for 24000/1001) or "24000/1001".
bool lexical_cast(const std::string& text, KelFrameRate& rate);

}  // namespace kelsdk

namespace kelcache {

/// A verb's work, run once the command line is parsed. What it throws, main turns into a line on
/// standard error and an exit status.
using Work = std::function<EExit()>;

// Each adds its verb to the command line and sets `work` when the verb is chosen.
void AddInfo(CLI::App& app, Work* work);
void AddPlay(CLI::App& app, Work* work);
void AddDump(CLI::App& app, Work* work);
void AddMake(CLI::App& app, Work* work);
void AddVerify(CLI::App& app, Work* work);
void AddRecover(CLI::App& app, Work* work);
void AddConvert(CLI::App& app, Work* work);
void AddDiff(CLI::App& app, Work* work);
void AddRetime(CLI::App& app, Work* work);

/// The option --as, common to the verbs that open a file.
inline void AddAsOption(CLI::App* verb, std::string* asName) {
  verb->add_option("--as", *asName, "Read the file as this format, whatever its extension")
      ->check(CLI::IsMember({"pc2", "nc", "alembic"}));
}

}  // namespace kelcache
