#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "tests/support/files.h"

namespace kelsdk::fuzz {

/// A promise that the input must not be able to break.
inline void Require(bool kept) {
  if (!kept) std::abort();
}

/// A folder in memory.
struct ScratchFolder : test::ScratchFolder {
  ScratchFolder() : test::ScratchFolder("/dev/shm") {}
};

/// The path of a file in memory that holds the bytes; it is the same for every input.
inline std::string FileOf(const std::uint8_t* bytes, std::size_t size) {
  static const ScratchFolder folder;
  std::string path = folder.File("input");
  test::WriteBytes(path, {bytes, bytes + size});
  return path;
}

}  // namespace kelsdk::fuzz
