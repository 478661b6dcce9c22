// What every operation answers in every state of the object.
#include <functional>

#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

// One letter for each outcome.
char LetterOf(const std::string& outcome) {
  const struct {
    char letter;
    const char* outcome;
  } rows[] = {{'.', "done"},
              {'F', "1 Invalid/unspecified cache format"},
              {'C', "1 Cache file not opened"},
              {'W', "1 Invalid open flag"},
              {'o', "1 Cache file not open!"},
              {'d', "1 The cache file can not be opened"},
              {'x', "1 The file index is invalid"},
              {'n', "1 Error retrieving channel point count"},
              {'e', "1 "},
              {'p', "3 "},
              {'i', "4 "},
              {'-', ""},
              {'u', "untouched"},
              {'!', "done untouched"}};
  for (const auto& row : rows) {
    if (outcome == row.outcome) return row.letter;
  }
  return '?';
}

enum EOpen { eClosed, eRead, eWrite };

struct State {
  KelCache::EFileFormat format;
  const char* file;
  EOpen open = eClosed;
  int channel = 0;
};

// In the order of the letters below. The last five are about a channel without samples and channels
// that are not there.
constexpr State kStates[] = {
    {KelCache::eUnknownFormat, "a.pc2"},
    {kOtherFormat, "a.pc2"},
    {KelCache::ePC2Format, "a.pc2"},
    {KelCache::ePC2Format, "a.pc2", eRead},
    {KelCache::ePC2Format, "new.pc2", eWrite},
    {KelCache::eNCFormat, "a.xml"},
    {KelCache::eNCFormat, "a.xml", eRead},
    {KelCache::eNCFormat, "new.xml", eWrite},
    {KelCache::eAlembicFormat, "a.abc"},
    {KelCache::eAlembicFormat, "a.abc", eRead},
    {KelCache::eNCFormat, "a.xml", eRead, 1},
    {KelCache::eNCFormat, "a.xml", eRead, -1},
    {KelCache::eNCFormat, "a.xml", eRead, 2},
    {KelCache::eAlembicFormat, "a.abc", eRead, -1},
    {KelCache::eAlembicFormat, "a.abc", eRead, 2},
};

struct Operation {
  const char* name;
  std::string_view letters;  // of the states, the last ones only where the channel matters
  std::function<bool(KelCache& cache, int channel, KelStatus* status)> call;
};

class CacheStatus : public CacheTest {
 protected:
  void Enter(const State& state) {
    Renew();
    object_->Name(state.format, folder_.File(state.file));
    if (state.open == eRead) {
      ASSERT_TRUE(cache_->OpenFileForRead(nullptr));
    } else if (state.open == eWrite && state.format == KelCache::ePC2Format) {
      ASSERT_TRUE(cache_->OpenFileForWrite(0, 24, 3, 2, nullptr));
    } else if (state.open == eWrite) {
      ASSERT_TRUE(object_->BeginNC(folder_.File(state.file), {KelCache::eNCFloatVectorArray}));
      float values[3] = {};
      KelTime time;
      ASSERT_TRUE(cache_->Write(0, time, values, 1, nullptr));
    }
  }
};

