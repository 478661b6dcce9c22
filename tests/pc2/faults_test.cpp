// Memory and the disk made to fail at every point, and what a fetch costs when nothing fails.
#include <cerrno>

#include "backends/zuPointCache2IO.h"
#include "tests/pc2/pc2_cache.h"

namespace kelsdk::test {
namespace {

class PC2Faults : public FileTest {
 protected:
  void SetUp() override { WriteBytes(path_, MakePC2(2, 3, 72)); }

  // Opens, reads in both ways, closes. Whatever fails, what is delivered is right.
  void ReadAll() {
    PC2Object cache(path_);
    if (cache.cache == nullptr) return;
    KelStatus status;
    double doubles[6] = {-1};
    float* floats = nullptr;
    unsigned int length = 0;
    if (cache->OpenFileForRead(&status)) {
      if (cache->Read(2, doubles, 2, &status)) {
        EXPECT_EQ(doubles[5], 17.0);
      } else {
        EXPECT_EQ(doubles[0], -1.0);
        EXPECT_EQ(status.GetCode(), KelStatus::eFailure);
      }
      if (cache->Read(&floats, length, FrameTime(1), 0)) {
        EXPECT_EQ(floats[0], 6.0F);
      } else {
        EXPECT_EQ(floats, nullptr);
      }
    }
    EXPECT_TRUE(cache->CloseFile(&status));
    EXPECT_FALSE(cache->IsOpen(nullptr));
  }

  // Writes over the file that is there. Afterwards it is the old one whole or the new one whole.
  void WriteOver(const Bytes& older) {
    {
      PC2Object cache(path_);
      double values[6] = {9, 9, 9, 9, 9, 9};
      if (cache->OpenFileForWrite(5, 24, 2, 2, nullptr)) {
        cache->Write(0U, values, nullptr);
        cache->Write(1U, values, nullptr);
      }
      cache->CloseFile(nullptr);
    }
    const Bytes now = ReadBytes(path_);
    if (now != older) {
      ASSERT_EQ(now.size(), 32U + 48U);
      EXPECT_EQ(io::LoadLittle<float>(&now[76]), 9.0F);
      WriteBytes(path_, older);
    }
    for (const std::string& name : NamesIn(folder_.path())) {
      if (name != "shot.pc2") ::remove(folder_.File(name).c_str());
    }
  }

