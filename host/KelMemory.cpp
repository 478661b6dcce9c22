#include "host/KelMemory.h"

#include <atomic>
#include <cstdlib>

namespace kelsdk {
namespace {

constinit std::atomic<KelMallocHandler> mallocHandlerInUse{&std::malloc};
constinit std::atomic<KelReallocHandler> reallocHandlerInUse{&std::realloc};
constinit std::atomic<KelFreeHandler> freeHandlerInUse{&std::free};

// A zero-size request must give a block, which the C library does not promise.
std::size_t AtLeastOne(unsigned int size) {
  return size != 0 ? size : 1;
}

}  // namespace

bool KelSetMemoryHandlers(KelMallocHandler mallocHandler, KelReallocHandler reallocHandler,
                          KelFreeHandler freeHandler) noexcept {
  const bool all = mallocHandler != nullptr && reallocHandler != nullptr && freeHandler != nullptr;
  const bool none = mallocHandler == nullptr && reallocHandler == nullptr && freeHandler == nullptr;
  if (!all && !none) return false;
  mallocHandlerInUse = all ? mallocHandler : &std::malloc;
  reallocHandlerInUse = all ? reallocHandler : &std::realloc;
  freeHandlerInUse = all ? freeHandler : &std::free;
  return true;
}

void* KelMalloc(unsigned int size) noexcept {
  return mallocHandlerInUse.load()(AtLeastOne(size));
}

void* KelRealloc(void* block, unsigned int size) noexcept {
  return reallocHandlerInUse.load()(block, AtLeastOne(size));
}

void KelFree(void* block) noexcept {
  if (block != nullptr) freeHandlerInUse.load()(block);
}

}  // namespace kelsdk
