// What every operation answers in every state of the object.
#include <cstring>
#include <functional>
#include <map>
#include <sstream>

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

// In the order of the answers below. The last five are about a channel without samples and channels
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

// The states' names in a row: a format that is closed, then open for reading, then for writing; and
// where the channel matters, channels of open caches.
constexpr const char* kStateNames[] = {"none", "other", "pc2", "nc",    "abc",
                                       "nc1",  "nc-1",  "nc2", "abc-1", "abc2"};

// The letters of "none:F other:F pc2:F.. ...", in the order of the states.
std::string LettersOf(const std::string& row) {
  std::string letters;
  std::istringstream words(row);
  std::size_t next = 0;
  for (std::string word; words >> word; ++next) {
    const std::size_t colon = word.find(':');
    EXPECT_EQ(word.substr(0, colon), kStateNames[next]) << row;
    letters += word.substr(colon + 1);
  }
  return letters;
}

struct Operation {
  const char* name;
  const char* answers;  // a letter for each state
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
      {"IsOpen", "none:F other:F pc2:F.. nc:F.. abc:F.", [&] { return c->IsOpen(s); }},
      {"GetChannelCount", "none:- other:- pc2:C.. nc:C.. abc:C.",
       [&] { return c->GetChannelCount(s) > 0; }},
      {"GetChannelIndex of no name", "none:u other:. pc2:o.. nc:o.. abc:o.",
       [&] { return c->GetChannelIndex("", s) == 0; }},
      {"GetChannelIndex", "none:u other:- pc2:o.. nc:o.. abc:o-",
       [&] { return c->GetChannelIndex("0", s) == 0; }},
      {"GetChannelName", "none:- other:- pc2:C.. nc:C.. abc:C. nc1:. nc-1:p nc2:- abc-1:p abc2:-",
       [&] { return c->GetChannelName(n, text, s); }},
      {"GetChannelDataType",
       "none:- other:- pc2:FFF nc:C.. abc:FF nc1:. nc-1:p nc2:- abc-1:p abc2:F",
       [&] { return c->GetChannelDataType(n, type, s); }},
      {"Meaning", "none:F other:F pc2:FFF nc:C.. abc:FF nc1:. nc-1:i nc2:i abc-1:F abc2:F",
       [&] { return c->GetChannelInterpretation(n, text, s); }},
      {"GetCacheType", "none:F other:F pc2:FFF nc:C.. abc:FF",
       [&] { return c->GetCacheType(files, s); }},
      {"MultiFetching", "none:F other:F pc2:FFF nc:C.. abc:FF",
       [&] { return c->EnableMultiChannelFetching(true, s); }},
      {"Range", "none:F other:F pc2:FFF nc:C.. abc:C. nc1:. nc-1:p nc2:. abc-1:p abc2:.",
       [&] { return c->GetAnimationRange(n, time, end, s); }},
      {"GetSamplingFrameRate", "none:F other:F pc2:C.W nc:C.. abc:--",
       [&] { return c->GetSamplingFrameRate(s) > 0; }},
      {"TimePerFrame", "none:- other:- pc2:-.- nc:-.. abc:--",
       [&] { return c->GetCacheTimePerFrame(s).Get() > 0; }},
      {"GetDataTime", "none:F other:F pc2:FFF nc:C.. abc:FF nc1:e nc-1:e nc2:e abc-1:F abc2:F",
       [&] { return c->GetDataTime(n, 0, time, s); }},
      {"GetDataCount", "none:F other:F pc2:FFF nc:C.. abc:FF nc1:e nc-1:e nc2:e abc-1:F abc2:F",
       [&] { return c->GetDataCount(n, s) > 0; }},
      {"NextTime", "none:F other:F pc2:FFF nc:C.. abc:FF nc1:e nc-1:. nc2:e abc-1:F abc2:F",
       [&] { return c->GetNextTimeWithData(early, time, n, s); }},
      {"PointCount", "none:F other:F pc2:FFF nc:C.. abc:FF nc1:n nc-1:i nc2:i abc-1:F abc2:F",
       [&] { return c->GetChannelPointCount(n, now, count, s); }},
      {"SampleCount", "none:F other:F pc2:FFF nc:C.. abc:C. nc1:. nc-1:i nc2:i abc-1:i abc2:i",
       [&] { return c->GetChannelSampleCount(n, count, s); }},
      {"Regularity", "none:F other:F pc2:FFF nc:C.. abc:FF nc1:. nc-1:i nc2:i abc-1:F abc2:F",
       [&] { return c->GetChannelSamplingType(n, sampling, s); }},
      {"SamplingRate", "none:F other:F pc2:FFF nc:C.. abc:FF nc1:. nc-1:i nc2:i abc-1:F abc2:F",
       [&] { return c->GetChannelSamplingRate(n, time, s); }},
      {"Read floats", "none:F other:F pc2:FFF nc:C.. abc:C. nc1:e nc-1:- nc2:- abc-1:- abc2:-",
       [&] { return c->Read(n, now, f, 2, s); }},
      {"Read doubles", "none:F other:F pc2:FFF nc:C.. abc:FF nc1:e nc-1:- nc2:- abc-1:F abc2:F",
       [&] { return c->Read(n, now, d, 2, s); }},
      {"Read integers", "none:F other:F pc2:FFF nc:Cee abc:FF nc1:e nc-1:- nc2:- abc-1:F abc2:F",
       [&] { return c->Read(n, now, i, 2, s); }},
      {"Write doubles", "none:F other:F pc2:FFF nc:CW. abc:FF",
       [&] { return c->Write(0, now, d, 2, s); }},
      {"Write integers", "none:F other:F pc2:FFF nc:CWe abc:FF",
       [&] { return c->Write(0, now, i, 2, s); }},
      {"BeginWriteAt", "none:F other:F pc2:FFF nc:CW. abc:FF",
       [&] { return c->BeginWriteAt(now, s); }},
      {"EndWriteAt", "none:F other:F pc2:FFF nc:CW. abc:FF", [&] { return c->EndWriteAt(s); }},
      {"Write nothing", "none:p other:p pc2:ppp nc:ppp abc:pp",
       [&] { return c->Write(1, nullptr, s); }},
      {"AddChannel", "none:p other:p pc2:ppp nc:p-. abc:pp",
       [&] { return c->AddChannel("x", type, "y", count, s); }},
      {"Read a sample", "none:F other:F pc2:C.W nc:FFF abc:FF",
       [&] { return c->Read(1, d, 2, s); }},
      {"Write a sample", "none:F other:F pc2:CW. nc:FFF abc:FF", [&] { return c->Write(1, d, s); }},
      {"GetPointCount", "none:F other:F pc2:C.W nc:FFF abc:FF",
       [&] { return c->GetPointCount(s) > 0; }},
      {"GetSampleCount", "none:F other:F pc2:C.W nc:FFF abc:FF",
       [&] { return c->GetSampleCount(s) > 0; }},
      {"FrameStartOffset", "none:F other:F pc2:C.W nc:FFF abc:FF",
       [&] { return c->GetFrameStartOffset(s) != 0; }},
      {"Fetch", "none:u other:u pc2:u!u nc:u!! abc:u! nc1:u nc-1:u nc2:u abc-1:u abc2:u",
       [&] { return c->Read(&fetched, count, now, unsigned(n)); }},
      {"DataFileCount", "none:- other:- pc2:--- nc:-.. abc:--",
       [&] { return c->GetCacheDataFileCount(s) > 0; }},
      {"DataFileName", "none:F other:F pc2:FFF nc:d.. abc:FF nc1:x nc-1:x nc2:x abc-1:F abc2:F",
       [&] { return c->GetCacheDataFileName(n, text, text, s) && std::strstr(text, ".ncx"); }},
      {"OpenFileForRead", "none:F other:- pc2:..- nc:..- abc:..",
       [&] { return c->OpenFileForRead(s); }},
      {"CloseFile", "none:. other:. pc2:... nc:... abc:..", [&] { return c->CloseFile(s); }},
      {"IsOpen", "none:F other:F pc2:FFF nc:FFF abc:FF", [&] { return c->IsOpen(s); }},
      {"CloseFile", "none:. other:. pc2:... nc:... abc:..", [&] { return c->CloseFile(s); }},
  };
  for (size_t state = 0; state < std::size(kStates); ++state) {
    n = kStates[state].channel;
    for (KelStatus* status : {static_cast<KelStatus*>(nullptr), &status_}) {
      s = status;  // for which nobody need ask
      Enter(kStates[state]);
      for (const Operation& operation : operations) {
        const std::string letters = LettersOf(operation.answers);
        if (state >= letters.size()) continue;
        const std::string outcome = Outcome(operation.call());
        if (s == nullptr) continue;
        EXPECT_EQ(LetterOf(outcome), letters[state])
            << operation.name << " in state " << state << " gives \"" << outcome << '"';
      }
    }
  }
}

}  // namespace
}  // namespace kelsdk::test
