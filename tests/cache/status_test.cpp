// What every operation answers in every state of the object.
#include <cstring>
#include <functional>
#include <map>

#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

// One letter for each outcome.
char LetterOf(const std::string& outcome) {
  static const std::map<std::string, char> letters = {
      {"done", '.'},
      {"1 Invalid/unspecified cache format", 'F'},
      {"1 Cache file not opened", 'C'},
      {"1 Invalid open flag", 'W'},
      {"1 Cache file not open!", 'o'},
      {"1 The cache file can not be opened", 'd'},
      {"1 The file index is invalid", 'x'},
      {"1 Error retrieving channel point count", 'n'},
      {"1 ", 'e'},
      {"3 ", 'p'},
      {"4 ", 'i'},
      {"", '-'},
      {"untouched", 'u'},
      {"done untouched", '!'}};
  const auto found = letters.find(outcome);
  return found == letters.end() ? '?' : found->second;
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
  std::function<bool()> call;
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
  WriteBytes(folder_.File("a.pc2"), ReadBytes(TestData("pc2/arm_tube.pc2")));
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
  const KelTime early(-kTick);
  auto type = KelCache::eNCDouble;
  auto files = KelCache::eNCSingleFile;
  auto sampling = KelCache::eNCSamplingRegular;
  KelCache*& c = cache_;
  KelStatus* s = nullptr;
  int n = 0;  // the channel
  const Operation operations[] = {
      {"IsOpen", "FFF..F..F.", [&] { return c->IsOpen(s); }},
      {"GetChannelCount", "--C..C..C.", [&] { return c->GetChannelCount(s) > 0; }},
      {"GetChannelIndex of no name", "u.o..o..o.", [&] { return c->GetChannelIndex("", s) == 0; }},
      {"GetChannelIndex", "u-o..o..o-", [&] { return c->GetChannelIndex("0", s) == 0; }},
      {"GetChannelName", "--C..C..C..p-p-", [&] { return c->GetChannelName(n, text, s); }},
      {"GetChannelDataType", "--FFFC..FF.p-pF", [&] { return c->GetChannelDataType(n, type, s); }},
      {"Meaning", "FFFFFC..FF.iiFF", [&] { return c->GetChannelInterpretation(n, text, s); }},
      {"GetCacheType", "FFFFFC..FF", [&] { return c->GetCacheType(files, s); }},
      {"MultiFetching", "FFFFFC..FF", [&] { return c->EnableMultiChannelFetching(true, s); }},
      {"Range", "FFFFFC..C..p.p.", [&] { return c->GetAnimationRange(n, time, end, s); }},
      {"GetSamplingFrameRate", "FFC.WC..--", [&] { return c->GetSamplingFrameRate(s) > 0; }},
      {"TimePerFrame", "---.--..--", [&] { return c->GetCacheTimePerFrame(s).Get() > 0; }},
      {"GetDataTime", "FFFFFC..FFeeeFF", [&] { return c->GetDataTime(n, 0, time, s); }},
      {"GetDataCount", "FFFFFC..FFeeeFF", [&] { return c->GetDataCount(n, s) > 0; }},
      {"NextTime", "FFFFFC..FFe.eFF", [&] { return c->GetNextTimeWithData(early, time, n, s); }},
      {"PointCount", "FFFFFC..FFniiFF", [&] { return c->GetChannelPointCount(n, now, count, s); }},
      {"SampleCount", "FFFFFC..C..iiii", [&] { return c->GetChannelSampleCount(n, count, s); }},
      {"Regularity", "FFFFFC..FF.iiFF", [&] { return c->GetChannelSamplingType(n, sampling, s); }},
      {"SamplingRate", "FFFFFC..FF.iiFF", [&] { return c->GetChannelSamplingRate(n, time, s); }},
      {"Read floats", "FFFFFC..C.e----", [&] { return c->Read(n, now, f, 2, s); }},
      {"Read doubles", "FFFFFC..FFe--FF", [&] { return c->Read(n, now, d, 2, s); }},
      {"Read integers", "FFFFFCeeFFe--FF", [&] { return c->Read(n, now, i, 2, s); }},
      {"Write doubles", "FFFFFCW.FF", [&] { return c->Write(0, now, d, 2, s); }},
      {"Write integers", "FFFFFCWeFF", [&] { return c->Write(0, now, i, 2, s); }},
      {"BeginWriteAt", "FFFFFCW.FF", [&] { return c->BeginWriteAt(now, s); }},
      {"EndWriteAt", "FFFFFCW.FF", [&] { return c->EndWriteAt(s); }},
      {"Write nothing", "pppppppppp", [&] { return c->Write(1, nullptr, s); }},
      {"AddChannel", "pppppp-.pp", [&] { return c->AddChannel("x", type, "y", count, s); }},
      {"Read a sample", "FFC.WFFFFF", [&] { return c->Read(1, d, 2, s); }},
      {"Write a sample", "FFCW.FFFFF", [&] { return c->Write(1, d, s); }},
      {"GetPointCount", "FFC.WFFFFF", [&] { return c->GetPointCount(s) > 0; }},
      {"GetSampleCount", "FFC.WFFFFF", [&] { return c->GetSampleCount(s) > 0; }},
      {"FrameStartOffset", "FFC.WFFFFF", [&] { return c->GetFrameStartOffset(s) != 0; }},
      {"Fetch", "uuu!uu!!u!uuuuu", [&] { return c->Read(&fetched, count, now, unsigned(n)); }},
      {"DataFileCount", "------..--", [&] { return c->GetCacheDataFileCount(s) > 0; }},
      {"DataFileName", "FFFFFd..FFxxxFF",
       [&] { return c->GetCacheDataFileName(n, text, text, s) && std::strstr(text, ".ncx"); }},
      {"OpenFileForRead", "F-..-..-..", [&] { return c->OpenFileForRead(s); }},
      {"CloseFile", "..........", [&] { return c->CloseFile(s); }},
      {"IsOpen", "FFFFFFFFFF", [&] { return c->IsOpen(s); }},
      {"CloseFile", "..........", [&] { return c->CloseFile(s); }},
  };
  for (size_t state = 0; state < std::size(kStates); ++state) {
    n = kStates[state].channel;
    for (KelStatus* status : {static_cast<KelStatus*>(nullptr), &status_}) {
      s = status;  // for which nobody need ask
      Enter(kStates[state]);
      for (const Operation& operation : operations) {
        if (state >= operation.letters.size()) continue;
        const std::string outcome = Outcome(operation.call());
        if (s == nullptr) continue;
        EXPECT_EQ(LetterOf(outcome), operation.letters[state])
            << operation.name << " in state " << state << " gives \"" << outcome << '"';
      }
    }
  }
}

}  // namespace
}  // namespace kelsdk::test
