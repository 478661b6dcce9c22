#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>

#include "backends/io/endian.h"
#include "backends/zuPointCache2IO.h"
#include "cache/KelCache.h"
#include "tests/support/fixture.h"

namespace kelsdk::test {
namespace {

namespace fs = std::filesystem;

// A PC2 file's bytes: a header of these fields and `dataBytes` after it, the floats 0, 1, 2, ...
Bytes MakePC2(std::uint32_t points, std::uint32_t samples, size_t dataBytes, float start = 0,
              float rate = 1, std::int32_t version = 1) {
  Bytes bytes(32 + dataBytes);
  const char signature[] = "POINTCACHE2";
  std::copy(signature, signature + 12, bytes.begin());
  io::StoreLittle(&bytes[12], version);
  io::StoreLittle(&bytes[16], points);
  io::StoreLittle(&bytes[20], start);
  io::StoreLittle(&bytes[24], rate);
  io::StoreLittle(&bytes[28], samples);
  for (size_t i = 0; i + 4 <= dataBytes; i += 4) {
    io::StoreLittle(&bytes[32 + i], static_cast<float>(i / 4));
  }
  return bytes;
}

// A manager with one cache object of format PC2.
class PC2Object {
 public:
  explicit PC2Object(const std::string& path) : manager_(KelManager::Create()) {
    cache_ = KelCache::Create(manager_, "cache");
    cache_->SetCacheFileFormat(KelCache::ePC2Format, nullptr);
    cache_->SetCacheFileName("", path.c_str(), nullptr);
  }
  ~PC2Object() { manager_->Destroy(); }
  PC2Object(const PC2Object&) = delete;
  PC2Object& operator=(const PC2Object&) = delete;
  KelCache* operator->() { return cache_; }

  // Samples of 2 points, values sample + 0.25 x position.
  bool WriteSample(unsigned int sample) {
    double values[6];
    for (int i = 0; i < 6; ++i) values[i] = sample + 0.25 * i;
    return cache_->Write(sample, values, nullptr);
  }
  // The first value of a frame's sample.
  std::optional<float> Fetch(long long frame) {
    float* values = nullptr;
    unsigned int length = 0;
    if (!cache_->Read(&values, length, KelTime::FromFrame(frame), 0)) return std::nullopt;
    return values[0];
  }

 private:
  KelManager* manager_;
  KelCache* cache_;
};

class PC2 : public FileTest {
 protected:
  static std::optional<float> FirstValue(const std::string& path, unsigned int sample) {
    PC2Object cache(path);
    return cache->OpenFileForRead(nullptr) ? cache.Fetch(sample) : std::nullopt;
  }
  static bool Recover(const std::string& path, unsigned int& saved) {
    return zuPointCache2IO::recover(path.c_str(), saved, nullptr, nullptr);
  }

