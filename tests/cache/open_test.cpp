#include <filesystem>
#include <limits>

#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

class CacheOpening : public CacheTest {
 protected:
  bool Open(KelCache::EOpenFlag flag, double rate = 24, unsigned int points = 4,
            KelCache::ENCDataType type = KelCache::eNCFloatVectorArray,
            const char* channel = nullptr) {
    return cache_->OpenFile(flag, KelCache::eNCSingleFile, rate, channel, nullptr, 3, points, 10,
                            &status_, type, KelCache::eNCBinaryX);
  }
};

TEST_F(CacheOpening, FailuresLeaveNothingBehind) {
  WritePC2("version.pc2", 1);
  Bytes bytes = ReadBytes(folder_.File("version.pc2"));
  bytes[12] = 2;
  WriteBytes(folder_.File("version.pc2"), bytes);
  for (const char* name : {"bad.pc2", "bad.xml", "bad.abc"}) WriteBytes(folder_.File(name), {0});
  std::filesystem::create_directory(folder_.File("taken.pc2"));
  const auto read = KelCache::eOpenForRead;
  const auto write = KelCache::eOpenForWrite;
  const auto pc2 = KelCache::ePC2Format;
  const auto nc = KelCache::eNCFormat;
  const auto abc = KelCache::eAlembicFormat;
  const std::string here = folder_.path() + "/";
  const std::string invalid = "1 Invalid sampling rate";
  const std::string created = "1 Cache file could not be created: " + here;
  const struct {
    KelCache::EFileFormat format;
    const char* name;
    KelCache::EOpenFlag flag;
    std::string status;
    double rate = 24;
    unsigned int points = 4;
    KelCache::ENCDataType type = KelCache::eNCFloatVectorArray;
    const char* channel = nullptr;
  } rows[] = {
      {KelCache::eUnknownFormat, "bad.abc", read, "1 Invalid/unspecified cache format"},
      {pc2, "bad.pc2", read, invalid, 0},
      {nc, "bad.xml", write, invalid, -24},
      {nc, "bad.xml", write, invalid, 1e-7},
      {abc, "bad.abc", write, invalid, 2e-16},
      {abc, "bad.abc", read, invalid, kNaN},
      {kOtherFormat, "bad.abc", write, invalid, -1},
      {pc2, "bad.pc2", read, ""},
      {nc, "bad.xml", read, ""},
      {abc, "bad.abc", read, ""},
      {kOtherFormat, "bad.abc", read, ""},
      {kOtherFormat, "bad.abc", write, ""},
      {pc2, "version.pc2", read, "1 Unsupported file version"},
      {pc2, "bad.pc2", read, "3 ", 24, kWrapping},
      {pc2, "new.pc2", write, created + "new", 24, kWrapping},
      {pc2, "taken.pc2", write, created + "taken"},
      {pc2, "none/new.pc2", write, created + "none/new"},
      {nc, "none/new.xml", write, created + "none/new"},
      {nc, "new.xml", write, created + "new", 24, 4, KelCache::ENCDataType(9)},
      {nc, "new.xml", write, created + "new", 24, 4, KelCache::eNCFloatArray, ""},
      {abc, "bad.abc", write, "1 Alembic Cache file write is not supported"},
  };
  const auto names = NamesIn(folder_.path());
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name + row.status);
    object_->Name(row.format, here + row.name);
    const long blocks = OutstandingBlocks();
    EXPECT_EQ(Outcome(Open(row.flag, row.rate, row.points, row.type, row.channel)), row.status);
    EXPECT_EQ(OutstandingBlocks(), blocks);
    EXPECT_FALSE(cache_->IsOpen(nullptr));
    EXPECT_EQ(NamesIn(folder_.path()), names);
  }
  object_->Name(pc2, here + "new.pc2");
  EXPECT_TRUE(Open(write, 1e-7)) << "a PC2 file needs no ticks";
}

TEST_F(CacheOpening, WithoutMemoryOrFilesNothingOpens) {
  WritePC2("a.pc2", 2);
  WriteNC("a.xml", {KelCache::eNCFloatArray}, {0});
  const std::string paths[] = {folder_.File("a.pc2"), folder_.File("a.xml"),
                               TestData("abc/tiny.abc"), folder_.File("new.pc2"),
                               folder_.File("new.xml")};
  for (size_t i = 0; i < std::size(paths); ++i) {
    object_->Name(static_cast<KelCache::EFileFormat>(i % 3 + 1), paths[i]);
    const auto attempt = [&] {
      status_.Clear();
      const long blocks = OutstandingBlocks();
      const bool opened = Open(i < 3 ? KelCache::eOpenForRead : KelCache::eOpenForWrite, 24, 0);
      status_.Clear();
      EXPECT_EQ(cache_->IsOpen(nullptr), opened) << paths[i];
      EXPECT_TRUE(cache_->CloseFile(nullptr));
      EXPECT_EQ(OutstandingBlocks(), blocks) << paths[i];
    };
    // A back-end's own failures while it writes leave partial files, which are its tests' affair.
    const auto which = i < 3 ? EAllocations::eAll : EAllocations::eKelMalloc;
    EXPECT_GE(FailEachAllocation(attempt, which), 5u);
    if (i < 3) {
      EXPECT_GE(FailEachSystemCall(attempt), 2u);
    }
  }
}

