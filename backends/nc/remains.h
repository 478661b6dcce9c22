#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "backends/io/report.h"
#include "backends/nc/description.h"
#include "backends/nc/publish.h"

namespace kelsdk::nc {

/// What a dead writer left. Its description is locked as long as this lives.
struct Remains {
  Partial partial;
  Identity identity = {};
  std::uint64_t created = 0;
  std::vector<std::string> dataFiles;   ///< in the partial folder
  std::optional<Description> complete;  ///< when publication had begun, with all its data there
  std::optional<std::string> begunAs;   ///< the base name under which data files were put in place
};

/// The remains to recover next: those whose publication was interrupted, else the newest; the
/// others are named. Finishes on the way what lacked nothing but the cleaning up. May throw
/// std::bad_alloc.
bool FindRemains(const CacheName& name, std::optional<Remains>* found, const io::Report& report,
                 io::Error& error);

/// What the folder of a partial cache holds, whoever holds its lock.
struct Use {
  enum EKind {
    eNone,        ///< no whole time block, and nothing that is in place already
    eSavable,     ///< by recover
    eUnclaimed,   ///< whole time blocks, but no description with which recover takes them up
    eHalfPlaced,  ///< a part of it is in place: recover goes on, and nothing else mends that
  };
  EKind kind = eNone;
  bool hasDescription = true;
};

/// Looks only. False when that fails for now.
bool FindUse(const CacheName& name, const std::string& folderName, Use* use, io::Error& error);

/// Cleans up after a publication that was interrupted after its last rename, which leaves a folder
/// that is empty. False when it is no such folder, which is then left.
bool FinishPublished(const CacheName& name, const std::string& folderName);

/// The remains that no living writer holds. May throw std::bad_alloc.
std::uint32_t CountLeftovers(const CacheName& name, const io::Report& report);

}  // namespace kelsdk::nc
