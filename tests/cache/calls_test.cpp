// What the object asks of its back-ends, call by call.
#include "tests/cache/standins.h"

namespace kelsdk::test {
namespace {

class CacheCalls : public StandInTest {
 protected:
  // Opens; what is noted from then on is of what comes next.
  bool Begin(KelCache::EFileFormat format, KelCache::EOpenFlag flag) {
    return Open(format, flag) && !TakeCalls().empty();
  }
  // What a call with the status has answered and asked for.
  std::string After(bool done) { return Outcome(done) + ": " + TakeCalls(); }

  float* fetched_ = nullptr;
  unsigned int length_ = 0;
  double* const none_ = nullptr;
  float floats_[6] = {};
  double doubles_[9] = {1, 2, 3, 4, 5, 6};
  KelTime time_ = KelTime(-kTick - 1);  // cut toward zero to tick -1
  KelTime beyond_ = KelTime(kBeyond);
};

TEST_F(CacheCalls, OfReadingNC) {
  ASSERT_TRUE(Begin(kNC, kRead));
  EXPECT_EQ(After(cache_->Read(1, time_, doubles_, 3, &status_)),
            "done: channelDataType(1); getArrayDataAtTime(1, -1, 3)");
  const std::string invalid = "3 : channelDataType(1)";
  EXPECT_EQ(After(cache_->Read(1, beyond_, doubles_, 3, &status_)), invalid);
  EXPECT_EQ(After(cache_->Read(1, time_, none_, 3, &status_)), invalid);
  EXPECT_EQ(After(cache_->Read(1, time_, doubles_, kWrapping, &status_)), invalid);
  EXPECT_EQ(After(cache_->Read(nullptr, length_, time_, 1)),
            "done untouched: channelDataType(1); getArrayLengthAtTime(1, -1)");
  EXPECT_EQ(After(cache_->Read(&fetched_, length_, time_, 1)),
            "done untouched: channelDataType(1); getArrayLengthAtTime(1, -1); "
            "getArrayDataAtTime(1, -1, 2)");
  EXPECT_EQ(After(cache_->Read(&fetched_, length_, beyond_, 1)), "untouched: channelDataType(1)");
  KelString name;
  EXPECT_FALSE(cache_->GetChannelName(0, name, nullptr)) << "and nothing leaks";
  // A type that an array does not take is refused before a time beyond the ticks or, for doubles
  // and floats, after it.
  int integers[1] = {};
  EXPECT_EQ(After(cache_->Read(1, beyond_, integers, 1, &status_)), "1 : channelDataType(1)");
  answers.type = KelCache::eNCInt32Array;
  EXPECT_EQ(After(cache_->Read(1, beyond_, doubles_, 1, &status_)), invalid);
  EXPECT_EQ(After(cache_->Read(1, beyond_, floats_, 1, &status_)), invalid);
  EXPECT_EQ(After(cache_->Read(1, time_, floats_, 1, &status_)), "1 : channelDataType(1)");
  EXPECT_EQ(After(cache_->CloseFile(&status_)), "done: ~zuCacheFileInterface()");
}

TEST_F(CacheCalls, OfWritingNC) {
  ASSERT_TRUE(Begin(kNC, kWrite));
  for (const char* refused : {"addArrayData", ""}) {
    answers.refused = {refused};
    EXPECT_EQ(After(cache_->Write(0, time_, floats_, 2, &status_)),
              std::string(*refused == 0 ? "done" : "") +
                  ": channelDataType(0); beginWriteAtTime(-1); addArrayData(0, -1, 2); "
                  "endWriteAtTime()");
  }
  EXPECT_EQ(After(cache_->Write(0, beyond_, floats_, 2, &status_)), "3 : channelDataType(0)");
  EXPECT_EQ(After(cache_->Write(0, time_, doubles_, kWrapping, &status_)),
            "3 : channelDataType(0)");
  EXPECT_EQ(After(cache_->BeginWriteAt(beyond_, &status_)), "3 : ");
  EXPECT_EQ(After(cache_->BeginWriteAt(time_, &status_)), "done: beginWriteAtTime(-1)");
  EXPECT_EQ(After(cache_->Write(4, time_, doubles_, 2, &status_)),
            "done: channelDataType(4); addArrayData(4, -1, 2)");
  EXPECT_EQ(After(cache_->EndWriteAt(&status_)), "done: endWriteAtTime()");
  answers.channels = 2;
  EXPECT_EQ(After(cache_->Write(0, time_, floats_, 2, &status_)),
            "1 BeginWriteAt not called: channelDataType(0)");
  EXPECT_TRUE(cache_->BeginWriteAt(time_, nullptr));
  TakeCalls();
  answers.refused = {"endFileWrite"};
  EXPECT_EQ(After(cache_->CloseFile(&status_)), "done: endFileWrite(); ~zuCacheFileInterface()");
  ASSERT_TRUE(Open(kNC, kWrite));
  EXPECT_FALSE(cache_->Write(0, time_, floats_, 2, nullptr)) << "its block has ended";
}

TEST_F(CacheCalls, OfPC2AndAlembic) {
  ASSERT_TRUE(Begin(kPC2, kRead));
  EXPECT_EQ(After(cache_->Read(7, doubles_, 3, &status_)), "done: readSample(7, 3)");
  EXPECT_TRUE(doubles_[5] == 7 && doubles_[6] == 0) << "a point that the file does not have";
  EXPECT_EQ(After(cache_->Read(7, doubles_, kWrapping, &status_)), "3 : ");
  EXPECT_EQ(After(cache_->Read(&fetched_, length_, KelTime::FromFrame(3), 9)),
            "done untouched: readSample(3, 2)");
  EXPECT_EQ(After(cache_->Read(&fetched_, length_, KelTime(-1), 0)),
            "done untouched: readSample(4294967295, 2)");
  EXPECT_EQ(After(cache_->CloseFile(&status_)), "done: ~zuPointCache2IO()");
  ASSERT_TRUE(Begin(kPC2, kWrite));
  EXPECT_EQ(After(cache_->Write(4294967295U, doubles_, &status_)), "done: writeSample(-1, 7, 7)");
  answers.refused = {"endWriteData"};
  EXPECT_EQ(After(cache_->CloseFile(&status_)), "done: endWriteData(); ~zuPointCache2IO()");
  ASSERT_TRUE(Begin(kAbc, kRead));
  EXPECT_EQ(After(cache_->Read(1, time_, floats_, 2, &status_)),
            "done: GetChannelBuffer(1, 2, -7697694)");
  EXPECT_EQ(After(cache_->Read(&fetched_, length_, time_, 1)),
            "done untouched: GetChannelBuffer(1, 2, -7697694)");
  EXPECT_EQ(After(cache_->CloseFile(&status_)), "done: ~AlembicInterface()");
}

// Without room for what a back-end announces, no data is asked of it.
TEST_F(CacheCalls, OfAFetchForSizesThatCannotBe) {
  const struct {
    KelCache::EFileFormat format;
    Answers answers;
  } rows[] = {{kPC2, {.elements = 0}},
              {kPC2, {.elements = kWrapping}},
              {kNC, {.elements = 0}},
              {kNC, {.elements = kWrapping}},
              {kNC, {.type = 9}},
              {kAbc, {.typeSize = 2}},
              {kAbc, {.dataLength = 0}},
              {kAbc, {.elements = 0}},
              {kAbc, {.elements = kWrapping}}};
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    Renew();
    answers = row.answers;
    ASSERT_TRUE(Begin(row.format, kRead));
    EXPECT_FALSE(cache_->Read(&fetched_, length_, KelTime(), 0));
    EXPECT_TRUE(length_ == 0 && fetched_ == nullptr);
    const std::string asked = TakeCalls();
    for (const char* const reading : {"readSample", "ArrayData", "GetChannelBuf"}) {
      EXPECT_EQ(asked.find(reading), std::string::npos) << asked;
    }
  }
  // Halves are served: two bytes for each value.
  answers = {.typeSize = 6};
  EXPECT_TRUE(cache_->Read(&fetched_, length_, KelTime(), 0) && length_ == 6);
}

// Files of every format are open beside each other, and a time block with them.
TEST_F(CacheCalls, OfFormatsAndObjectsThatGo) {
  ASSERT_TRUE(Open(kNC, kWrite));
  EXPECT_TRUE(cache_->BeginWriteAt(time_, nullptr));
  ASSERT_TRUE(Open(kPC2, kWrite));
  cache_->CloseFile(nullptr);
  TakeCalls();
  object_->Name(kNC, "elsewhere");
  EXPECT_EQ(After(cache_->Write(0, time_, floats_, 2, &status_)),
            "done: channelDataType(0); addArrayData(0, -1, 2)")
      << "the block is open yet";
  ASSERT_TRUE(Open(kAbc, kRead));
  ASSERT_TRUE(Begin(kPC2, kWrite));
  EXPECT_EQ(After(Open(kPC2, kWrite, -1)), "done: ") << "of an open file the flag alone counts";
  EXPECT_EQ(After(Open(kPC2, kRead)), ": ");
  object_->Name(KelCache::eUnknownFormat, "");
  EXPECT_EQ(After(cache_->CloseFile(&status_)), "done: ");
  object_.reset();
  EXPECT_EQ(TakeCalls(), "~zuCacheFileInterface(); ~zuPointCache2IO(); ~AlembicInterface()");
}

}  // namespace
}  // namespace kelsdk::test
