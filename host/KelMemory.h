#pragma once

#include <cstddef>
#include <new>

#include "host/KelApi.h"

namespace kelsdk {

class KelManager;

using KelMallocHandler = void* (*)(std::size_t size);
using KelReallocHandler = void* (*)(void* block, std::size_t size);
using KelFreeHandler = void (*)(void* block);

/// Replaces the allocator behind KelMalloc, KelRealloc and KelFree for the whole process; three
/// null handlers restore the C library's. Set it before the first object is made: a block must go
/// back to the allocator it came from. The handlers may be called from any thread.
/// @return false, with nothing changed, when only some of the handlers are null: one allocator's
///         blocks would go to another
KEL_API bool KelSetMemoryHandlers(KelMallocHandler mallocHandler, KelReallocHandler reallocHandler,
                                  KelFreeHandler freeHandler) noexcept;

/// Returns a block of `size` bytes aligned for any object, or null when there is no memory. A size
/// of 0 gives a block of its own.
KEL_API void* KelMalloc(unsigned int size) noexcept;

/// Resizes a block to `size` bytes, keeping its contents up to the smaller size. A null block asks
/// for a new one. On null the old block stays as it was, and stays the caller's.
KEL_API void* KelRealloc(void* block, unsigned int size) noexcept;

/// Releases a block from KelMalloc or KelRealloc; null does nothing.
KEL_API void KelFree(void* block) noexcept;

/// Makes a `T` from a manager and a name in memory from KelMalloc; null when there is none.
template <typename T>
T* KelNew(KelManager& manager, const char* name) {
  void* block = KelMalloc(static_cast<unsigned int>(sizeof(T)));
  return block != nullptr ? ::new (block) T(manager, name) : nullptr;
}

}  // namespace kelsdk
