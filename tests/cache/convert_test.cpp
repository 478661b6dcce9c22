#include <limits>

#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

class Conversion : public StandInTest {
 protected:
  bool ToNC(double rate = 24, int fileCount = 0, int binaryFormat = 1) {
    return cache_->ConvertFromPC2ToNC(static_cast<KelCache::ENCFileCount>(fileCount), rate,
                                      static_cast<KelCache::ENCBinaryFormat>(binaryFormat),
                                      &status_);
  }
  bool ToPC2(double rate = 24, unsigned int channel = 0) {
    return cache_->ConvertFromNCToPC2(rate, channel, &status_);
  }
  void Name(KelCache::EFileFormat format, const std::string& relative,
            const std::string& absolute) {
    cache_->SetCacheFileFormat(format, nullptr);
    cache_->SetCacheFileName(relative.c_str(), absolute.c_str(), nullptr);
  }
};

TEST_F(Conversion, RatesComeFirst) {
  for (const double rate : {0.0, -24.0, 1e-17, 1e-6, std::numeric_limits<double>::quiet_NaN()}) {
    Soil();
    EXPECT_FALSE(ToNC(rate));
    ExpectStatus(KelStatus::eFailure, "Invalid sampling rate");
    EXPECT_FALSE(ToPC2(rate));
    ExpectStatus(KelStatus::eFailure, "Invalid sampling rate");
  }
}

TEST_F(Conversion, AnotherFormatLeavesTheStatusAlone) {
  for (int format = 0; format < 5; ++format) {
    cache_->SetCacheFileFormat(static_cast<KelCache::EFileFormat>(format), nullptr);
    Soil();
    if (format != 1) {
      EXPECT_FALSE(ToNC());
    }
    if (format != 2) {
      EXPECT_FALSE(ToPC2());
    }
    ExpectSoiled();
  }
  EXPECT_EQ(TheRecorder().Take(), "");
}

TEST_F(Conversion, ArgumentsOfThePC2Side) {
  const std::string here = folder_.path() + "/";
  const struct {
    double rate;
    int fileCount, binaryFormat;
    const char* expected;
  } cases[] = {{24, 0, 0, "0, ncc, 250"},
               {29.97, 1, 1, "1, ncx, 200"},
               {23.976, 2, 7, "0, ncx, 250"},
               {10000, 1, 0, "1, ncc, 0"}};
  Name(KelCache::ePC2Format, "none", here + "shot.pc2");
  for (const auto& c : cases) {
    Soil();
    EXPECT_TRUE(ToNC(c.rate, c.fileCount, c.binaryFormat));
    ExpectClear();
    EXPECT_EQ(TheRecorder().Take(),
              "nc.convertFromPc2(" + here + "shot.pc2, " + here + ", shot, " + c.expected + ")");
  }
  TheRecorder().refused = {"nc.convertFromPc2"};
  EXPECT_FALSE(ToNC());
  ExpectStatus(KelStatus::eFailure, "Conversion from PC2 to NC failed");
  EXPECT_EQ(cache_->GetCacheFileFormat(), KelCache::ePC2Format);
}

TEST_F(Conversion, ArgumentsOfTheNCSide) {
  const std::string here = folder_.path() + "/";
  WriteBytes(here + "run.XML", {0});
  WriteBytes(here + "run.cache", {0});
  const struct {
    std::string name, expected;
  } cases[] = {{here + "shot.xml", here + "shot.pc2, " + here + ", shot, 7, 240"},
               {here + "run.XML", here + "run.pc2, " + here + ", run, 7, 240"},
               {here + "run.cache", here + "run.capc2, " + here + ", run, 7, 240"}};
  for (const auto& c : cases) {
    Name(KelCache::eNCFormat, "", c.name);
    EXPECT_TRUE(ToPC2(25, 7));
    EXPECT_EQ(TheRecorder().Take(), "nc.convertToPc2(" + c.expected + ")");
  }
  TheRecorder().refused = {"nc.convertToPc2"};
  EXPECT_FALSE(ToPC2());
  ExpectStatus(KelStatus::eFailure, "Conversion from NC to PC2 failed");
}

TEST_F(Conversion, TheFallbackTestsTheRebuiltNameAndPassesTheResolvedOne) {
  const std::string here = folder_.path() + "/";
  Name(KelCache::ePC2Format, here + "a\\..\\shot.any", "C:\\no\\x.pc2");
  EXPECT_TRUE(ToNC());
  EXPECT_EQ(TheRecorder().Take(),
            "nc.convertFromPc2(" + here + "shot.any, " + here + ", shot, 0, ncx, 250)");
  Name(KelCache::ePC2Format, "/rel/y.any", "C:\\no\\x.pc2");
  EXPECT_FALSE(ToNC());
  ExpectStatus(KelStatus::eFailure, "Cache file not found: C:/no/x.pc2, /rel/y.pc2");
  Name(KelCache::eNCFormat, "/rel/y.any", "/no/x.xml");
  EXPECT_FALSE(ToPC2());
  ExpectStatus(KelStatus::eFailure, "Cache file not found: /no/x.xml, /rel/y.xml");
}

TEST_F(Conversion, WithoutMemoryNothingIsConverted) {
  Name(KelCache::ePC2Format, "", folder_.File("shot.pc2"));
  FailEachAllocation([&] { ToNC(); }, EAllocations::eKelMalloc);
  Name(KelCache::eNCFormat, "", folder_.File("shot.xml"));
  FailEachAllocation([&] { ToPC2(); }, EAllocations::eKelMalloc);
  const std::string here = folder_.path() + "/";
  for (const std::string& call : TheRecorder().calls) {
    EXPECT_TRUE(call ==
                    "nc.convertFromPc2(" + here + "shot.pc2, " + here + ", shot, 0, ncx, 250)" ||
                call == "nc.convertToPc2(" + here + "shot.pc2, " + here + ", shot, 0, 250)")
        << call;
  }
}

}  // namespace
}  // namespace kelsdk::test
