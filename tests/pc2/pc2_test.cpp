#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <optional>

#include "backends/zuPointCache2IO.h"
#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

namespace fs = std::filesystem;

// A PC2 file's bytes: a header of these fields and `dataBytes` after it, the floats 0, 1, 2, ...
Bytes MakePC2(std::uint32_t points, std::uint32_t samples, size_t dataBytes, float start = 0,
              float rate = 1, std::uint32_t version = 1) {
  const struct {
    char signature[12] = "POINTCACHE2";
    std::uint32_t version, points;
    float start, rate;
    std::uint32_t samples;
  } header = {
      .version = version, .points = points, .start = start, .rate = rate, .samples = samples};
  std::vector<float> floats(dataBytes / 4);
  std::iota(floats.begin(), floats.end(), 0.0F);
  Bytes bytes(sizeof header + dataBytes);
  std::memcpy(bytes.data(), &header, sizeof header);
  std::copy_n(reinterpret_cast<const std::uint8_t*>(floats.data()), floats.size() * 4,
              bytes.begin() + sizeof header);
  return bytes;
}

class PC2Object : public CacheObject {
 public:
  explicit PC2Object(const std::string& path) : CacheObject(KelCache::ePC2Format, path) {}

  // Samples of 2 points, values sample + 0.25 x position.
  bool WriteSample(unsigned int sample) {
    double values[6];
    for (int i = 0; i < 6; ++i) values[i] = sample + 0.25 * i;
    return get()->Write(sample, values, nullptr);
  }
  // The first value of a frame's sample.
  std::optional<float> Fetch(long long frame) {
    float* values = nullptr;
    unsigned int length = 0;
    if (!get()->Read(&values, length, KelTime::FromFrame(frame), 0)) return std::nullopt;
    return values[0];
  }
};

class PC2 : public FileTest {
 protected:
  static std::optional<float> FirstValue(const std::string& path, unsigned int sample) {
    PC2Object cache(path);
    return cache->OpenFileForRead(nullptr) ? cache.Fetch(sample) : std::nullopt;
  }
  // The samples that were saved.
  static unsigned int Recover(const std::string& path) {
    unsigned int saved = 0;
    const bool done = zuPointCache2IO::recover(path.c_str(), {}, saved, nullptr, nullptr);
    EXPECT_EQ(done, saved != 0);
    return saved;
  }
  static unsigned int Leftovers(const std::string& path) {
    return zuPointCache2IO::leftovers(path.c_str(), nullptr, nullptr);
  }
  // Samples of two points that are never published.
  void WriteAndDie(const std::vector<unsigned int>& samples) {
    PC2Object cache(path_);
    ASSERT_TRUE(cache->OpenFileForWrite(7, 24, 5, 2, nullptr));
    for (const unsigned int sample : samples) cache.WriteSample(sample);
  }

  const std::string path_ = folder_.File("shot.pc2");
};

