#pragma once

namespace kelsdk {

/// What a look at a cache that is being written has found. The string lasts as long as the call
/// that tells of it.
struct CacheProgress {
  enum EState : int {
    eAtWork = 0,       ///< its writer holds it
    eBeingPlaced = 1,  ///< all is written; its files are made durable and put in place
    // The last look:
    ePublished = 2,  ///< it stands under its name
    eGivenUp = 3,    ///< its writer has removed it, or somebody else has
    eDied = 4,       ///< its writer has left it
  };

  EState state = eAtWork;
  unsigned long long samples = 0;   ///< whole ones of a PC2 file, whole time blocks of an NC cache
  unsigned long long promised = 0;  ///< samples that the writer means to write; 0: nothing tells
  unsigned long long bytes = 0;     ///< of all its files
  bool hasFrames = false;           ///< the two below are known
  double firstFrame = 0;            ///< scene frame of the earliest sample so far
  double lastFrame = 0;             ///< and of the latest
  long long begun = 0;    ///< seconds since 1970 by the file system's clock; 0: it does not tell
  long long written = 0;  ///< likewise: when it was last written to
  /// False where the file system has no locks: what looks like at work may be dead.
  bool isLifeKnown = true;
  const char* problem = "";  ///< why this look could not tell anything new; "" when it could
};

/// Told about each look, with as much time as it likes before the next one; false ends it.
using CacheProgressFunction = bool (*)(void* context, const CacheProgress& progress);

}  // namespace kelsdk
