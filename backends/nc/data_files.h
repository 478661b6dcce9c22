#pragma once

#include <string>
#include <vector>

#include "backends/io/error.h"
#include "backends/nc/description.h"
#include "backends/nc/names.h"

namespace kelsdk::nc {

// The data files of a cache as a folder holds them. May throw std::bad_alloc.

/// Calls `visit` with the name of every data file of the cache until it gives false.
template <typename Visit>
bool ForEachDataFile(const Description& description, const std::string& base, Visit&& visit) {
  std::string name;
  if (!description.isPerFrame) {
    SingleFileName(base, description.Tag(), &name);
    return visit(name);
  }
  for (std::uint32_t i = 0; i < description.times.Count(); ++i) {
    FrameFileName(base, description.Tag(), description.ticksPerFrame, description.times.At(i),
                  &name);
    if (!visit(name)) return false;
  }
  return true;
}

/// Every name in a folder; false when it cannot be read.
bool ListFolder(const std::string& folder, std::vector<std::string>* names, io::Error& error);

/// The identity that a data file carries in its header. The error tells of its content
/// (IsAboutContent) when it is no data file.
bool ReadFileIdentity(const std::string& path, Identity* identity, io::Error& error);

/// True for a data file that can be read and has this identity.
bool CarriesIdentity(const std::string& path, const Identity& identity);

}  // namespace kelsdk::nc
