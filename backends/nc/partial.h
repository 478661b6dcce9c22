#pragma once

#include <string>

#include "backends/io/error.h"
#include "backends/io/output_file.h"
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

}  // namespace kelsdk::nc
