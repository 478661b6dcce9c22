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

// In the order of the answers below: formats that are closed, then open for reading, then for
// writing; and, open for reading, channels without samples and those that are not there.
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
  std::string answers;  // a letter for each state
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
  float f[6] = {}, *fetched = nullptr;
  int i[6] = {}, n = 0;  // the channel
  unsigned int count = 0;
  KelString text;
  KelTime now, time, end;
  const KelTime early(-kTick);
  auto type = KelCache::eNCDouble;
  auto files = KelCache::eNCSingleFile;
  auto sampling = KelCache::eNCSamplingRegular;
  KelCache*& c = cache_;
  KelStatus* s = nullptr;
  // No format and another one, then PC2, NC and Alembic; last, channels of NC and of Alembic.
  Operation operations[] = {
      {"IsOpen", "FF F.. F.. F.", [&] { return c->IsOpen(s); }},
      {"GetChannelCount", "-- C.. C.. C.", [&] { return c->GetChannelCount(s) > 0; }},
      {"GetChannelIndex of no name", "u. o.. o.. o.",
       [&] { return c->GetChannelIndex("", s) == 0; }},
      {"GetChannelIndex", "u- o.. o.. o-", [&] { return c->GetChannelIndex("0", s) == 0; }},
      {"GetChannelName", "-- C.. C.. C. .p- p-", [&] { return c->GetChannelName(n, text, s); }},
      {"GetChannelDataType", "-- FFF C.. FF .p- pF",
       [&] { return c->GetChannelDataType(n, type, s); }},
      {"Meaning", "FF FFF C.. FF .ii FF", [&] { return c->GetChannelInterpretation(n, text, s); }},
      {"GetCacheType", "FF FFF C.. FF", [&] { return c->GetCacheType(files, s); }},
      {"MultiFetching", "FF FFF C.. FF", [&] { return c->EnableMultiChannelFetching(true, s); }},
      {"Range", "FF FFF C.. C. .p. p.", [&] { return c->GetAnimationRange(n, time, end, s); }},
      {"GetSamplingFrameRate", "FF C.W C.. --", [&] { return c->GetSamplingFrameRate(s) > 0; }},
      {"TimePerFrame", "-- -.- -.. --", [&] { return c->GetCacheTimePerFrame(s).Get() > 0; }},
      {"GetDataTime", "FF FFF C.. FF eee FF", [&] { return c->GetDataTime(n, 0, time, s); }},
      {"GetDataCount", "FF FFF C.. FF eee FF", [&] { return c->GetDataCount(n, s) > 0; }},
      {"NextTime", "FF FFF C.. FF e.e FF",
       [&] { return c->GetNextTimeWithData(early, time, n, s); }},
      {"PointCount", "FF FFF C.. FF nii FF",
       [&] { return c->GetChannelPointCount(n, now, count, s); }},
      {"SampleCount", "FF FFF C.. C. .ii ii",
       [&] { return c->GetChannelSampleCount(n, count, s); }},
      {"Regularity", "FF FFF C.. FF .ii FF",
       [&] { return c->GetChannelSamplingType(n, sampling, s); }},
      {"SamplingRate", "FF FFF C.. FF .ii FF",
       [&] { return c->GetChannelSamplingRate(n, time, s); }},
      {"Read floats", "FF FFF C.. C. e-- --", [&] { return c->Read(n, now, f, 2, s); }},
      {"Read doubles", "FF FFF C.. FF e-- FF", [&] { return c->Read(n, now, d, 2, s); }},
      {"Read integers", "FF FFF Cee FF e-- FF", [&] { return c->Read(n, now, i, 2, s); }},
      {"Write doubles", "FF FFF CW. FF", [&] { return c->Write(0, now, d, 2, s); }},
      {"Write integers", "FF FFF CWe FF", [&] { return c->Write(0, now, i, 2, s); }},
      {"BeginWriteAt", "FF FFF CW. FF", [&] { return c->BeginWriteAt(now, s); }},
      {"EndWriteAt", "FF FFF CW. FF", [&] { return c->EndWriteAt(s); }},
      {"Write nothing", "pp ppp ppp pp", [&] { return c->Write(1, nullptr, s); }},
      {"AddChannel", "pp ppp p-. pp", [&] { return c->AddChannel("x", type, "y", count, s); }},
      {"Read a sample", "FF C.W FFF FF", [&] { return c->Read(1, d, 2, s); }},
      {"Write a sample", "FF CW. FFF FF", [&] { return c->Write(1, d, s); }},
      {"GetPointCount", "FF C.W FFF FF", [&] { return c->GetPointCount(s) > 0; }},
      {"GetSampleCount", "FF C.W FFF FF", [&] { return c->GetSampleCount(s) > 0; }},
      {"FrameStartOffset", "FF C.W FFF FF", [&] { return c->GetFrameStartOffset(s) != 0; }},
      {"Fetch", "uu u!u u!! u! uuu uu", [&] { return c->Read(&fetched, count, now, unsigned(n)); }},
      {"DataFileCount", "-- --- -.. --", [&] { return c->GetCacheDataFileCount(s) > 0; }},
      {"DataFileName", "FF FFF d.. FF xxx FF",
       [&] { return c->GetCacheDataFileName(n, text, text, s) && std::strstr(text, ".ncx"); }},
      {"OpenFileForRead", "F- ..- ..- ..", [&] { return c->OpenFileForRead(s); }},
      {"CloseFile", ".. ... ... ..", [&] { return c->CloseFile(s); }},
      {"IsOpen", "FF FFF FFF FF", [&] { return c->IsOpen(s); }},
      {"CloseFile", ".. ... ... ..", [&] { return c->CloseFile(s); }},
  };
  for (Operation& operation : operations) std::erase(operation.answers, ' ');
  for (size_t state = 0; state < std::size(kStates); ++state) {
    n = kStates[state].channel;
    for (KelStatus* status : {static_cast<KelStatus*>(nullptr), &status_}) {
      s = status;  // for which nobody need ask
      Enter(kStates[state]);
      for (const Operation& operation : operations) {
        if (state >= operation.answers.size()) continue;
        const std::string outcome = Outcome(operation.call());
        if (s == nullptr) continue;
        EXPECT_EQ(LetterOf(outcome), operation.answers[state])
            << operation.name << " in state " << state << " gives \"" << outcome << '"';
      }
    }
  }
}

}  // namespace
}  // namespace kelsdk::test
