#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "tools/nc_form.h"
#include "tools/transform.h"

namespace kelcache {

// Options that several verbs which cut and join have in common.

/// --channel and --drop, each for one channel and as often as wanted.
void AddChannelOptions(CLI::App* verb, ChannelChoice* channels, const std::string& otherwise);

CLI::Option* AddEveryOption(CLI::App* verb, unsigned int* every);

/// --scale, --units, --axis, --rotate, --translate and what channels are to them.
void AddTransformOptions(CLI::App* verb, TransformOptions* transform);

/// --per-frame, --compact, and --single-file and --raw for verbs that keep the source's form.
void AddFormOptions(CLI::App* verb, NCForm* form);

}  // namespace kelcache
