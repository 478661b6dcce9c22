#pragma once

#include <string>

#include "backends/alembic/archive.h"
#include "backends/io/error.h"

namespace kelsdk::alembic {

/// Where lines for a person go, one call each, without line breaks; `function` may be null.
struct LineSink {
  using Function = void (*)(void* context, const char* line);
  Function function = nullptr;
  void* context = nullptr;

  void Put(const std::string& line) const {
    if (function != nullptr) function(context, line.c_str());
  }
};

/// "float32[3]"; without brackets for one value per element.
std::string TypeText(const Property& property);

/// "24 fps from 0.5 s", "3 times every 0.04 s from 1 s", "8 times of its own from -1 s".
std::string SamplingText(const TimeSampling& sampling);

/// Reports objects and properties, one line each, indented by what holds them. Throws
/// std::bad_alloc.
void ListTree(const Hierarchy& hierarchy, const LineSink& sink);

/// Reads every sample of every property and reports each problem on one line; true when there is
/// none. Samples that are kept once are read once. Throws std::bad_alloc.
bool Verify(Archive& archive, const LineSink& sink);

}  // namespace kelsdk::alembic
