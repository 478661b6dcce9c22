#pragma once

#include <string>

#include "backends/io/error.h"
#include "backends/io/output_file.h"
#include "backends/nc/description.h"
#include "backends/nc/names.h"

namespace kelsdk::nc {

/// The files of one writer, gathered under their final names in a folder beside the target. The
/// description there is locked while its writer lives; it is empty until publication begins.
struct Partial {
  CacheName name;      ///< that the files bear in the folder
  CacheName target;    ///< that they will bear: the same, but for a cache recovered beside another
  std::string folder;  ///< with a final "/"
  io::OutputFile description;

  std::string DescriptionPath() const { return folder + name.base + ".xml"; }
};

/// Makes the folder and the locked, empty description in it. Refuses a target that may not be
/// replaced. May throw std::bad_alloc, as may everything below.
bool CreatePartial(const CacheName& name, const Identity& identity, Partial* partial,
                   io::Error& error);

/// Removes the folder with all that is in it.
void DiscardPartial(Partial* partial);

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
