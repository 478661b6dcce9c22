#include "backends/nc/predicted.h"

#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <set>

#include "backends/nc/checksum.h"
#include "backends/nc/records.h"
#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

constexpr EType kAllTypes[] = {zuCacheData::eNCDoubleArray, zuCacheData::eNCDoubleVectorArray,
                               zuCacheData::eNCInt32Array, zuCacheData::eNCFloatArray,
                               zuCacheData::eNCFloatVectorArray};

// What values can be like: smooth, of any bits at all, mostly still, all the same, few bits.
const char* const kKinds[] = {"smooth", "any bits", "outliers", "constant", "coarse"};

Bytes MakeValues(EType type, const std::string& kind, std::size_t elements, int seed) {
  std::mt19937_64 random(static_cast<unsigned int>(seed) * 31 + elements);
  Bytes bytes = MakeArray(type, elements, kind == "smooth" ? seed : 1);
  const std::size_t word = WordSize(type);
  for (std::size_t at = 0; at < bytes.size(); at += word) {
    const std::uint64_t bits = random();
    if (kind == "any bits" || (kind == "outliers" && bits % 20 == 0)) {
      std::memcpy(&bytes[at], &bits, word);
    } else if (kind == "constant") {
      std::fill_n(&bytes[at], word, std::uint8_t{0x80});
    } else if (kind == "coarse") {
      std::fill_n(&bytes[at], word / 2, std::uint8_t{0});
    }
  }
  return bytes;
}

double ValueAt(const Bytes& bytes, std::size_t at, EType type) {
  return WordSize(type) == sizeof(double) ? io::LoadLittle<double>(&bytes[at])
                                          : double(io::LoadLittle<float>(&bytes[at]));
}

// Encodes an array and one that stands on it, and decodes them: every bit without a bound, each
// value within it otherwise.
void ExpectBack(EType type, const Bytes (&arrays)[2], double bound) {
  const auto elements = static_cast<std::uint32_t>(arrays[0].size() / ElementSize(type));
  PredictedEncoder encoder;
  PredictedDecoder decoder;
  ArrayKeys encoded[2];
  ArrayKeys decoded[2];
  for (std::uint8_t depth = 0; depth < 2; ++depth) {
    const Bytes& array = arrays[depth];
    PredictedHeader header;
    header.depth = depth;
    header.baseDistance = depth;
    encoder.Encode(type, array.data(), elements, depth != 0 ? &encoded[0] : nullptr, bound, header,
                   &encoded[depth]);
    const std::size_t size = encoder.Stored().size();
    EXPECT_GE(size, array.size() / kBestCompression);
    Bytes stored(encoder.Stored().begin(), encoder.Stored().end());
    stored.resize(size + kDecodeSlack);
    Bytes back(array.size());
    io::Error error;
    EXPECT_TRUE(decoder.Decode(type, {stored.data(), size}, elements,
                               depth != 0 ? &decoded[0] : nullptr, back.data(), &decoded[depth],
                               error))
        << error.text();
    EXPECT_EQ(std::memcmp(back.data(), encoder.Decoded(), back.size()), 0);
    Bytes again(array.size());
    ArrayOfKeys(type, encoded[depth], elements, again.data());
    EXPECT_EQ(again, back);
    EXPECT_TRUE(bound != 0 || back == array);
    double largest = 0;
    for (std::size_t at = 0; bound != 0 && at < array.size(); at += WordSize(type)) {
      largest = std::max(largest, std::fabs(ValueAt(back, at, type) - ValueAt(array, at, type)));
    }
    EXPECT_LE(largest, bound);
  }
}

TEST(Predicted, GivesEveryBitBackOrKeepsTheBound) {
  for (const EType type : kAllTypes) {
    for (const std::size_t elements : {1UL, 2UL, 31UL, 33UL, 1023UL, 1025UL, 2100UL}) {
      for (const char* const kind : kKinds) {
        SCOPED_TRACE(std::string(kElementTypes[type].name) + " x " + std::to_string(elements) +
                     ", " + kind);
        ExpectBack(type, {MakeValues(type, kind, elements, 0), MakeValues(type, kind, elements, 1)},
                   0);
      }
    }
    for (const double bound : {1e-300, 1e-9, 1e-5, 0.003, 1.0, 1e5}) {
      if (type == zuCacheData::eNCInt32Array) continue;
      SCOPED_TRACE(std::string(kElementTypes[type].name) + " within " + std::to_string(bound));
      ExpectBack(type, {MakeArray(type, 500, 0), MakeArray(type, 500, 1)}, bound);
    }
  }
}

