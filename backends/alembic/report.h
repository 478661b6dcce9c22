#pragma once

#include <string>

#include "backends/alembic/archive.h"
#include "backends/io/error.h"
#include "backends/io/report.h"

namespace kelsdk::alembic {

/// "float32[3]"; without brackets for one value per element.
std::string TypeText(const Property& property);

/// "24 fps from 0.5 s", "3 times every 0.04 s from 1 s", "8 times of its own from -1 s".
std::string SamplingText(const TimeSampling& sampling);

/// Reports objects and properties, one line each, indented by what holds them. Throws
/// std::bad_alloc.
void ListTree(const Hierarchy& hierarchy, const io::Report& report);

/// Reads every sample of every property and reports each problem on one line; true when there is
/// none. Samples that are kept once are read once. Throws std::bad_alloc.
bool Verify(Archive& archive, const io::Report& report);

}  // namespace kelsdk::alembic