TEST_F(CacheOpening, NamesAreLookedForByThePathRules) {
  WritePC2("shot.pc2", 2);
  WritePC2("shot.any", 5);
  WritePC2("y.pc2", 3);
  std::filesystem::create_directory(folder_.File("sub"));
  const std::string here = folder_.path() + "/";
  std::string back = here + "shot.any";
  std::replace(back.begin(), back.end(), '/', '\\');
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.path());
  const struct {
    std::string absolute, relative;
    unsigned int points;
  } rows[] = {
      // shot.pc2 must exist, and the name as it stands is opened.
      {back, "none", 5}, {"/nowhere/x.pc2", here + "shot.pc2", 2}, {"", "sub\\..\\shot.any", 5},
      {"y.pc2", "", 3},  {"/nowhere/x.pc2", "y.pc2", 3},
  };
  for (const auto& row : rows) {
    object_->Name(KelCache::ePC2Format, row.absolute, row.relative);
    EXPECT_TRUE(cache_->OpenFileForRead(&status_)) << Status();
    EXPECT_EQ(cache_->GetPointCount(nullptr), row.points * 3) << row.absolute;
    cache_->CloseFile(nullptr);
  }
  // Writing has no fallback and needs no file.
  ASSERT_TRUE(object_->BeginNC("new.xml", {KelCache::eNCFloatArray}));
  cache_->CloseFile(nullptr);
  EXPECT_TRUE(Exists(here + "new.xml"));
  std::filesystem::current_path(before);

  object_->Name(KelCache::eNCFormat, "C:\\cache\\b.pc2", "/rel\\a.x.pc2");
  EXPECT_EQ(Outcome(cache_->OpenFileForRead(&status_)),
            "1 Cache file not found: C:/cache/b.xml, /rel/a.x.xml");
  object_->Name(kOtherFormat, "C:\\cache\\b.pc2", "/rel\\a.x.pc2");
  EXPECT_EQ(Outcome(cache_->OpenFileForRead(&status_)),
            "1 Cache file not found: C:/cache/b.abc, /rel/a.x.abc");
}

TEST_F(CacheOpening, WhatIsWrittenForTheArguments) {
  const struct {
    int files, data;
    double rate, stored;
    long long perFrame;  // KelTime units
    const char* dataFile;
  } rows[] = {{1, 0, 24, 24, 1924423250, ".ncc"},
              {0, 1, 30, 30, 1539538600, ".ncx"},
              {2, 7, 29.97, 30, 1539538600, ".ncx"},
              {0, 0, 23.976, 24, 1924423250, ".ncc"},
              {1, 1, 10000, 0, 0, ".ncx"},
              {0, 1, 0.5, 0.5, 0, ".ncx"},
              {0, 1, 1.0 / 300000, 1.0 / 300000, 0, ".ncx"}};
  object_->Name(KelCache::eNCFormat, folder_.File("shot.xml"));
  for (const auto& row : rows) {
    SCOPED_TRACE(row.rate);
    KelTime time;
    int value = 7;
    ASSERT_TRUE(cache_->OpenFileForWrite(KelCache::ENCFileCount(row.files), row.rate, nullptr,
                                         KelCache::ENCBinaryFormat(row.data),
                                         KelCache::eNCInt32Array, nullptr, nullptr));
    EXPECT_TRUE(cache_->Write(0, time, &value, 1, nullptr));
    cache_->CloseFile(nullptr);
    ASSERT_TRUE(cache_->OpenFileForRead(nullptr));
    KelString text;
    KelString path;
    auto files = KelCache::eNCSingleFile;
    auto type = KelCache::eNCUnknownData;
    EXPECT_TRUE(cache_->GetChannelDataType(0, type, nullptr) && type == KelCache::eNCInt32Array);
    EXPECT_TRUE(cache_->GetChannelInterpretation(0, text, nullptr));
    EXPECT_STREQ(text, "Points");
    EXPECT_TRUE(cache_->GetChannelName(0, text, nullptr));
    EXPECT_STREQ(text, "shot");
    EXPECT_TRUE(cache_->GetCacheType(files, nullptr));
    EXPECT_EQ(files == KelCache::eNCFilePerFrame, row.files == 1);
    EXPECT_EQ(cache_->GetSamplingFrameRate(nullptr), row.stored);
    EXPECT_EQ(cache_->GetCacheTimePerFrame(nullptr).Get(), row.perFrame);
    EXPECT_TRUE(cache_->GetCacheDataFileName(0, text, path, nullptr));
    EXPECT_TRUE(std::string(path.Buffer()).ends_with(row.dataFile)) << path.Buffer();
    cache_->CloseFile(nullptr);
  }
}

TEST_F(CacheOpening, FilesOfEveryFormatAreOpenBesideEachOther) {
  KelTime time;
  float value = 1;
  const std::vector<int> types(2, KelCache::eNCFloatArray);
  ASSERT_TRUE(object_->BeginNC(folder_.File("a.xml"), types));
  EXPECT_TRUE(cache_->BeginWriteAt(time, nullptr));
  object_->Name(KelCache::ePC2Format, folder_.File("new.pc2"));
  EXPECT_TRUE(Open(KelCache::eOpenForWrite));
  EXPECT_TRUE(Open(KelCache::eOpenForWrite, kNaN)) << "of an open file the flag alone counts";
  EXPECT_EQ(Outcome(cache_->OpenFileForRead(&status_)), "");
  EXPECT_TRUE(cache_->CloseFile(nullptr));
  object_->Name(KelCache::eNCFormat, folder_.File("a.xml"));
  EXPECT_TRUE(cache_->Write(0, time, &value, 1, nullptr)) << "the time block is open yet";
  EXPECT_TRUE(cache_->CloseFile(nullptr));
  ASSERT_TRUE(object_->BeginNC(folder_.File("b.xml"), types));
  EXPECT_EQ(Outcome(cache_->Write(0, time, &value, 1, &status_)), "1 BeginWriteAt not called");
}

}  // namespace
}  // namespace kelsdk::test