TEST(Predicted, LeavesWhatIsNoNumberAsItIs) {
  using Limits = std::numeric_limits<float>;
  for (const float odd : {Limits::infinity(), -Limits::infinity(), Limits::quiet_NaN(), 1e38f}) {
    const float values[] = {1.5f, 1.5f, odd, 1.5f};
    PredictedEncoder encoder;
    ArrayKeys keys;
    encoder.Encode(zuCacheData::eNCFloatArray, values, 4, nullptr, 1e-3, {}, &keys);
    EXPECT_EQ(encoder.Decoded(), static_cast<const void*>(values)) << odd;
  }
}

// A cache of 20 frames in two channels, whose records a test may falsify. Its points lie anywhere
// and move a little.
class Bases : public NcTest {
 protected:
  static constexpr int kFrames = 20;
  static constexpr std::size_t kElements = 200;

  void SetUp() override {
    spec_ = Form{Cache::eSingleFile, "ncc"}.Of({});
    spec_.channels = {{"P", zuCacheData::eNCFloatVectorArray},
                      {"Q", zuCacheData::eNCFloatVectorArray}};
    for (int i = 0; i < 2 * kFrames; ++i) {
      std::mt19937 random(7);
      Bytes array;
      for (std::size_t value = 0; value < 3 * kElements; ++value) {
        array.resize(array.size() + sizeof(float));
        io::StoreLittle(&array.end()[-4],
                        float(random() % 1000) + 0.001f * float(i / 2 + i % 2 * 50));
      }
      spec_.samples.push_back({unsigned(i % 2), i / 2 * 250, array});
    }
    ASSERT_TRUE(Write(Folder(), "shot", spec_));
    bytes_ = test::ReadBytes(path_);
    for (std::size_t at = kHeaderSize; at + kRecordHeaderSize <= bytes_.size(); at += kAlignment) {
      RecordHeader record;
      if (LoadRecordHeader(&bytes_[at], &record) && record.kind == eArrayRecord) {
        places_.emplace(std::pair(record.channel, record.tick / 250), at);
      }
    }
    ASSERT_EQ(places_.size(), std::size_t{2 * kFrames});
  }

  const Bytes& ArrayOf(int frame) const { return spec_.samples[size_t(2 * frame)].array; }
  std::uint8_t* PayloadOf(unsigned int channel, int frame) {
    return &bytes_[places_.at({channel, frame}) + kRecordHeaderSize];
  }

  // Makes the checksums of a record what they are to be, and puts the file in its place.
  void Seal(unsigned int channel, int frame) {
    std::uint8_t* const at = &bytes_[places_.at({channel, frame})];
    RecordHeader record;
    ASSERT_TRUE(LoadRecordHeader(at, &record));
    record.storedChecksum = Checksum(at + kRecordHeaderSize, record.storedSize);
    StoreRecordHeader(record, at);
    test::WriteBytes(path_, bytes_);
  }

  // The frames of the first channel that cannot be read, each with a cache opened for it alone and
  // with one that reads them all; whatever can be read is right.
  std::set<int> Unreadable() {
    std::set<int> unreadable;
    Cache all;
    EXPECT_TRUE(all.initFileRead("shot", Folder().c_str()));
    for (int frame = 0; frame < kFrames; ++frame) {
      Cache one;
      EXPECT_TRUE(one.initFileRead("shot", Folder().c_str()));
      const auto array = ReadArray(one, 0, frame * 250);
      EXPECT_EQ(ReadArray(all, 0, frame * 250), array) << "frame " << frame;
      EXPECT_EQ(array.value_or(ArrayOf(frame)), ArrayOf(frame));
      if (!array) unreadable.insert(frame);
    }
    return unreadable;
  }

  CacheSpec spec_;
  const std::string path_ = folder_.File("shot.ncc");
  Bytes bytes_;
  std::map<std::pair<std::uint32_t, int>, std::size_t> places_;  // of records, by channel and frame
};

TEST_F(Bases, AreReadInAnyOrderWithFewReads) {
  Cache cache;
  ASSERT_TRUE(cache.initFileRead("shot", Folder().c_str()));
  const auto reads = [&](const std::vector<int>& frames) {
    const unsigned long before = test::SystemCallCount();
    for (const int frame : frames) EXPECT_EQ(ReadArray(cache, 0, frame * 250), ArrayOf(frame));
    return test::SystemCallCount() - before;
  };
  std::vector<int> forward(kFrames);
  std::iota(forward.begin(), forward.end(), 0);
  EXPECT_LE(reads(forward), kFrames + 1u) << "with the index";
  EXPECT_LE(reads({forward.rbegin(), forward.rend()}), 2u * kFrames);
  EXPECT_LE(reads({15, 18, 14, 1, 13}), 25u);
  EXPECT_EQ(reads({13, 13}), 0u) << "again";
}

