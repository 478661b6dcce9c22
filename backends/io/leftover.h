#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "backends/CacheLeftover.h"
#include "backends/io/error.h"
#include "backends/io/output_file.h"
#include "backends/io/report.h"

namespace kelsdk::io {

// What the back-ends share of finding and removing what was left. May throw std::bad_alloc.

struct Leftover {
  std::string name;
  CacheLeftover::EKind kind = CacheLeftover::ePartialFile;
  CacheLeftover::EState state = CacheLeftover::eInUse;
  std::string why;
  std::uint64_t bytes = 0;
  std::int64_t since = 0;

  void Is(CacheLeftover::EState itsState, std::string itsReason) {
    state = itsState;
    why = std::move(itsReason);
  }
  /// A failure to look at it.
  void CannotBeTold(const Error& error) { Is(CacheLeftover::eInUse, error.text()); }
};

inline constexpr char kHeldByWriter[] = "a living writer holds it";
inline constexpr char kSavable[] = "recover saves what is in it";
inline constexpr char kReplaced[] = "what took its place is whole";

/// A writer makes its file or folder, then locks it, then writes: what holds nothing may be one
/// that is about to be locked, and then nothing may be asked of its lock. True once it is old
/// enough for that to be over.
bool IsSettled(std::int64_t since);
inline constexpr char kNotSettled[] =
    "holds nothing, and is too young to tell that its writer died";

/// "NAME.before-recover", "NAME.before-recover2" ...: the length of "NAME", and of all of it. False
/// for a name that does not begin so.
bool ParseOlderName(const std::string& name, std::size_t* length, std::size_t* ownLength);

/// Takes the lock of what is to be removed. False when a living writer holds it, where the file
/// system has no locks, and when the name is by now that of another file.
bool LockForRemoval(const char* path, OutputFile* file, Error& error);

/// Whether it may be removed; the reason otherwise.
bool ExpectRemovable(const Leftover& leftover, bool force, Error& error);

// The operations of the interfaces, which throw nothing, around those of a back-end.
using FindFunction = bool (*)(const std::string& folder, std::vector<Leftover>* leftovers,
                              Error& error);
using RemoveFunction = bool (*)(const std::string& folder, const std::string& leftoverName,
                                bool force, Error& error);
bool ListLeftovers(FindFunction find, const char* folder, CacheLeftoverFunction told,
                   const Report& report) noexcept;
bool RemoveLeftover(RemoveFunction remove, const char* folder, const char* name, bool force,
                    const Report& report) noexcept;

}  // namespace kelsdk::io