TEST_F(PC2, OddButSoundFiles) {
  const struct {
    const char* why;
    Bytes bytes;
    unsigned int readable;  // samples
    long long perFrame;     // KelTime units
  } cases[] = {
      {"no samples", MakePC2(1, 0, 0, 0, 29.97F), 0, 1592626137},
      {"bytes after the last sample", MakePC2(1, 2, 30, 0, -1), 2, -46186158000},
      {"odd start and rate", MakePC2(1, 1, 12, std::nanf(""), -INFINITY), 1, 0},
      {"cut inside the third sample", MakePC2(1, 4, 35, 0, 0.5F), 2, 0},
      {"far more claimed than held", MakePC2(1, 0xFFFFFFFF, 24, 0, 1e30F), 2, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    WriteBytes(path_, c.bytes);
    PC2Object cache(path_);
    ASSERT_TRUE(cache->OpenFileForRead(nullptr));
    EXPECT_EQ(cache->GetCacheTimePerFrame(nullptr).Get(), c.perFrame);
    for (const unsigned int sample : {0U, 1U, c.readable, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
      const bool readable = sample < c.readable;
      double values[6] = {-7, -7, -7, -7, -7, -7};
      EXPECT_EQ(cache->Read(sample, values, 2, nullptr), readable) << sample;
      EXPECT_EQ(values[2], readable ? 3 * sample + 2.0 : -7) << "untouched by a failure";
      EXPECT_EQ(values[3], readable ? 0 : -7) << "a point that the file does not have";
    }
    EXPECT_FALSE(cache.Fetch(-1));
  }

  // Growing and cut under use.
  WriteBytes(path_, MakePC2(2, 4, 24));
  PC2Object cache(path_);
  ASSERT_TRUE(cache->OpenFileForRead(nullptr) && !cache.Fetch(3));
  WriteBytes(path_, MakePC2(2, 4, 96));
  EXPECT_EQ(cache.Fetch(3), 18.0F);
  fs::resize_file(path_, 100);
  EXPECT_FALSE(cache.Fetch(3));
}

TEST_F(PC2, VerifyTellsEveryProblem) {
  const struct {
    const char* problems;
    Bytes file;
  } rows[] = {
      {"", MakePC2(2, 3, 72)},
      {"", MakePC2(300000000, 0, 0)},  // room for a sample is not asked for
      {"holds 2 whole samples of 3 claimed\n", MakePC2(2, 3, 71)},
      {"4 bytes after the last sample\n", MakePC2(2, 3, 76)},
      {"the start frame is no number\nthe sample rate gives the samples no frames\n",
       MakePC2(1, 1, 12, std::nanf(""), 0)},
      {"1 samples of 12 bytes claimed, 11 bytes left\n", MakePC2(1, 1, 11)},
      {"version 2, only 1 is known\n", MakePC2(2, 3, 72, 0, 1, 2)},
  };
  for (const auto& row : rows) {
    WriteBytes(path_, row.file);
    std::string lines;
    EXPECT_EQ(zuPointCache2IO::verify(path_.c_str(), AddLine, &lines), *row.problems == 0);
    EXPECT_EQ(lines, row.problems);
  }
}

TEST_F(PC2, PathsThatCannotBe) {
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);  // which must not hang, whoever opens it
  for (const std::string& bad : {std::string(), folder_.path() + "/", folder_.File("none/x.pc2"),
                                 folder_.File("shot.pc2/y.pc2"), path_}) {
    PC2Object refused(bad);
    EXPECT_FALSE(refused->OpenFileForRead(nullptr)) << bad;
    EXPECT_FALSE(refused->OpenFileForWrite(0, 24, 1, 1, nullptr)) << bad;
  }
}

TEST_F(PC2, WritesInAnyOrderAndReplacesAtTheEnd) {
  const std::string real = folder_.File("le tissu déplié 布.v2.pc2");
  WriteBytes(real, MakePC2(2, 1, 24));
  fs::permissions(real, fs::perms(0640));
  fs::create_symlink(real, path_);
  const Bytes older = ReadBytes(path_);
  PC2Object cache(path_);
  ASSERT_TRUE(cache->OpenFileForWrite(-5, 29.97, 4, 2, nullptr));
  for (const unsigned int sample : {3U, 0U, 2U, 0U, 4U, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_EQ(cache.WriteSample(sample), sample < 4) << sample;
  }
  EXPECT_EQ(ReadBytes(path_), older) << "untouched until the end";
  cache->CloseFile(nullptr);
  EXPECT_EQ(NamesIn(folder_.path()).size(), 2U);
  EXPECT_TRUE(fs::is_symlink(path_)) << "a link stays a link";
  EXPECT_EQ(fs::file_size(path_), 32 + 4 * 24U);
  EXPECT_EQ(fs::status(path_).permissions(), fs::perms(0640));
  EXPECT_EQ(FirstValue(path_, 1), 0.0F) << "never written: zero";
  EXPECT_EQ(FirstValue(path_, 3), 3.0F);
  ASSERT_TRUE(cache->OpenFileForRead(nullptr));
  EXPECT_EQ(cache->GetFrameStartOffset(nullptr), -5.0);
  EXPECT_EQ(cache->GetSamplingFrameRate(nullptr), 1.0) << "whatever rate it was written with";
}

TEST_F(PC2, RecoversTheSamplesBeforeTheFirstGap) {
  const struct {
    const char* why;
    std::vector<unsigned int> written;
    size_t cutTo;  // 0: as it is
    unsigned int saved;
  } cases[] = {
      {"nothing", {}, 0, 0},
      {"cut inside the third", {0, 1, 2}, 32 + 24 * 2 + 5, 2},
      {"a gap after two", {0, 1, 4, 3}, 0, 2},
      {"a sample written twice", {0, 1, 0}, 0, 2},
      {"backwards", {4, 3}, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    WriteAndDie(c.written);
    EXPECT_EQ(Exists(path_ + ".partial"), !c.written.empty());
    if (c.cutTo != 0) fs::resize_file(path_ + ".partial", c.cutTo);
    EXPECT_EQ(Leftovers(path_), c.saved != 0 ? 1U : 0U);
    EXPECT_EQ(Recover(path_), c.saved);
    EXPECT_EQ(Exists(path_), c.saved != 0);
    EXPECT_EQ(Recover(path_), 0U) << "only once";
    if (c.saved == 0) continue;
    EXPECT_EQ(fs::file_size(path_), 32 + 24 * c.saved);
    EXPECT_EQ(FirstValue(path_, c.saved - 1), float(c.saved - 1));
    fs::remove(path_);
  }
}

TEST_F(PC2, FollowingTellsTheSamplesBeforeTheFirstGap) {
  struct Seen {
    CacheProgress::EState state;
    unsigned long long samples, promised;
    double lastFrame;
    bool operator==(const Seen&) const = default;
  };
  struct Follower {
    zuPointCache2IO writer;
    std::vector<Seen> seen;

    static bool Look(void* context, const CacheProgress& progress) {
      auto& self = *static_cast<Follower*>(context);
      self.seen.push_back(
          {progress.state, progress.samples, progress.promised, progress.lastFrame});
      const int order[] = {0, 1, 4, 2};
      float points[6] = {};
      const size_t next = self.seen.size();
      if (next < std::size(order)) return self.writer.writeSample(order[next], points);
      return next != std::size(order) || self.writer.endWriteData();
    }
  } follower;
  float points[6] = {};
  ASSERT_TRUE(follower.writer.initialize(path_.c_str(), zuPointCache2IO::writeMode) &&
              follower.writer.beginWriteData(2, 5, -5, 0.5) &&
              follower.writer.writeSample(0, points));
  EXPECT_TRUE(zuPointCache2IO::follow(path_.c_str(), Follower::Look, nullptr, &follower));
  const std::vector<Seen> expected = {{CacheProgress::eAtWork, 1, 5, -5},
                                      {CacheProgress::eAtWork, 2, 5, -4.5},
                                      {CacheProgress::eAtWork, 2, 0, -4.5},
                                      {CacheProgress::eAtWork, 2, 0, -4.5},
                                      {CacheProgress::ePublished, 2, 0, -4.5}};
  EXPECT_EQ(follower.seen, expected);
}

// Permissions bind everybody but the superuser: look at them as another user.
TEST_F(PC2, AReadOnlyFileIsNotReplaced) {
  WriteBytes(path_, MakePC2(1, 1, 12));
  fs::permissions(folder_.path(), fs::perms(0777));
  fs::permissions(path_, fs::perms(0444));
  const pid_t child = ::fork();
  if (child == 0) {
    const bool bound = ::geteuid() != 0 || ::setuid(65534) == 0;
    ::_exit(bound && !PC2Object(path_)->OpenFileForWrite(0, 24, 1, 1, nullptr) ? 0 : 1);
  }
  int result = 0;
  ::waitpid(child, &result, 0);
  EXPECT_EQ(WEXITSTATUS(result), 0);
}

TEST_F(PC2, ASampleAllocatesNothingAndMakesAtMostOneSystemCall) {
  PC2Object cache(path_);
  double doubles[6] = {};
  const auto write = [&](unsigned int sample) { EXPECT_TRUE(cache.WriteSample(sample)); };
  const auto read = [&](unsigned int sample) {
    EXPECT_TRUE(cache.Fetch(sample) == float(sample) && cache->Read(sample, doubles, 2, nullptr));
  };
  ASSERT_TRUE(cache->OpenFileForWrite(0, 24, 100, 2, nullptr));
  write(0);
  ExpectCost(1U, 100U, 1, write);
  EXPECT_EQ(Leftovers(path_) + Recover(path_), 0U) << "its writer lives";
  cache->CloseFile(nullptr);
  ASSERT_TRUE(cache->OpenFileForRead(nullptr));
  for (const unsigned int sample : {0U, 1U, 2U}) read(sample);  // the window settles
  ExpectCost(0U, 100U, 2, read);
}

}  // namespace
}  // namespace kelsdk::test
