#pragma once

#include "backends/io/error.h"
#include "backends/nc/description.h"
#include "backends/nc/partial.h"
#include "backends/nc/writer.h"

namespace kelsdk::nc {

// Puts caches in the places of older ones. May throw std::bad_alloc.

/// Completes what was written and publishes it. Whatever fails, the writer writes no more.
bool FinishAndPublish(CacheWriter* writer, io::Error& error);

/// Makes the data files durable, completes the description, puts everything in the place of the
/// older cache and removes that one's other data files. Until the first rename a failure leaves the
/// older cache as it was; whatever fails, CompletePublication can take over.
/// @param isOlderKept  what stands at the target has been kept under other names
bool Publish(Partial* partial, Description* description, bool isOlderKept, io::Error& error);

/// The renames of Publish, from wherever they were interrupted: the description in the partial
/// folder is complete, and data files that are no longer beside it are in place, under the target's
/// name or the cache's own.
bool CompletePublication(Partial* partial, const Description& description, io::Error& error);

/// What is left to do when all files are in place.
void FinishPublication(const Partial& partial, const Description& description);

}  // namespace kelsdk::nc