  std::string path_ = folder_.File("shot.pc2");
};

TEST_F(PC2Faults, EveryAllocation) {
  for (const bool write : {false, true}) {
    unsigned long failed = 0;
    for (unsigned long n = 1;; ++n) {
      PC2Object cache(path_);
      KelStatus status;
      double values[6] = {9};
      float* floats = nullptr;
      unsigned int length = 0;
      bool reached = false;
      {
        FailAllocation failure(n);
        if (write) {
          if (cache->OpenFileForWrite(5, 24, 2, 2, &status)) {
            cache->Write(0U, values, &status);
            cache->Write(1U, values, &status);
          }
        } else if (cache->OpenFileForRead(&status)) {
          cache->Read(2, values, 2, &status);
          cache->Read(&floats, length, FrameTime(1), 0);
        }
        EXPECT_TRUE(cache->CloseFile(&status));
        reached = failure.Reached();
      }
      EXPECT_FALSE(cache->IsOpen(nullptr));
      if (!reached) break;
      ++failed;
    }
    EXPECT_GE(failed, 8U);
  }
  EXPECT_EQ(ReadBytes(path_).size(), 80U) << "the last round wrote the new file";
}

TEST_F(PC2Faults, EverySystemCallOfReading) {
  for (const int error : {EIO, EINTR, ENOMEM}) {
    EXPECT_GE(FailEachSystemCall([&] { ReadAll(); }, error), 5U);
  }
}

TEST_F(PC2Faults, EverySystemCallOfWriting) {
  const Bytes older = ReadBytes(path_);
  for (const int error : {EIO, ENOSPC, EINTR}) {
    EXPECT_GE(FailEachSystemCall([&] { WriteOver(older); }, error), 10U);
  }
}

TEST_F(PC2Faults, ADiskThatFillsUpKeepsTheOlderFileAndTheSamplesSoFar) {
  const Bytes older = ReadBytes(path_);
  {
    PC2Object cache(path_);
    KelStatus status;
    double values[6] = {9, 9, 9, 9, 9, 9};
    ASSERT_TRUE(cache->OpenFileForWrite(0, 24, 3, 2, nullptr));
    EXPECT_TRUE(cache->Write(0U, values, &status));
    {
      FailSystemCall full(1, ENOSPC, true);
      EXPECT_FALSE(cache->Write(1U, values, &status));
      EXPECT_STREQ(status.GetErrorString(), "Error writing sample data");
    }
    EXPECT_TRUE(cache->CloseFile(&status));
  }
  EXPECT_EQ(ReadBytes(path_), older) << "a file with a hole replaces nothing";
  unsigned int saved = 0;
  EXPECT_TRUE(zuPointCache2IO::recover(path_.c_str(), saved, nullptr, nullptr));
  EXPECT_EQ(saved, 1U);
}

TEST_F(PC2Faults, RecoveryThatFailsLosesNothing) {
  const Bytes older = ReadBytes(path_);
  {
    PC2Object cache(path_);
    double values[6] = {9, 9, 9, 9, 9, 9};
    ASSERT_TRUE(cache->OpenFileForWrite(0, 24, 3, 2, nullptr));
    cache->Write(0U, values, nullptr);
  }
  const Bytes partial = ReadBytes(path_ + ".partial");
  FailEachSystemCall([&] {
    WriteBytes(path_, older);
    WriteBytes(path_ + ".partial", partial);
    ::remove((path_ + ".before-recover").c_str());
    unsigned int saved = 0;
    const bool recovered = zuPointCache2IO::recover(path_.c_str(), saved, nullptr, nullptr);
    const Bytes now = ReadBytes(path_);
    EXPECT_TRUE(now.size() == 56U || (!recovered && now == older));
    EXPECT_TRUE(now == older || Exists(path_ + ".before-recover"));
  });
  EXPECT_EQ(ReadBytes(path_).size(), 56U);
}

TEST_F(PC2Faults, AFetchAllocatesNothingAndMakesOneSystemCall) {
  PC2Object cache(path_);
  ASSERT_TRUE(cache->OpenFileForRead(nullptr));
  float* values = nullptr;
  unsigned int length = 0;
  double doubles[6];
  ASSERT_TRUE(cache->Read(&values, length, FrameTime(0), 0));
  ASSERT_TRUE(cache->Read(0, doubles, 2, nullptr));
  const unsigned long allocations = AllocationCount();
  const unsigned long calls = SystemCallCount();
  for (int round = 0; round < 100; ++round) {
    EXPECT_TRUE(cache->Read(&values, length, FrameTime(round % 3), 0));
    EXPECT_TRUE(cache->Read(static_cast<unsigned int>(round % 3), doubles, 2, nullptr));
  }
  EXPECT_EQ(AllocationCount(), allocations);
  EXPECT_EQ(SystemCallCount(), calls + 200);
}

TEST_F(PC2Faults, AWriteAllocatesNothingAndMakesOneSystemCall) {
  PC2Object cache(path_);
  ASSERT_TRUE(cache->OpenFileForWrite(0, 24, 100, 2, nullptr));
  double values[6] = {};
  const unsigned long allocations = AllocationCount();
  const unsigned long calls = SystemCallCount();
  for (unsigned int sample = 0; sample < 100; ++sample) {
    EXPECT_TRUE(cache->Write(sample, values, nullptr));
  }
  EXPECT_EQ(AllocationCount(), allocations);
  EXPECT_EQ(SystemCallCount(), calls + 100);
  cache->CloseFile(nullptr);
}

}  // namespace
}  // namespace kelsdk::test
