#include <string>

#include "backends/nc/checksum.h"
#include "backends/nc/format.h"
#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

using Format = NcTest;

Bytes FromHex(const std::string& text) {
  Bytes bytes;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

// The worked file of docs/nc-format.md: what it lists stands at its place, the rest is zero or a
// checksum.
const struct {
  std::size_t at;
  const char* bytes;
} kWorkedFile[] = {
    {0, "4B454C4E430D0A1A0100000000000000"},
    {16, "83488A5142C11998EBBD512B92B38A8B"},
    {32, "3C1E7F1D617FEA18FA000000"},
    {56, "14CBE3C3D5B904EB"},
    {64, "4348414E000000000000000001000000"},
    {80, "0700000000000000C196E6B6C205FBDD"},
    {96, "C196E6B6C205FBDD8000000000000000"},
    {112, "06000000000000009FDD861AE9A19000"},
    {128, "50506F696E7473"},
    {192, "41524159000000000000000001000000"},
    {208, "0C00000000000000627D81ACB9FB7779"},
    {224, "627D81ACB9FB77790001000000000000"},
    {240, "06000000000000002788CE0FF0FF733C"},
    {256, "0000803F0000004000004040"},
    {320, "42454E44000000000000000001000000"},
    {376, "20F89C6B5D495AEB"},
    {384, "5245505400000000FA00000001000000"},
    {400, "0C00000000000000627D81ACB9FB7779"},
    {424, "000100000000000006000000000000000ABB90449AF049D3"},
    {448, "42454E4400000000FA00000001000000"},
    {504, "223FBEA895A2C512"},
    {512, "00000000010000000001000000000000"},
    {528, "0C00000000000000627D81ACB9FB7779"},
    {544, "FA000000010000000001000000000000"},
    {560, "0C00000000000000627D81ACB9FB7779"},
    {576, "0002000000000000AAE61192225C3F6F"},
    {592, "020000000600000000000000FA000000"},
    {608, "FA000000"},
    {640, "00020000000000004002000000000000"},
    {656, "01000000020000009E5CC4838F08785D"},
    {672, "83488A5142C11998EBBD512B92B38A8B"},
    {688, "4B454C4E43454E44E7E8D035B01D136A"},
};

TEST_F(Format, TheWorkedFileReads) {
  Bytes file(704);
  for (const auto& row : kWorkedFile) {
    const Bytes bytes = FromHex(row.bytes);
    std::copy(bytes.begin(), bytes.end(), file.begin() + static_cast<std::ptrdiff_t>(row.at));
  }
  const std::string text =
      R"(<nccache version="1" identity="83488a5142c11998ebbd512b92b38a8b" layout="single"
         data="ncx" ticksPerFrame="250"><channel name="P" interpretation="Points"
         type="FloatVectorArray"/></nccache>)";
  test::WriteBytes(folder_.File("dot.ncx"), file);
  test::WriteBytes(folder_.File("dot.xml"), Bytes(text.begin(), text.end()));
  EXPECT_TRUE(Verifies("dot"));
  const Bytes array = FromHex("0000803F0000004000004040");
  EXPECT_TRUE(ReadCache(Folder(), "dot") == (Contents{{{0, array}, {250, array}}}));
  // And by its records alone.
  file.resize(file.size() - 1);
  test::WriteBytes(folder_.File("dot.ncx"), file);
  EXPECT_TRUE(ReadCache(Folder(), "dot") == (Contents{{{0, array}, {250, array}}}));
}

TEST(Checksum, IsTheSameWithEveryInstructionSet) {
  EXPECT_EQ(Checksum(nullptr, 0), 0x2D06800538D394C2ull);
  EXPECT_EQ(Checksum("", 0), 0x2D06800538D394C2ull);
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