TEST_F(Bases, DamagedTakeThoseThatStandOnThemAlong) {
  const std::pair<int, std::set<int>> rows[] = {
      {12, {12, 13, 14, 15}}, {7, {7}}, {16, {16, 17, 18, 19}}};
  for (const auto& [damaged, lost] : rows) {
    SCOPED_TRACE("frame " + std::to_string(damaged));
    const Bytes whole = bytes_;
    PayloadOf(0, damaged)[40] ^= 1;
    test::WriteBytes(path_, bytes_);
    EXPECT_EQ(Unreadable(), lost);
    const std::string said = Verifies("shot").message();
    for (const int frame : lost) {
      EXPECT_NE(said.find("tick " + std::to_string(frame * 250)), std::string::npos) << said;
    }
    bytes_ = whole;
  }
}

TEST_F(Bases, ThatAreNoneAreRefused) {
  const auto distance = [&](unsigned int channel, int from, int to) {
    return static_cast<std::uint32_t>((places_.at({channel, from}) - places_.at({0, to})) /
                                      kAlignment);
  };
  const auto store = [&](int offset, std::uint64_t value) {
    io::StoreLittle(PayloadOf(0, 3) + offset, static_cast<std::uint32_t>(value));
  };
  const struct {
    const char* lie;
    const char* words;
    std::function<void()> tell;
  } rows[] = {
      {"itself", "no base where it says", [&] { store(4, 1); }},
      {"before the file", "no base where it says", [&] { store(4, 0xffffffff); }},
      {"another channel", "of this channel",
       [&] {
         store(4, distance(0, 3, 2) - distance(1, 2, 2));
         RecordHeader other;
         ASSERT_TRUE(LoadRecordHeader(&bytes_[places_.at({1, 2})], &other));
         store(8, other.storedSize);
       }},
      {"another size", "of this channel", [&] { store(8, 100); }},
      {"as deep", "too deep", [&] { PayloadOf(0, 3)[1] = 1; }},
      {"too deep", "", [&] { PayloadOf(0, 3)[1] = 9; }},
      {"an unknown form", "", [&] { PayloadOf(0, 3)[0] = 3; }},
      {"an unknown prediction", "", [&] { PayloadOf(0, 3)[12] = 3; }},
      {"too many bits left away", "", [&] { PayloadOf(0, 3)[2] = 32; }},
  };
  const Bytes whole = bytes_;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.lie);
    bytes_ = whole;
    row.tell();
    Seal(0, 3);
    EXPECT_EQ(Unreadable(), std::set<int>{3});
    const auto verified = Verifies("shot");
    EXPECT_FALSE(verified);
    EXPECT_NE(std::string(verified.message()).find(row.words), std::string::npos)
        << verified.message();
  }
}

TEST_F(NcTest, AMaximumErrorIsKeptWithTheChannel) {
  constexpr EType kPoints = zuCacheData::eNCFloatVectorArray;
  constexpr EType kIntegers = zuCacheData::eNCInt32Array;
  const struct {
    const char* name;
    const char* tag;
    unsigned int encoding;
    EType type;
    double bound;
  } rows[] = {{"raw", "ncx", 2, kPoints, 0.1},      {"first", "ncc", 1, kPoints, 0.1},
              {"integers", "ncc", 2, kIntegers, 1}, {"none", "ncc", 2, kPoints, 0},
              {"negative", "ncc", 2, kPoints, -1},  {"no number", "ncc", 2, kPoints, std::nan("")}};
  for (const auto& row : rows) {
    Cache cache;
    CacheSpec spec = Form{Cache::eSingleFile, row.tag, row.encoding}.Of({});
    spec.channels = {{"P", row.type}};
    ASSERT_TRUE(WriteOpen(cache, Folder(), "shot", spec));
    EXPECT_FALSE(cache.setMaximumError(0, row.bound)) << row.name;
    EXPECT_FALSE(cache.setMaximumError(1, 0.1)) << "an unknown channel";
  }
  {
    Cache cache;
    Bytes array = MakeArray(kPoints, 100, 1);
    const CacheSpec spec = Form{Cache::eSingleFile, "ncc"}.Of(Frames(0, 0));
    ASSERT_TRUE(WriteOpen(cache, Folder(), "shot", spec));
    ASSERT_TRUE(cache.setMaximumError(0, 0.01) && cache.beginWriteAtTime(0) &&
                cache.addArrayData(0, 0, array.data(), 100) && cache.endWriteAtTime());
    EXPECT_FALSE(cache.setMaximumError(0, 0.02)) << "after an array";
  }
  unsigned int blocks = 0;  // of a writer that died: the records have told all
  ASSERT_TRUE(Cache::recover(Folder().c_str(), "shot", blocks, nullptr, nullptr));
  Cache reader;
  double bound = 0;
  EXPECT_TRUE(Open(reader) && reader.maximumError(0, bound) && bound == 0.01);
  EXPECT_TRUE(Verifies("shot"));
}

}  // namespace
}  // namespace kelsdk::nc