TEST_F(CacheStatus, OfEveryOperationInEveryState) {
  WritePC2("a.pc2", 2);
  WriteNC("a.xml", {KelCache::eNCFloatVectorArray, KelCache::eNCDouble}, {0, 250});
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
  const Operation operations[] = {
      {"IsOpen", "FFF..F..F.", [&](auto& c, int, auto* s) { return c.IsOpen(s); }},
      {"GetChannelCount", "--C..C..C.",
       [&](auto& c, int, auto* s) { return c.GetChannelCount(s) > 0; }},
      {"GetChannelIndex", "u.o..o..o.",
       [&](auto& c, int, auto* s) { return c.GetChannelIndex("", s) == 0; }},
      {"GetChannelIndex of an NC channel", "u-o..o..o-",
       [&](auto& c, int, auto* s) { return c.GetChannelIndex("0", s) == 0; }},
      {"GetChannelIndex of a path", "u-o..o--o.",
       [&](auto& c, int, auto* s) { return c.GetChannelIndex("/dot/id", s) >= 0; }},
      {"GetChannelName", "--C..C..C..p-p-",
       [&](auto& c, int n, auto* s) { return c.GetChannelName(n, text, s); }},
      {"GetChannelDataType", "--FFFC..FF.p-pF",
       [&](auto& c, int n, auto* s) { return c.GetChannelDataType(n, type, s); }},
      {"GetChannelInterpretation", "FFFFFC..FF.iiFF",
       [&](auto& c, int n, auto* s) { return c.GetChannelInterpretation(n, text, s); }},
      {"GetCacheType", "FFFFFC..FF",
       [&](auto& c, int, auto* s) { return c.GetCacheType(files, s); }},
      {"EnableMultiChannelFetching", "FFFFFC..FF",
       [&](auto& c, int, auto* s) { return c.EnableMultiChannelFetching(true, s); }},
      {"GetAnimationRange", "FFFFFC..C..p.p.",
       [&](auto& c, int n, auto* s) { return c.GetAnimationRange(n, time, end, s); }},
      {"GetSamplingFrameRate", "FFC.WC..C-",
       [&](auto& c, int, auto* s) { return c.GetSamplingFrameRate(s) > 0; }},
      {"GetCacheTimePerFrame", "---.--..--",
       [&](auto& c, int, auto* s) { return c.GetCacheTimePerFrame(s).Get() > 0; }},
      {"GetDataTime", "FFFFFC..FFeeeFF",
       [&](auto& c, int n, auto* s) { return c.GetDataTime(n, 0, time, s); }},
      {"GetDataCount", "FFFFFC..FFeeeFF",
       [&](auto& c, int n, auto* s) { return c.GetDataCount(n, s) > 0; }},
      {"GetNextTimeWithData", "FFFFFC..FFe.eFF",
       [&](auto& c, int n, auto* s) { return c.GetNextTimeWithData(KelTime(-kTick), time, n, s); }},
      {"GetChannelPointCount", "FFFFFC..FFniiFF",
       [&](auto& c, int n, auto* s) { return c.GetChannelPointCount(n, now, count, s); }},
      {"GetChannelSampleCount", "FFFFFC..C..iiii",
       [&](auto& c, int n, auto* s) { return c.GetChannelSampleCount(n, count, s); }},
      {"GetChannelSamplingType", "FFFFFC..FF.iiFF",
       [&](auto& c, int n, auto* s) { return c.GetChannelSamplingType(n, sampling, s); }},
      {"GetChannelSamplingRate", "FFFFFC..FF.iiFF",
       [&](auto& c, int n, auto* s) { return c.GetChannelSamplingRate(n, time, s); }},
      {"Read floats", "FFFFFC..C.e----",
       [&](auto& c, int n, auto* s) { return c.Read(n, now, f, 2, s); }},
      {"Read doubles", "FFFFFC..FFe--FF",
       [&](auto& c, int n, auto* s) { return c.Read(n, now, d, 2, s); }},
      {"Read integers", "FFFFFCeeFFe--FF",
       [&](auto& c, int n, auto* s) { return c.Read(n, now, i, 2, s); }},
      {"Write doubles", "FFFFFCW.FF",
       [&](auto& c, int, auto* s) { return c.Write(0, now, d, 2, s); }},
      {"Write integers", "FFFFFCWeFF",
       [&](auto& c, int, auto* s) { return c.Write(0, now, i, 2, s); }},
      {"BeginWriteAt", "FFFFFCW.FF", [&](auto& c, int, auto* s) { return c.BeginWriteAt(now, s); }},
      {"Write floats", "FFFFFCW.FF",
       [&](auto& c, int, auto* s) { return c.Write(0, now, f, 2, s); }},
      {"EndWriteAt", "FFFFFCW.FF", [&](auto& c, int, auto* s) { return c.EndWriteAt(s); }},
      {"Write nothing", "pppppppppp",
       [&](auto& c, int, auto* s) { return c.Write(0, now, static_cast<float*>(nullptr), 1, s); }},
      {"AddChannel", "pppppp-.pp",
       [&](auto& c, int, auto* s) { return c.AddChannel("x", type, "y", count, s); }},
      {"AddChannel without a name", "pppppppppp",
       [&](auto& c, int, auto* s) { return c.AddChannel(nullptr, type, "y", count, s); }},
      {"AddChannel without words", "pppppppppp",
       [&](auto& c, int, auto* s) { return c.AddChannel("x", type, nullptr, count, s); }},
      {"Read a sample", "FFC.WFFFFF", [&](auto& c, int, auto* s) { return c.Read(1, d, 2, s); }},
      {"Write a sample", "FFCW.FFFFF", [&](auto& c, int, auto* s) { return c.Write(1, d, s); }},
      {"Write no sample", "pppppppppp",
       [&](auto& c, int, auto* s) { return c.Write(1, nullptr, s); }},
      {"GetPointCount", "FFC.WFFFFF",
       [&](auto& c, int, auto* s) { return c.GetPointCount(s) > 0; }},
      {"GetSampleCount", "FFC.WFFFFF",
       [&](auto& c, int, auto* s) { return c.GetSampleCount(s) > 0; }},
      {"GetFrameStartOffset", "FFC.WFFFFF",
       [&](auto& c, int, auto* s) { return c.GetFrameStartOffset(s) > 0; }},
      {"Fetch", "uuu!uu!!u!uuuuu",
       [&](auto& c, int n, auto*) { return c.Read(&fetched, count, now, unsigned(n)); }},
      {"GetCacheDataFileCount", "------..--",
       [&](auto& c, int, auto* s) { return c.GetCacheDataFileCount(s) > 0; }},
      {"GetCacheDataFileName", "FFFFFd..FFxxxFF",
       [&](auto& c, int n, auto* s) { return c.GetCacheDataFileName(n, text, text, s); }},
      {"OpenFileForRead", "F-..-..-..",
       [&](auto& c, int, auto* s) { return c.OpenFileForRead(s); }},
      {"CloseFile", "..........", [&](auto& c, int, auto* s) { return c.CloseFile(s); }},
      {"IsOpen", "FFFFFFFFFF", [&](auto& c, int, auto* s) { return c.IsOpen(s); }},
      {"CloseFile", "..........", [&](auto& c, int, auto* s) { return c.CloseFile(s); }},
  };
  for (size_t state = 0; state < std::size(kStates); ++state) {
    Enter(kStates[state]);
    const int channel = kStates[state].channel;
    for (const Operation& operation : operations) {
      if (state >= operation.letters.size()) continue;
      const std::string outcome = Outcome(operation.call(*cache_, channel, &status_));
      EXPECT_EQ(LetterOf(outcome), operation.letters[state])
          << operation.name << " in state " << state << " gives \"" << outcome << '"';
    }
    // Nobody need ask for the status.
    Enter(kStates[state]);
    for (const Operation& operation : operations) operation.call(*cache_, channel, nullptr);
  }
}

}  // namespace
}  // namespace kelsdk::test
