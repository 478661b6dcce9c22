// What every operation answers in every state of the object.
#include <functional>

#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

// One letter for each answer: "." is success with the status clear.
char LetterOf(bool done, const std::string& status) {
  const struct {
    char letter;
    const char* status;
  } failures[] = {{'F', "1 Invalid/unspecified cache format"},
                  {'C', "1 Cache file not opened"},
                  {'W', "1 Invalid open flag"},
                  {'o', "1 Cache file not open!"},
                  {'d', "1 The cache file can not be opened"},
                  {'e', "1 "},
                  {'p', "3 "},
                  {'-', ""},
                  {'u', "untouched"}};
  for (const auto& failure : failures) {
    if (status == failure.status && !done) return failure.letter;
  }
  return done && status.empty() ? '.' : done && status == "untouched" ? '!' : '?';
}

// In this order, which is that of the letters below.
enum EState { eNone, eOther, ePC2, ePC2Read, ePC2Write, eNC, eNCRead, eNCWrite, eAbc, eAbcRead };

struct Operation {
  const char* name;
  const char* letters;
  std::function<bool(KelCache& cache, KelStatus* status)> call;
};

class CacheStatus : public CacheTest {
 protected:
  void Enter(EState state) {
    Renew();
    const char* const names[] = {"a.pc2", "a.pc2", "a.pc2", "a.pc2", "new.pc2",
                                 "a.xml", "a.xml", "new",   "a.abc", "a.abc"};
    const auto format = state == eNone    ? KelCache::eUnknownFormat
                        : state == eOther ? kOtherFormat
                        : state < eNC     ? KelCache::ePC2Format
                        : state < eAbc    ? KelCache::eNCFormat
                                          : KelCache::eAlembicFormat;
    object_->Name(format, folder_.File(names[state]));
    if (state == ePC2Read || state == eNCRead || state == eAbcRead) {
      ASSERT_TRUE(cache_->OpenFileForRead(nullptr));
    } else if (state == ePC2Write) {
      ASSERT_TRUE(cache_->OpenFileForWrite(0, 24, 3, 2, nullptr));
    } else if (state == eNCWrite) {
      ASSERT_TRUE(object_->BeginNC(folder_.File("new.xml"), {KelCache::eNCFloatVectorArray}));
      float values[3] = {};
      KelTime time;
      ASSERT_TRUE(cache_->Write(0, time, values, 1, nullptr));
    }
  }
};