  const std::string path_ = folder_.File("shot.pc2");
};

// Files of another program, compared with what a separate parse of them found, bit for bit.
TEST_F(PC2, RealFilesAgreeInEveryValue) {
  using nlohmann::json;
  using Point = std::array<double, 3>;
  int files = 0;
  for (const auto& entry : fs::directory_iterator(TestData("pc2"))) {
    std::string name = entry.path().string();
    if (!name.ends_with(".expected.json")) continue;
    SCOPED_TRACE(name);
    ++files;
    const json expected = json::parse(std::ifstream(name));
    PC2Object cache(name.replace(name.rfind(".expected.json"), std::string::npos, ".pc2"));
    KelStatus status;
    ASSERT_TRUE(cache->OpenFileForRead(&status)) << status.GetErrorString();
    const unsigned int points = expected["points"];
    const unsigned int samples = expected["samples"];
    EXPECT_EQ(cache->GetPointCount(&status), 3 * points);
    EXPECT_EQ(cache->GetSampleCount(&status), samples);
    EXPECT_EQ(cache->GetFrameStartOffset(&status), expected["start"].get<double>());
    EXPECT_EQ(cache->GetSamplingFrameRate(&status), expected["rate"].get<double>());

    Point total{};
    std::vector<Point> read(points);
    for (unsigned int sample = 0; sample < samples; ++sample) {
      float* fetched = nullptr;
      unsigned int length = 0;
      ASSERT_TRUE(cache->Read(&fetched, length, KelTime::FromFrame(sample), 0));
      ASSERT_TRUE(cache->Read(sample, read[0].data(), points, &status));
      ASSERT_EQ(length, 3 * points);
      EXPECT_TRUE(std::equal(fetched, fetched + length, read[0].data()));
      for (const Point& point : read) {
        for (size_t axis = 0; axis < 3; ++axis) total[axis] += point[axis];
      }
      for (const json& check : expected["checks"]) {
        if (check["sample"] != sample) continue;
        const auto first = check["first"].get<std::vector<Point>>();
        const auto last = check["last"].get<std::vector<Point>>();
        EXPECT_TRUE(std::equal(first.begin(), first.end(), read.begin())) << sample;
        EXPECT_TRUE(std::equal(last.rbegin(), last.rend(), read.rbegin())) << sample;
      }
    }
    EXPECT_EQ(total, expected["total_sum"].get<Point>());
  }
  EXPECT_GT(files, 0);
}

TEST_F(PC2, RefusedFiles) {
  Bytes badSignature = MakePC2(1, 1, 12);
  badSignature[11] = ' ';  // the final zero byte counts
  const struct {
    Bytes bytes;
    const char* words;
  } cases[] = {
      {{}, "not a PC2 file: 0 bytes, the header alone takes 32"},
      {Bytes(31, 'P'), "not a PC2 file: 31 bytes, the header alone takes 32"},
      {badSignature, "not a PC2 file: bad signature"},
      // x 12 wraps to 8 in 32 bits
      {MakePC2(0x15555556, 1, 64), "a sample of 357913942 points does not fit 32 bits"},
      {MakePC2(0x80000001, 1, 64), "a sample of 2147483649 points does not fit 32 bits"},
      {MakePC2(1, 0x80000000, 64), "2147483648 samples claimed, 2147483647 is the most"},
      {MakePC2(3, 2, 35), "2 samples of 36 bytes claimed, 35 bytes left"},
      {MakePC2(0x10000000, 1, 64), "1 samples of 3221225472 bytes claimed, 64 bytes left"},
  };
  KelStatus status;
  for (const auto& c : cases) {
    WriteBytes(path_, c.bytes);
    EXPECT_FALSE(PC2Object(path_)->OpenFileForRead(&status)) << c.words;
    EXPECT_EQ(status.GetCode(), KelStatus::eSuccess) << c.words;
    zuPointCache2IO file;
    EXPECT_FALSE(file.initialize(path_.c_str(), zuPointCache2IO::readMode));
    EXPECT_STREQ(file.errorString(), c.words);
  }
  WriteBytes(path_, MakePC2(1, 1, 12, 0, 1, 2));
  EXPECT_FALSE(PC2Object(path_)->OpenFileForRead(&status));
  EXPECT_STREQ(status.GetErrorString(), "Unsupported file version");
}

TEST_F(PC2, OddButSoundFiles) {
  const struct {
    const char* why;
    Bytes bytes;
    unsigned int readable;  // samples
  } cases[] = {
      {"no samples", MakePC2(1, 0, 0), 0},
      {"bytes after the last sample", MakePC2(1, 2, 30), 2},
      {"odd start and rate", MakePC2(1, 1, 12, std::nanf(""), -INFINITY), 1},
      {"cut inside the third sample", MakePC2(1, 4, 35), 2},
      {"far more claimed than held", MakePC2(1, 0x7FFFFFFF, 24), 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    WriteBytes(path_, c.bytes);
    PC2Object cache(path_);
    KelStatus status;
    ASSERT_TRUE(cache->OpenFileForRead(&status));
    for (unsigned int sample = 0; sample < c.readable; ++sample) {
      double values[6] = {-7, -7, -7, -7, -7, -7};
      EXPECT_TRUE(cache->Read(sample, values, 2, &status));
      EXPECT_EQ(values[2], 3 * sample + 2.0);
      EXPECT_EQ(values[3], 0.0) << "a point that the file does not have";
    }
    for (const unsigned int sample : {c.readable, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
      double values[3] = {-7, -7, -7};
      EXPECT_FALSE(cache->Read(sample, values, 1, &status));
      EXPECT_STREQ(status.GetErrorString(), "Error reading sample data");
      EXPECT_EQ(values[0], -7.0);
    }
    EXPECT_FALSE(cache.Fetch(-1));
  }
  WriteBytes(path_, MakePC2(0, 3, 0));
  EXPECT_FALSE(FirstValue(path_, 0)) << "no points: nothing to fetch";

  // Growing and cut under use, and fewer points asked for than there are.
  WriteBytes(path_, MakePC2(2, 4, 24));
  PC2Object cache(path_);
  ASSERT_TRUE(cache->OpenFileForRead(nullptr));
  EXPECT_FALSE(cache.Fetch(3));
  WriteBytes(path_, MakePC2(2, 4, 96));
  EXPECT_EQ(cache.Fetch(3), 18.0F);
  fs::resize_file(path_, 100);
  EXPECT_FALSE(cache.Fetch(3));
  double values[4] = {-7, -7, -7, -7};
  EXPECT_TRUE(cache->Read(0, values, 1, nullptr));
  EXPECT_EQ(values[2], 2.0);
  EXPECT_EQ(values[3], -7.0);
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
  ASSERT_EQ(::chmod(real.c_str(), 0640), 0);
  ASSERT_EQ(::symlink(real.c_str(), path_.c_str()), 0);
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
  struct stat entry = {};
  ASSERT_EQ(::lstat(path_.c_str(), &entry), 0);
  EXPECT_TRUE(S_ISLNK(entry.st_mode)) << "a link stays a link";
  ASSERT_EQ(::stat(path_.c_str(), &entry), 0);
  EXPECT_EQ(entry.st_size, 32 + 4 * 24);
  EXPECT_EQ(entry.st_mode & 0777, 0640U);
  EXPECT_EQ(FirstValue(path_, 0), 0.0F);
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
      {"in order", {0, 1, 2}, 0, 3},
      {"cut inside the third", {0, 1, 2}, 32 + 24 * 2 + 5, 2},
      {"a gap after two", {0, 1, 4, 3}, 0, 2},
      {"a sample written twice", {0, 1, 0}, 0, 2},
      {"all of them", {0, 1, 2, 3, 4}, 0, 5},
      {"backwards", {4, 3}, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const ScratchFolder folder;
    const std::string path = folder.File("sim.pc2");
    WriteBytes(path, MakePC2(1, 1, 12));
    const Bytes older = ReadBytes(path);
    {
      PC2Object cache(path);
      ASSERT_TRUE(cache->OpenFileForWrite(7, 24, 5, 2, nullptr));
      for (const unsigned int sample : c.written) cache.WriteSample(sample);
    }  // destroyed without CloseFile
    EXPECT_EQ(ReadBytes(path), older);
    EXPECT_EQ(Exists(path + ".partial"), !c.written.empty());
    if (c.cutTo != 0) fs::resize_file(path + ".partial", c.cutTo);
    unsigned int saved = 0;
    EXPECT_EQ(Recover(path, saved), c.saved != 0);
    EXPECT_EQ(saved, c.saved);
    EXPECT_EQ(ReadBytes(c.saved != 0 ? path + ".before-recover" : path), older);
    if (c.saved == 0) continue;
    EXPECT_EQ(ReadBytes(path).size(), 32 + 24 * c.saved);
    EXPECT_EQ(FirstValue(path, c.saved - 1), float(c.saved - 1));
    EXPECT_FALSE(Recover(path, saved)) << "only once";
  }
}

// Permissions bind everybody but the superuser: look at them as another user.
TEST_F(PC2, PermissionsAreKept) {
  const std::string hidden = folder_.File("hidden.pc2");
  WriteBytes(path_, MakePC2(1, 1, 12));
  WriteBytes(hidden, MakePC2(1, 1, 12));
  ::chmod(folder_.path().c_str(), 0777);
  ::chmod(path_.c_str(), 0444);
  ::chmod(hidden.c_str(), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::geteuid() == 0 && ::setuid(65534) != 0) ::_exit(3);
    KelStatus status;
    if (PC2Object(path_)->OpenFileForWrite(0, 24, 1, 1, &status)) ::_exit(1);
    if (PC2Object(hidden)->OpenFileForRead(&status) || status.Error()) ::_exit(2);
    ::_exit(0);
  }
  int result = 0;
  ::waitpid(child, &result, 0);
  EXPECT_EQ(WEXITSTATUS(result), 0);
}

TEST_F(PC2, ASampleAllocatesNothingAndMakesOneSystemCall) {
  PC2Object cache(path_);
  double doubles[6] = {};
  const auto expectCost = [](unsigned int callsEach, auto&& body) {
    body(0);
    const unsigned long allocations = AllocationCount();
    const unsigned long calls = SystemCallCount();
    for (unsigned int sample = 0; sample < 100; ++sample) EXPECT_TRUE(body(sample));
    EXPECT_EQ(AllocationCount(), allocations);
    EXPECT_EQ(SystemCallCount(), calls + 100 * callsEach);
  };
  ASSERT_TRUE(cache->OpenFileForWrite(0, 24, 100, 2, nullptr));
  expectCost(1, [&](unsigned int sample) { return cache.WriteSample(sample); });
  cache->CloseFile(nullptr);
  ASSERT_TRUE(cache->OpenFileForRead(nullptr));
  expectCost(2, [&](unsigned int sample) {
    return cache.Fetch(sample) == float(sample) && cache->Read(sample, doubles, 2, nullptr);
  });
  cache->CloseFile(nullptr);
}

}  // namespace
}  // namespace kelsdk::test
