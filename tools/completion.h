#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace kelcache {

/// The script that lets a shell complete verbs, options and the words that options take.
std::string BashCompletion(const CLI::App& app);
std::string ZshCompletion(const CLI::App& app);
std::string FishCompletion(const CLI::App& app);

}  // namespace kelcache
