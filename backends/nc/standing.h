#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backends/io/error.h"
#include "backends/nc/description.h"
#include "backends/nc/names.h"

namespace kelsdk::nc {

// What recovery meets under the name of a cache, and the names it gives beside it. May throw
// std::bad_alloc.

struct Standing {
  enum EState {
    eNothing,  ///< no description
    eDamaged,  ///< the description is, or a data file is missing, damaged or of another cache
    eWhole,    ///< or cannot be told from it: of an unknown version, unreadable for now
  };
  EState state = eNothing;
  std::optional<Description> description;  ///< where it can be read
  io::Error unreadable;                    ///< why it could not even be looked at
};

/// Looks at the description and at whether all data files are there and open; per-frame layout: at
/// the header of each. Reads no arrays.
Standing LookAtStanding(const CacheName& name);

/// Looks likewise, and takes nothing for whole that cannot be read for now.
bool OpensWhole(const CacheName& name, Identity* identity, io::Error& why);

/// The first base name "shot.recovered", "shot.recovered2" ... that nothing bears but data files of
/// this identity.
bool FindFreeBase(const CacheName& name, const Identity& identity, std::string* base,
                  io::Error& error);

/// Gives what stands at a name, as far as putting `ours` in its place would overwrite or remove it,
/// a second base name, "shot.before-recover" or the first free one after it: the data first, the
/// description last. What an interrupted call has done is taken up.
/// @param keptAs  the base name; empty when there was nothing to keep
bool KeepOlder(const CacheName& name, const Standing& standing, const Description& ours,
               std::string* keptAs, io::Error& error);

}  // namespace kelsdk::nc