TEST_F(CacheStatus, OfEveryOperationInEveryState) {
  WritePC2("a.pc2", 2);
  WriteNC("a.xml", {KelCache::eNCFloatVectorArray}, {0, 250});
  WriteBytes(folder_.File("a.abc"), ReadBytes(TestData("abc/tiny.abc")));
  double d[6] = {};
  float f[6] = {};
  int i[6] = {};
  float* fetched = nullptr;
  unsigned int count = 0;
  KelString text;
  KelTime now;
  KelTime time;
  KelTime end;
  auto type = KelCache::eNCDouble;
  auto files = KelCache::eNCSingleFile;
  auto sampling = KelCache::eNCSamplingRegular;
  // none, another, PC2 closed, read, write, NC closed, read, write, Alembic closed, read
  const Operation operations[] = {
      {"IsOpen", "FFF..F..F.", [&](auto& c, auto* s) { return c.IsOpen(s); }},
      {"GetChannelCount", "--C..C..C.", [&](auto& c, auto* s) { return c.GetChannelCount(s) > 0; }},
      {"GetChannelIndex", "u.o..o..o.",
       [&](auto& c, auto* s) { return c.GetChannelIndex("", s) == 0; }},
      {"GetChannelName", "--C..C..C.",
       [&](auto& c, auto* s) { return c.GetChannelName(0, text, s); }},
      {"GetChannelDataType", "--FFFC..FF",
       [&](auto& c, auto* s) { return c.GetChannelDataType(0, type, s); }},
      {"GetChannelInterpretation", "FFFFFC..FF",
       [&](auto& c, auto* s) { return c.GetChannelInterpretation(0, text, s); }},
      {"GetCacheType", "FFFFFC..FF", [&](auto& c, auto* s) { return c.GetCacheType(files, s); }},
      {"EnableMultiChannelFetching", "FFFFFC..FF",
       [&](auto& c, auto* s) { return c.EnableMultiChannelFetching(true, s); }},
      {"GetAnimationRange", "FFFFFC..C.",
       [&](auto& c, auto* s) { return c.GetAnimationRange(0, time, end, s); }},
      {"GetSamplingFrameRate", "FFC.WC..C-",
       [&](auto& c, auto* s) { return c.GetSamplingFrameRate(s) > 0; }},
      {"GetCacheTimePerFrame", "---.--..--",
       [&](auto& c, auto* s) { return c.GetCacheTimePerFrame(s).Get() > 0; }},
      {"GetDataTime", "FFFFFC..FF", [&](auto& c, auto* s) { return c.GetDataTime(0, 0, time, s); }},
      {"GetDataCount", "FFFFFC..FF", [&](auto& c, auto* s) { return c.GetDataCount(0, s) > 0; }},
      {"GetNextTimeWithData", "FFFFFC..FF",
       [&](auto& c, auto* s) { return c.GetNextTimeWithData(KelTime(-kTick), time, 0, s); }},
      {"GetChannelPointCount", "FFFFFC..FF",
       [&](auto& c, auto* s) { return c.GetChannelPointCount(0, now, count, s); }},
      {"GetChannelSampleCount", "FFFFFC..C.",
       [&](auto& c, auto* s) { return c.GetChannelSampleCount(0, count, s); }},
      {"GetChannelSamplingType", "FFFFFC..FF",
       [&](auto& c, auto* s) { return c.GetChannelSamplingType(0, sampling, s); }},
      {"GetChannelSamplingRate", "FFFFFC..FF",
       [&](auto& c, auto* s) { return c.GetChannelSamplingRate(0, time, s); }},
      {"Read floats", "FFFFFC..C.", [&](auto& c, auto* s) { return c.Read(0, now, f, 2, s); }},
      {"Read doubles", "FFFFFC..FF", [&](auto& c, auto* s) { return c.Read(0, now, d, 2, s); }},
      {"Read integers", "FFFFFCeeFF", [&](auto& c, auto* s) { return c.Read(0, now, i, 2, s); }},
      {"Write doubles", "FFFFFCW.FF", [&](auto& c, auto* s) { return c.Write(0, now, d, 2, s); }},
      {"Write integers", "FFFFFCWeFF", [&](auto& c, auto* s) { return c.Write(0, now, i, 2, s); }},
      {"BeginWriteAt", "FFFFFCW.FF", [&](auto& c, auto* s) { return c.BeginWriteAt(now, s); }},
      {"Write floats", "FFFFFCW.FF", [&](auto& c, auto* s) { return c.Write(0, now, f, 2, s); }},
      {"EndWriteAt", "FFFFFCW.FF", [&](auto& c, auto* s) { return c.EndWriteAt(s); }},
      {"Write nothing", "pppppppppp",
       [&](auto& c, auto* s) { return c.Write(0, now, static_cast<float*>(nullptr), 1, s); }},
      {"AddChannel", "pppppp-.pp",
       [&](auto& c, auto* s) { return c.AddChannel("x", type, "y", count, s); }},
      {"AddChannel without a name", "pppppppppp",
       [&](auto& c, auto* s) { return c.AddChannel(nullptr, type, "y", count, s); }},
      {"AddChannel without words", "pppppppppp",
       [&](auto& c, auto* s) { return c.AddChannel("x", type, nullptr, count, s); }},
      {"Read a sample", "FFC.WFFFFF", [&](auto& c, auto* s) { return c.Read(1, d, 2, s); }},
      {"Write a sample", "FFCW.FFFFF", [&](auto& c, auto* s) { return c.Write(1, d, s); }},
      {"Write no sample", "pppppppppp", [&](auto& c, auto* s) { return c.Write(1, nullptr, s); }},
      {"GetPointCount", "FFC.WFFFFF", [&](auto& c, auto* s) { return c.GetPointCount(s) > 0; }},
      {"GetSampleCount", "FFC.WFFFFF", [&](auto& c, auto* s) { return c.GetSampleCount(s) > 0; }},
      {"GetFrameStartOffset", "FFC.WFFFFF",
       [&](auto& c, auto* s) { return c.GetFrameStartOffset(s) > 0; }},
      {"Fetch", "uuu!uu!!u!", [&](auto& c, auto*) { return c.Read(&fetched, count, now, 0); }},
      {"GetCacheDataFileCount", "------..--",
       [&](auto& c, auto* s) { return c.GetCacheDataFileCount(s) > 0; }},
      {"GetCacheDataFileName", "FFFFFd..FF",
       [&](auto& c, auto* s) { return c.GetCacheDataFileName(0, text, text, s); }},
      {"OpenFileForRead", "F-..-..-..", [&](auto& c, auto* s) { return c.OpenFileForRead(s); }},
      {"CloseFile", "..........", [&](auto& c, auto* s) { return c.CloseFile(s); }},
      {"IsOpen", "FFFFFFFFFF", [&](auto& c, auto* s) { return c.IsOpen(s); }},
      {"CloseFile", "..........", [&](auto& c, auto* s) { return c.CloseFile(s); }},
  };
  for (int state = eNone; state <= eAbcRead; ++state) {
    Enter(static_cast<EState>(state));
    for (const Operation& operation : operations) {
      const char expected = operation.letters[state];
      const bool done = operation.call(*cache_, &status_);
      const std::string status = Status();
      EXPECT_EQ(LetterOf(done, status), expected)
          << operation.name << " in state " << state << " gives " << done << " \"" << status << '"';
    }
    // Nobody need ask for the status.
    Enter(static_cast<EState>(state));
    for (const Operation& operation : operations) operation.call(*cache_, nullptr);
  }
}

}  // namespace
}  // namespace kelsdk::test
