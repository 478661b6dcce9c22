#pragma once

namespace kelsdk {

/// What a dead writer or a recovery left in a folder. The strings last as long as the call that
/// tells of it.
struct CacheLeftover {
  enum EKind : int {
    ePartialFile = 0,    ///< in which a writer of a PC2 file gathers its samples
    ePartialFolder = 1,  ///< in which a writer of an NC cache gathers its files
    eOlderCache = 2,     ///< that gave way to what was recovered, as "NAME.before-recover"
  };
  enum EState : int {
    eUseless = 0,  ///< nothing of it can be saved, or what took its place is whole
    eOfUse = 1,    ///< recover could save it, or it may be the only copy: removed by force alone
    eInUse = 2,    ///< a living writer holds it, or whether one does cannot be told: never removed
  };

  const char* name;  ///< without its folder; of an NC cache its description, where it has one
  EKind kind;
  EState state;
  const char* why;           ///< the state is that, in a clause without a full stop
  unsigned long long bytes;  ///< of all its files
  long long since;           ///< seconds since 1970: written to last, or given that name
};

/// Told about one.
using CacheLeftoverFunction = void (*)(void* context, const CacheLeftover& leftover);

}  // namespace kelsdk
