#include <cstdio>
#include <fstream>
#include <string>

#include "backends/nc/checksum.h"
#include "backends/nc/format.h"
#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

using Format = NcTest;

void PutChecksum(const Bytes& file, std::size_t from, std::size_t size, std::uint8_t* at) {
  const std::uint64_t checksum = Checksum(file.data() + from, size);
  std::memcpy(at, &checksum, sizeof checksum);
}

// The worked file of docs/nc-format.md: the rows of its table, and the checksums that it leaves
// out, those of the five records and of the channel's texts.
Bytes WorkedFile() {
  Bytes file(704);
  std::ifstream page(test::TestData("../../docs/nc-format.md"));
  for (std::string line; std::getline(page, line);) {
    std::size_t at = 0;
    char words[64];
    if (std::sscanf(line.c_str(), "| %zu | `%63[0-9A-F ]` |", &at, words) != 2) continue;
    std::string hex(words);
    std::erase(hex, ' ');
    for (std::size_t i = 0; i < hex.size(); i += 2) {
      file.at(at++) = static_cast<std::uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16));
    }
  }
  PutChecksum(file, 128, 7, &file[88]);
  PutChecksum(file, 128, 7, &file[96]);
  for (const std::size_t record : {64u, 192u, 320u, 384u, 448u}) {
    PutChecksum(file, record, 56, &file[record + 56]);
  }
  return file;
}

TEST_F(Format, TheWorkedFileReads) {
  const Bytes file = WorkedFile();
  const std::string text =
      R"(<nccache version="1" identity="83488a5142c11998ebbd512b92b38a8b" layout="single"
         data="ncx" ticksPerFrame="250"><channel name="P" interpretation="Points"
         type="FloatVectorArray"/></nccache>)";
  test::WriteBytes(folder_.File("dot.ncx"), file);
  test::WriteBytes(folder_.File("dot.xml"), Bytes(text.begin(), text.end()));
  EXPECT_TRUE(Verifies("dot"));
  const float point[] = {1, 2, 3};
  Bytes array(sizeof point);
  std::memcpy(array.data(), point, sizeof point);
  EXPECT_TRUE(ReadCache(Folder(), "dot") == (Contents{{{0, array}, {250, array}}}));
}

TEST(Checksum, IsTheSameWithEveryInstructionSet) {
  EXPECT_EQ(Checksum(nullptr, 0), 0x2D06800538D394C2ull);
  Bytes bytes(5000);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 37);
  for (std::size_t size = 0; size < bytes.size(); size += 1 + size / 16) {
    const std::uint64_t expected = ChecksumBaseline(bytes.data(), size);
    EXPECT_EQ(Checksum(bytes.data(), size), expected) << size;
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2")) {
      EXPECT_EQ(ChecksumAvx2(bytes.data(), size), expected) << size;
    }
    if (__builtin_cpu_supports("avx512f")) {
      EXPECT_EQ(ChecksumAvx512(bytes.data(), size), expected) << size;
    }
#endif
  }
}

}  // namespace
}  // namespace kelsdk::nc
