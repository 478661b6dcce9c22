#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <optional>

#include "backends/io/endian.h"
#include "backends/zuPointCache2IO.h"
#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

namespace fs = std::filesystem;

// A PC2 file's bytes: a header of these fields and `dataBytes` after it, the floats 0, 1, 2, ...
Bytes MakePC2(std::uint32_t points, std::uint32_t samples, size_t dataBytes, float start = 0,
              float rate = 1) {
  Bytes bytes(32 + dataBytes);
  const char signature[] = "POINTCACHE2";
  std::copy(signature, signature + 12, bytes.begin());
  io::StoreLittle(&bytes[12], 1);
  io::StoreLittle(&bytes[16], points);
  io::StoreLittle(&bytes[20], start);
  io::StoreLittle(&bytes[24], rate);
  io::StoreLittle(&bytes[28], samples);
  for (size_t i = 0; i + 4 <= dataBytes; i += 4) {
    io::StoreLittle(&bytes[32 + i], static_cast<float>(i / 4));
  }
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
  static bool Recover(const std::string& path, unsigned int& saved, bool force = false) {
    zuPointCache2IO::recoverOptions options;
    options.force = force;
    return zuPointCache2IO::recover(path.c_str(), options, saved, nullptr, nullptr);
  }
  static unsigned int Leftovers(const std::string& path) {
    return zuPointCache2IO::leftovers(path.c_str(), nullptr, nullptr);
  }
  // Samples of two points that are never published.
  static void WriteAndDie(const std::string& path, const std::vector<unsigned int>& samples) {
    PC2Object cache(path);
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
  ASSERT_TRUE(cache->OpenFileForRead(nullptr));
  EXPECT_FALSE(cache.Fetch(3));
  WriteBytes(path_, MakePC2(2, 4, 96));
  EXPECT_EQ(cache.Fetch(3), 18.0F);
  fs::resize_file(path_, 100);
  EXPECT_FALSE(cache.Fetch(3));
}

TEST_F(PC2, VerifyTellsEveryProblem) {
  constexpr float kNone = std::numeric_limits<float>::quiet_NaN();
  const struct {
    const char* problems;
    Bytes file;
  } rows[] = {
      {"", MakePC2(2, 3, 72)},
      {"", MakePC2(0, 5, 0)},
      {"", MakePC2(300000000, 0, 0)},  // room for a sample is not asked for
      {"holds 2 whole samples of 3 claimed\n", MakePC2(2, 3, 71)},
      {"4 bytes after the last sample\n", MakePC2(2, 3, 76)},
      {"the start frame is no number\nthe sample rate gives the samples no frames\n",
       MakePC2(1, 1, 12, kNone, 0)},
      {"1 samples of 12 bytes claimed, 11 bytes left\n", MakePC2(1, 1, 11)},
      {"version 2, only 1 is known\n",
       [] {
         Bytes file = MakePC2(2, 3, 72);
         file[12] = 2;
         return file;
       }()},
  };
  const auto note = [](void* lines, const char* line) {
    static_cast<std::string*>(lines)->append(line).append("\n");
  };
  const std::string path = folder_.File("a.pc2");
  for (const auto& row : rows) {
    WriteBytes(path, row.file);
    std::string lines;
    const bool sound = zuPointCache2IO::verify(path.c_str(), note, &lines);
    EXPECT_EQ(lines, row.problems);
    EXPECT_EQ(sound, lines.empty());
  }
  zuPointCache2IO reader;
  WriteBytes(path, MakePC2(2, 3, 24));
  ASSERT_TRUE(reader.initialize(path.c_str(), zuPointCache2IO::readMode));
  EXPECT_EQ(reader.promisedSize(), 32U + 72);
}

TEST_F(PC2, PathsThatCannotBe) {
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);  // which must not hang, whoever opens it
  KelStatus status;
  for (const std::string& bad : {std::string(), folder_.path() + "/", folder_.File("none/x.pc2"),
                                 folder_.File("shot.pc2/y.pc2"), path_}) {
    PC2Object refused(bad);
    EXPECT_FALSE(refused->OpenFileForRead(&status)) << bad;
    EXPECT_FALSE(refused->OpenFileForWrite(0, 24, 1, 1, &status)) << bad;
    EXPECT_EQ(status.GetCode(), KelStatus::eFailure) << bad;
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
  for (const unsigned int sample : {3U, 0U, 2U, 0U}) EXPECT_TRUE(cache.WriteSample(sample));
  for (const unsigned int sample : {4U, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_FALSE(cache.WriteSample(sample));
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

TEST_F(PC2, WritersOfOneTargetDoNotMeet) {
  PC2Object first(path_);
  PC2Object second(path_);
  ASSERT_TRUE(first->OpenFileForWrite(0, 24, 1, 2, nullptr));
  ASSERT_TRUE(second->OpenFileForWrite(0, 24, 2, 2, nullptr));
  EXPECT_TRUE(first.WriteSample(0));
  EXPECT_TRUE(second.WriteSample(1));
  unsigned int saved = 0;
  EXPECT_FALSE(Recover(path_, saved)) << "both live";
  EXPECT_EQ(Leftovers(path_), 0U);
  first->CloseFile(nullptr);
  EXPECT_EQ(FirstValue(path_, 0), 0.0F);
  second->CloseFile(nullptr);
  EXPECT_EQ(FirstValue(path_, 1), 1.0F);
}

TEST_F(PC2, RecoversWhatADeadWriterLeft) {
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
    const ScratchFolder folder;
    const std::string path = folder.File("sim.pc2");
    const std::string beside = folder.File("sim.recovered.pc2");
    WriteBytes(path, MakePC2(1, 1, 12));
    const Bytes older = ReadBytes(path);
    WriteAndDie(path, c.written);
    EXPECT_EQ(Exists(path + ".partial"), !c.written.empty());
    if (c.cutTo != 0) fs::resize_file(path + ".partial", c.cutTo);
    EXPECT_EQ(Leftovers(path), c.saved != 0 ? 1U : 0U);
    unsigned int saved = 0;
    EXPECT_EQ(Recover(path, saved), c.saved != 0);
    EXPECT_EQ(saved, c.saved);
    EXPECT_EQ(ReadBytes(path), older) << "a whole file stays";
    EXPECT_EQ(Exists(beside), c.saved != 0);
    if (c.saved == 0) continue;
    EXPECT_EQ(ReadBytes(beside).size(), 32 + 24 * c.saved);
    EXPECT_EQ(FirstValue(beside, c.saved - 1), float(c.saved - 1));
    EXPECT_FALSE(Recover(path, saved)) << "only once";
  }
}

TEST_F(PC2, RecoveryLosesNothingThatStands) {
  const struct {
    const char* why;
    Bytes standing;  // empty: nothing
    bool force;
    const char* savedAs;
    const char* keptAs;
  } cases[] = {
      {"nothing", {}, false, "sim.pc2", nullptr},
      {"nothing, by force", {}, true, "sim.pc2", nullptr},
      {"whole", MakePC2(1, 2, 24), false, "sim.recovered2.pc2", "sim.pc2"},
      {"whole, by force", MakePC2(1, 2, 24), true, "sim.pc2", "sim.before-recover2.pc2"},
      {"cut short", MakePC2(1, 2, 23), false, "sim.pc2", "sim.before-recover2.pc2"},
      {"of another kind", Bytes(100, 'x'), false, "sim.pc2", "sim.before-recover2.pc2"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const ScratchFolder folder;
    const Bytes taken = {'t'};
    for (const char* name : {"sim.recovered.pc2", "sim.before-recover.pc2"}) {
      WriteBytes(folder.File(name), taken);
    }
    const std::string path = folder.File("sim.pc2");
    if (!c.standing.empty()) WriteBytes(path, c.standing);
    WriteAndDie(path, {0, 1, 2});
    unsigned int saved = 0;
    EXPECT_TRUE(Recover(path, saved, c.force));
    EXPECT_EQ(FirstValue(folder.File(c.savedAs), 2), 2.0F);
    if (c.keptAs != nullptr) {
      EXPECT_EQ(ReadBytes(folder.File(c.keptAs)), c.standing);
    }
    EXPECT_EQ(NamesIn(folder.path()).size(), c.keptAs != nullptr ? 4U : 3U);
    EXPECT_EQ(ReadBytes(folder.File("sim.recovered.pc2")), taken);
    EXPECT_EQ(ReadBytes(folder.File("sim.before-recover.pc2")), taken);
  }
}

TEST_F(PC2, OlderAttemptsAreNotPutOverNewerFiles) {
  for (const std::vector<unsigned int>& samples : {std::vector<unsigned int>{0, 1, 2}, {0}}) {
    WriteAndDie(path_, samples);
    ::usleep(20000);  // the system's file times are that coarse
  }
  EXPECT_EQ(Leftovers(path_), 2U);
  unsigned int saved = 0;
  EXPECT_TRUE(Recover(path_, saved));
  EXPECT_EQ(saved, 1U) << "the newest first";
  EXPECT_FALSE(Recover(path_, saved, true)) << "older than what stands there now";
  EXPECT_EQ(Leftovers(path_), 1U);
  EXPECT_TRUE(Recover(path_, saved));
  EXPECT_EQ(FirstValue(folder_.File("shot.recovered.pc2"), 2), 2.0F);
  EXPECT_EQ(fs::file_size(path_), 32 + 24U);
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
  unsigned long allocations = 0;
  unsigned long calls = 0;
  for (const bool write : {true, false}) {
    ASSERT_TRUE(write ? cache->OpenFileForWrite(0, 24, 100, 2, nullptr)
                      : cache->OpenFileForRead(nullptr));
    for (unsigned int sample = 0; sample < 100; ++sample) {
      EXPECT_TRUE(write ? cache.WriteSample(sample)
                        : cache.Fetch(sample) == float(sample) &&
                              cache->Read(sample, doubles, 2, nullptr));
      if (sample == 0) {
        allocations = AllocationCount();
        calls = SystemCallCount();
      }
    }
    EXPECT_EQ(AllocationCount(), allocations);
    EXPECT_LE(SystemCallCount(), calls + (write ? 99 : 2 * 99));
    cache->CloseFile(nullptr);
  }
}

}  // namespace
}  // namespace kelsdk::test
