#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <limits>

#include "backends/zuPointCache2IO.h"
#include "tests/pc2/pc2_cache.h"

namespace kelsdk::test {
namespace {

class PC2 : public FileTest {
 protected:
  std::string path_ = folder_.File("shot.pc2");

  // Writes samples `from` to `to` - 1 of a cache of 2 points, values sample + 0.25 x position.
  static bool WriteSample(KelCache* cache, unsigned int sample) {
    double values[6];
    for (int i = 0; i < 6; ++i) values[i] = sample + 0.25 * i;
    return cache->Write(sample, values, nullptr);
  }
  static float FirstValue(const std::string& path, unsigned int sample) {
    PC2Object cache(path);
    double values[6] = {-1};
    return cache->OpenFileForRead(nullptr) && cache->Read(sample, values, 2, nullptr)
               ? static_cast<float>(values[0])
               : -1;
  }
};

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// Files that must be refused, and in which words.
TEST_F(PC2, RefusedFiles) {
  Bytes badSignature = MakePC2(1, 1, 12);
  badSignature[11] = ' ';  // the final zero byte counts
  const struct {
    const char* why;
    Bytes bytes;
    const char* words;
  } cases[] = {
      {"empty", {}, "not a PC2 file: 0 bytes, the header alone takes 32"},
      {"cut header", Bytes(31, 'P'), "not a PC2 file: 31 bytes, the header alone takes 32"},
      {"signature", badSignature, "not a PC2 file: bad signature"},
      {"sample x 12 wraps to 8", MakePC2(0x15555556, 1, 64),
       "a sample of 357913942 points does not fit 32 bits"},
      {"negative points", MakePC2(0x80000001, 1, 64),
       "a sample of 2147483649 points does not fit 32 bits"},
      {"negative samples", MakePC2(1, 0x80000000, 64),
       "2147483648 samples claimed, 2147483647 is the most"},
      {"no room for a sample", MakePC2(3, 2, 35), "2 samples of 36 bytes claimed, 35 bytes left"},
      {"more points than the file", MakePC2(0x10000000, 1, 64),
       "1 samples of 3221225472 bytes claimed, 64 bytes left"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    WriteBytes(path_, c.bytes);
    PC2Object cache(path_);
    KelStatus status;
    EXPECT_FALSE(cache->OpenFileForRead(&status));
    EXPECT_EQ(status.GetCode(), KelStatus::eSuccess);
    zuPointCache2IO file;
    EXPECT_FALSE(file.initialize(path_.c_str(), zuPointCache2IO::readMode));
    EXPECT_STREQ(file.errorString(), c.words);
  }
  WriteBytes(path_, MakePC2(1, 1, 12, 0, 1, 2));
  PC2Object cache(path_);
  KelStatus status;
  EXPECT_FALSE(cache->OpenFileForRead(&status));
  EXPECT_STREQ(status.GetErrorString(), "Unsupported file version");
}

TEST_F(PC2, OddButSoundFiles) {
  const struct {
    const char* why;
    Bytes bytes;
    unsigned int readable;  // samples
  } cases[] = {
      {"no samples", MakePC2(5, 0, 0), 0},
      {"bytes after the last sample", MakePC2(1, 2, 30), 2},
      {"odd start and rate", MakePC2(1, 1, 12, kNaN, -INFINITY), 1},
      {"cut inside the third sample", MakePC2(1, 4, 35), 2},
      {"far more claimed than held", MakePC2(1, 0x7FFFFFFF, 24), 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    WriteBytes(path_, c.bytes);
    PC2Object cache(path_);
    KelStatus status;
    ASSERT_TRUE(cache->OpenFileForRead(&status));
    double values[3] = {-7, -7, -7};
    for (unsigned int sample = 0; sample < c.readable; ++sample) {
      EXPECT_TRUE(cache->Read(sample, values, 1, &status));
      EXPECT_EQ(values[2], 3 * sample + 2.0);
    }
    for (const unsigned int sample : {c.readable, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
      EXPECT_FALSE(cache->Read(sample, values, 1, &status));
      EXPECT_STREQ(status.GetErrorString(), "Error reading sample data");
    }
    float* fetched = nullptr;
    unsigned int length = 0;
    EXPECT_FALSE(cache->Read(&fetched, length, FrameTime(-1), 0));
  }
  WriteBytes(path_, MakePC2(0, 3, 0));
  PC2Object empty(path_);
  float* fetched = nullptr;
  unsigned int length = 1;
  ASSERT_TRUE(empty->OpenFileForRead(nullptr));
  EXPECT_EQ(empty->GetPointCount(nullptr), 0U);
  EXPECT_FALSE(empty->Read(&fetched, length, FrameTime(0), 0)) << "zero points: nothing to fetch";
}

TEST_F(PC2, ReadsFewerOrMorePointsThanTheFileHas) {
  WriteBytes(path_, MakePC2(2, 2, 48));
  PC2Object cache(path_);
  ASSERT_TRUE(cache->OpenFileForRead(nullptr));
  double values[12];
  std::fill(values, values + 12, -7.0);
  EXPECT_TRUE(cache->Read(1, values, 4, nullptr));
  EXPECT_EQ(values[5], 11.0);
  EXPECT_EQ(values[6], 0.0);
  EXPECT_EQ(values[11], 0.0);
  values[3] = -7;
  EXPECT_TRUE(cache->Read(0, values, 1, nullptr));
  EXPECT_EQ(values[2], 2.0);
  EXPECT_EQ(values[3], -7.0);
}

TEST_F(PC2, AFileCutUnderUsFailsAndAGrowingOneIsSeen) {
  WriteBytes(path_, MakePC2(1, 4, 12));
  PC2Object cache(path_);
  ASSERT_TRUE(cache->OpenFileForRead(nullptr));
  float* values = nullptr;
  unsigned int length = 0;
  EXPECT_FALSE(cache->Read(&values, length, FrameTime(3), 0));
  const Bytes grown = MakePC2(1, 4, 48);
  const int file = ::open(path_.c_str(), O_WRONLY);
  ASSERT_EQ(::pwrite(file, grown.data(), grown.size(), 0), ssize_t(grown.size()));
  ::close(file);
  EXPECT_TRUE(cache->Read(&values, length, FrameTime(3), 0));
  EXPECT_EQ(values[0], 9.0F);
  ASSERT_EQ(::truncate(path_.c_str(), 50), 0);
  EXPECT_FALSE(cache->Read(&values, length, FrameTime(3), 0));
  EXPECT_TRUE(cache->Read(&values, length, FrameTime(0), 0));
}

TEST_F(PC2, NamesOfAllKinds) {
  const std::string name = folder_.File("le tissu déplié 布.v2.pc2");
  {
    PC2Object cache(name);
    ASSERT_TRUE(cache->OpenFileForWrite(10.25, 29.97, 1, 2, nullptr));
    EXPECT_TRUE(WriteSample(cache.cache, 0));
    cache->CloseFile(nullptr);
  }
  PC2Object cache(name);
  ASSERT_TRUE(cache->OpenFileForRead(nullptr));
  EXPECT_EQ(cache->GetFrameStartOffset(nullptr), 10.25);
  EXPECT_EQ(cache->GetSamplingFrameRate(nullptr), 1.0)
      << "whatever rate the writer was opened with";
  KelStatus status;
  for (const std::string& bad : {std::string(""), folder_.path(), folder_.path() + "/",
                                 folder_.File("none/x.pc2"), folder_.File("x.pc2/y.pc2")}) {
    PC2Object refused(bad);
    EXPECT_FALSE(refused->OpenFileForRead(&status)) << bad;
    EXPECT_EQ(status.GetCode(), KelStatus::eFailure) << bad;
    if (bad == folder_.path() || bad.ends_with("x.pc2")) continue;
    EXPECT_FALSE(refused->OpenFileForWrite(0, 24, 1, 1, &status)) << bad;
  }
  // A pipe must not hang, whoever opens it.
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  PC2Object pipe(path_);
  EXPECT_FALSE(pipe->OpenFileForRead(&status));
  EXPECT_FALSE(pipe->OpenFileForWrite(0, 24, 1, 1, &status));
}

TEST_F(PC2, WritesInAnyOrderAndReplacesAtTheEnd) {
  WriteBytes(path_, MakePC2(2, 1, 24));
  ::chmod(path_.c_str(), 0640);
  const Bytes older = ReadBytes(path_);
  PC2Object cache(path_);
  ASSERT_TRUE(cache->OpenFileForWrite(-5, 24, 4, 2, nullptr));
  for (const unsigned int sample : {3U, 0U, 2U, 0U}) EXPECT_TRUE(WriteSample(cache.cache, sample));
  for (const unsigned int sample : {4U, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_FALSE(WriteSample(cache.cache, sample));
  }
  EXPECT_EQ(ReadBytes(path_), older) << "untouched until the end";
  EXPECT_FALSE(Exists(path_ + ".partial2"));
  cache->CloseFile(nullptr);
  EXPECT_EQ(NamesIn(folder_.path()), std::vector<std::string>{"shot.pc2"});
  struct stat entry = {};
  ASSERT_EQ(::stat(path_.c_str(), &entry), 0);
  EXPECT_EQ(entry.st_size, 32 + 4 * 24);
  EXPECT_EQ(entry.st_mode & 0777, 0640U);
  EXPECT_EQ(FirstValue(path_, 0), 0.0F);
  EXPECT_EQ(FirstValue(path_, 1), 0.0F) << "never written: zero";
  EXPECT_EQ(FirstValue(path_, 3), 3.0F);
}

TEST_F(PC2, ALinkStaysALink) {
  const std::string real = folder_.File("real.pc2");
  ASSERT_EQ(::symlink("real.pc2", path_.c_str()), 0);  // to a file that is not there yet
  for (int round = 0; round < 2; ++round) {
    PC2Object cache(path_);
    ASSERT_TRUE(cache->OpenFileForWrite(0, 24, 1, 2, nullptr));
    EXPECT_TRUE(WriteSample(cache.cache, 0));
    cache->CloseFile(nullptr);
    struct stat entry = {};
    ASSERT_EQ(::lstat(path_.c_str(), &entry), 0);
    EXPECT_TRUE(S_ISLNK(entry.st_mode));
    EXPECT_TRUE(Exists(real));
  }
}

TEST_F(PC2, WritersOfOneTargetDoNotMeet) {
  PC2Object first(path_);
  PC2Object second(path_);
  ASSERT_TRUE(first->OpenFileForWrite(0, 24, 1, 2, nullptr));
  ASSERT_TRUE(second->OpenFileForWrite(0, 24, 2, 2, nullptr));
  EXPECT_TRUE(WriteSample(first.cache, 0));
  EXPECT_TRUE(WriteSample(second.cache, 1));
  unsigned int saved = 0;
  EXPECT_FALSE(zuPointCache2IO::recover(path_.c_str(), saved, nullptr, nullptr)) << "both live";
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
      for (const unsigned int sample : c.written) WriteSample(cache.cache, sample);
    }  // destroyed without CloseFile
    EXPECT_EQ(ReadBytes(path), older);
    if (c.cutTo != 0) {
      ASSERT_EQ(::truncate((path + ".partial").c_str(), off_t(c.cutTo)), 0);
    }
    unsigned int saved = 0;
    EXPECT_EQ(zuPointCache2IO::recover(path.c_str(), saved, nullptr, nullptr), c.saved != 0);
    EXPECT_EQ(saved, c.saved);
    if (c.saved == 0) {
      EXPECT_EQ(ReadBytes(path), older);
      continue;
    }
    EXPECT_EQ(ReadBytes(path + ".before-recover"), older);
    EXPECT_EQ(ReadBytes(path).size(), 32 + 24 * c.saved);
    EXPECT_EQ(FirstValue(path, c.saved - 1), float(c.saved - 1));
    EXPECT_FALSE(zuPointCache2IO::recover(path.c_str(), saved, nullptr, nullptr)) << "only once";
  }
}

TEST_F(PC2, NothingIsLeftOfAWriterWithoutSamples) {
  {
    PC2Object cache(path_);
    ASSERT_TRUE(cache->OpenFileForWrite(0, 24, 5, 2, nullptr));
    EXPECT_EQ(NamesIn(folder_.path()).size(), 1U);
  }
  EXPECT_TRUE(NamesIn(folder_.path()).empty());
}

// Permissions bind everybody but the superuser: look at them as another user.
TEST_F(PC2, PermissionsAreKept) {
  WriteBytes(path_, MakePC2(1, 1, 12));
  ::chmod(folder_.path().c_str(), 0777);
  ::chmod(path_.c_str(), 0444);
  const std::string hidden = folder_.File("hidden.pc2");
  WriteBytes(hidden, MakePC2(1, 1, 12));
  ::chmod(hidden.c_str(), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::geteuid() == 0 && ::setuid(65534) != 0) ::_exit(3);
    PC2Object readOnly(path_);
    KelStatus status;
    if (readOnly->OpenFileForWrite(0, 24, 1, 1, &status)) ::_exit(1);
    PC2Object unreadable(hidden);
    if (unreadable->OpenFileForRead(&status) || status.Error()) ::_exit(2);
    ::_exit(0);
  }
  int result = 0;
  ::waitpid(child, &result, 0);
  EXPECT_EQ(WEXITSTATUS(result), 0);
  ::chmod(hidden.c_str(), 0600);
}

}  // namespace
}  // namespace kelsdk::test
