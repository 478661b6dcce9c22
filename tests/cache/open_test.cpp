// Opening and converting: which names are looked for, and what the back-ends are then asked.
#include <algorithm>
#include <filesystem>
#include <limits>

#include "tests/cache/standins.h"

namespace kelsdk::test {
namespace {

class CacheOpening : public StandInTest {
 protected:
  void Begin(const std::set<std::string>& refused) {
    Renew();
    TakeCalls();
    answers.refused = refused;
    Status();
  }
};

TEST_F(CacheOpening, SucceedsWholeOrEndsTheBackEnd) {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  constexpr auto kUnknown = KelCache::eUnknownFormat;
  const std::string created = "1 Cache file could not be created: " + folder_.path() + "/shot";
  const std::string pc2 = "zuPointCache2IO(); initialize(here/shot.any, ";
  const std::string nc = "zuCacheFileInterface(); initFile";
  const std::string abc = "AlembicInterface(1); Open(here/shot.any, 1)";
  const std::string ncWrite = nc + "Write(here/, shot, 0, ncx, 250)";
  const struct {
    KelCache::EFileFormat format;
    KelCache::EOpenFlag flag;
    double rate;
    const char* refused;
    std::string outcome, calls;
  } rows[] = {
      {kUnknown, kRead, 24, "", "1 Invalid/unspecified cache format", ""},
      {kNC, kWrite, 1e-7, "", "1 Invalid sampling rate", ""},
      {kAbc, kRead, kNaN, "", "1 Invalid sampling rate", ""},
      {kOtherFormat, kWrite, 24, "", "", ""},
      {kAbc, kWrite, 24, "", "1 Alembic Cache file write is not supported", ""},
      {kPC2, kRead, 24, "", "done", pc2 + "0)"},
      {kPC2, kRead, 24, "initialize", "", pc2 + "0); ~zuPointCache2IO()"},
      {kPC2, kWrite, 1e-7, "", "done", pc2 + "1); beginWriteData(2, 3, 10.25, 1)"},
      {kPC2, kWrite, 24, "beginWriteData", created,
       pc2 + "1); beginWriteData(2, 3, 10.25, 1); ~zuPointCache2IO()"},
      {kNC, kRead, 1e-7, "", "done", nc + "Read(shot, here/); setOptimizeMultiChannelRead(1)"},
      {kNC, kRead, 24, "initFileRead", "", nc + "Read(shot, here/); ~zuCacheFileInterface()"},
      {kNC, kWrite, 24, "", "done", ncWrite + "; addChannel(shot, Points, 6)"},
      {kNC, kWrite, 24, "addChannel", created,
       ncWrite + "; addChannel(shot, Points, 6); ~zuCacheFileInterface()"},
      {kAbc, kRead, 24, "", "done", abc},
      {kAbc, kRead, 24, "Open", "", abc + "; ~AlembicInterface()"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.refused + row.outcome + row.calls);
    Begin({row.refused});
    EXPECT_EQ(Outcome(Open(row.format, row.flag, row.rate)), row.outcome);
    EXPECT_EQ(CallsHere(), row.calls);
    EXPECT_EQ(cache_->IsOpen(nullptr), row.outcome == "done");
    // What was asked of a back-end and refused, or may be asked next, it tells in its own words.
    EXPECT_STREQ(cache_->GetErrorString(), row.calls.empty() ? "" : WordsOf(row.format));
  }
  cache_->CloseFile(nullptr);
  answers = {.version = 2};
  TakeCalls();
  EXPECT_EQ(Outcome(Open(kPC2, kRead)), "1 Unsupported file version");
  EXPECT_EQ(CallsHere(), pc2 + "0); ~zuPointCache2IO()");
  EXPECT_FALSE(cache_->OpenFileForWrite(0, 24, 1, kWrapping, &status_));
  EXPECT_EQ(Status(), created);
  EXPECT_EQ(TakeCalls(), "");
}

// Which names are looked for, and what is then asked of the back-end. The current folder is that of
// the files.
TEST_F(CacheOpening, NamesAreLookedForByThePathRules) {
  using Ask = bool (*)(KelCache&, double rate, KelStatus*);
  const Ask open = [](KelCache& cache, double, KelStatus* status) {
    return cache.OpenFileForRead(status);
  };
  // The very file, whatever its extension, where a format has one file.
  const Ask named = [](KelCache& cache, double, KelStatus* status) {
    return cache.OpenNamedFileForRead(status);
  };
  // Has no fallback and needs no file.
  const Ask write = [](KelCache& cache, double rate, KelStatus* status) {
    return cache.OpenFileForWrite(KelCache::eNCFilePerFrame, rate, "c", KelCache::eNCBinaryC,
                                  KelCache::eNCInt32Array, "w", status);
  };
  const Ask toNC = [](KelCache& cache, double rate, KelStatus* status) {
    return cache.ConvertFromPC2ToNC(KelCache::eNCFilePerFrame, rate, KelCache::eNCBinaryC, status);
  };
  // The target is the source with its last three characters replaced.
  const Ask toPC2 = [](KelCache& cache, double rate, KelStatus* status) {
    return cache.ConvertFromNCToPC2(rate, 5, status);
  };
  const std::string here = folder_.path() + "/";
  std::string back = Path("any");
  std::replace(back.begin(), back.end(), '/', '\\');
  const std::string pc2 = "zuPointCache2IO(); initialize(";
  const std::string nc = "zuCacheFileInterface(); initFile";
  const struct {
    Ask ask;
    KelCache::EFileFormat format;
    std::string absolute, relative;
    double rate;
    std::string outcome, calls;
  } rows[] = {
      // shot.pc2 must exist, and the name as it stands is opened.
      {open, kPC2, back, "none", 24, "done", pc2 + "here/shot.any, 0)"},
      {open, kPC2, "/nowhere/x.pc2", Path("pc2"), 24, "done", pc2 + "here/shot.pc2, 0)"},
      {open, kPC2, "", "sub\\..\\shot.any", 24, "done", pc2 + "here/shot.any, 0)"},
      {open, kPC2, "shot.pc2", "", 24, "done", pc2 + "shot.pc2, 0)"},
      {open, kNC, "C:\\cache\\b.pc2", "/rel\\a.x.pc2", 24,
       "1 Cache file not found: C:/cache/b.xml, /rel/a.x.xml", ""},
      {write, kNC, "new.any", "shot.any", 29.97, "done",
       nc + "Write(./, new, 1, ncc, 200); addChannel(c, w, 4)"},
      {named, kPC2, here + "odd.bin", Path("pc2"), 24, "done", pc2 + "here/odd.bin, 0)"},
      {named, kAbc, here + "odd.bin", "", 24, "done", "AlembicInterface(1); Open(here/odd.bin, 1)"},
      {named, kNC, Path("xml"), "", 24, "done",
       nc + "Read(shot, here/); setOptimizeMultiChannelRead(1)"},
      {named, kPC2, here + "none", "shot.pc2", 24, "1 Cache file not found: " + here + "none", ""},
      {toNC, kPC2, Path("pc2"), "", 29.97, "done",
       "convertFromPc2(here/shot.pc2, here/, shot, 1, ncc, 200)"},
      {toNC, kPC2, "C:\\no\\x.pc2", here + "a\\..\\shot.any", 24, "done",
       "convertFromPc2(here/shot.any, here/, shot, 1, ncc, 250)"},
      {toPC2, kNC, here + "long.cache", "", 24, "done",
       "convertToPc2(here/long.capc2, here/, long, 5, 250)"},
      {toPC2, kNC, Path("xml"), "", 0, "1 Invalid sampling rate", ""},
      {toPC2, kNC, "/no/x.xml", "/rel/y.any", 24, "1 Cache file not found: /no/x.xml, /rel/y.xml",
       ""},
      {toNC, kAbc, Path("pc2"), "", 24, "untouched", ""},
  };
  for (const char* name : {"odd.bin", "long.cache"}) WriteBytes(here + name, {0});
  std::filesystem::create_directory(here + "sub");
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(here);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.absolute + row.relative + row.calls);
    Begin({});
    object_->Name(row.format, row.absolute, row.relative);
    EXPECT_EQ(Outcome(row.ask(*cache_, row.rate, &status_)), row.outcome);
    EXPECT_EQ(CallsHere(), row.calls);
    answers.refused = {"convertFromPc2", "convertToPc2"};
    const bool isOpen = cache_->IsOpen(nullptr);
    EXPECT_EQ(row.ask(*cache_, row.rate, &status_), isOpen) << "as it is";
    EXPECT_EQ(Status().ends_with("failed"), !isOpen && row.outcome == "done");
  }
  std::filesystem::current_path(before);
}

}  // namespace
}  // namespace kelsdk::test
