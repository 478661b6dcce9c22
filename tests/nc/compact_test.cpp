#include <meshoptimizer.h>

#include <random>

#include "backends/nc/compact_encoder.h"
#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

// Bytes that bring out every form of a group: zeros, few bits, few bits with exceptions, all bits.
Bytes MakeBytes(int kind, std::size_t stride, std::size_t size, std::mt19937& random) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) {
    const auto rising = static_cast<std::uint8_t>(i / stride * 3);
    const auto any = static_cast<std::uint8_t>(random());
    const std::uint8_t kinds[] = {any, 7, static_cast<std::uint8_t>(rising + any % 2),
                                  static_cast<std::uint8_t>(rising + any % 8),
                                  static_cast<std::uint8_t>(random() % 20 == 0 ? any : 0)};
    bytes[i] = kinds[kind];
  }
  return bytes;
}

TEST(Compact, IsWhatTheLibraryThatDecodesItEncodes) {
  std::mt19937 random(3);
  for (const std::size_t stride : {4UL, 8UL, 12UL, 24UL}) {
    for (const std::size_t count :
         {1UL, 2UL, 15UL, 16UL, 17UL, 255UL, 257UL, 336UL, 337UL, 1000UL}) {
      for (int kind = 0; kind < 5; ++kind) {
        const Bytes bytes = MakeBytes(kind, stride, stride * count, random);
        Bytes expected(meshopt_encodeVertexBufferBound(count, stride));
        expected.resize(meshopt_encodeVertexBuffer(expected.data(), expected.size(), bytes.data(),
                                                   count, stride));
        Bytes encoded(CompactBound(count, stride));  // the sanitizers see what is written beyond
        encoded.resize(EncodeCompact(bytes.data(), count, stride, encoded.data()));
        EXPECT_TRUE(encoded == expected) << stride << " x " << count << ", kind " << kind;
      }
    }
  }
}

}  // namespace
}  // namespace kelsdk::nc
