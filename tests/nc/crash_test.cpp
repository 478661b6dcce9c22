#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <random>

#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

struct Layout {
  Cache::cacheFileFormat oldFormat;
  Cache::cacheFileFormat newFormat;
};

constexpr Layout kLayouts[] = {{Cache::eSingleFile, Cache::eSingleFile},
                               {Cache::eFilePerFrame, Cache::eFilePerFrame},
                               {Cache::eSingleFile, Cache::eFilePerFrame},
                               {Cache::eFilePerFrame, Cache::eSingleFile}};

// Writes one block after the other and tells after each that it has ended.
bool WriteTelling(const std::string& folder, const CacheSpec& spec,
                  const std::function<void()>& ended) {
  Cache cache;
  CacheSpec declared = spec;
  declared.samples.clear();
  if (!WriteOpen(cache, folder, "shot", declared)) return false;
  for (const Sample& sample : spec.samples) {
    Bytes array = sample.array;
    if (!cache.beginWriteAtTime(sample.tick) ||
        !cache.addArrayData(0, sample.tick, array.data(), CountOf(spec.channels[0].type, array)) ||
        !cache.endWriteAtTime()) {
      return false;
    }
    ended();
  }
  return cache.endFileWrite();
}

// The first blocks of a cache.
Contents FirstBlocks(const CacheSpec& spec, std::size_t count) {
  CacheSpec part = spec;
  part.samples.resize(count);
  return ContentsOf(part);
}

// Only what a reader may find between a crash and the recovery: the older cache, the newer one, or
// a refusal. Of the older one single frames may be unreadable once the renames have begun.
void ExpectNoMixture(const std::string& folder, const CacheSpec& older, const CacheSpec& newer) {
  const auto found = ReadCache(folder, "shot");
  if (!found || *found == ContentsOf(newer)) return;
  for (const auto& [tick, array] : (*found)[0]) {
    EXPECT_TRUE(array == ContentsOf(older)[0][tick]) << "a mixture at tick " << tick;
  }
}

class Crash : public NcTest {
 protected:
  // After a crash with `ended` whole blocks: recover, and see that nothing was lost.
  void RecoverAndCheck(const CacheSpec& older, const CacheSpec& newer, std::size_t ended) {
    ExpectNoMixture(Folder(), older, newer);
    unsigned int blocks = 0;
    Lines said;
    const bool recovered = Cache::recover(Folder().c_str(), "shot", blocks, Lines::Add, &said);
    EXPECT_TRUE(Verifies("shot")) << said.All();
    const auto found = ReadCache(Folder(), "shot");
    ASSERT_TRUE(found) << said.All();
    if (recovered) {
      EXPECT_GE(blocks, ended) << said.All();
      EXPECT_TRUE(*found == FirstBlocks(newer, blocks)) << said.All();
    } else if (*found != ContentsOf(newer)) {
      EXPECT_EQ(ended, 0u) << said.All();
      EXPECT_TRUE(*found == ContentsOf(older)) << said.All();
    }
    EXPECT_FALSE(Cache::recover(Folder().c_str(), "shot", blocks, nullptr, nullptr))
        << "there is nothing left";
    Cache cache;
    if (!recovered && *found != ContentsOf(newer)) return;
    ASSERT_TRUE(cache.initFileRead("shot", Folder().c_str()));
    EXPECT_EQ(test::NamesIn(folder_.path()).size(), cache.getDataFileCount())
        << "files of the older cache or of the writer are left";
  }
};

TEST_F(Crash, AtEverySystemCall) {
  for (const Layout& layout : kLayouts) {
    CacheSpec older = Frames(5, 20);
    older.format = layout.oldFormat;
    CacheSpec newer = Frames(3, 30, 50);
    newer.format = layout.newFormat;
    for (unsigned long n = 1;; ++n) {
      SCOPED_TRACE("layouts " + std::to_string(layout.oldFormat) + " and " +
                   std::to_string(layout.newFormat) + ", call " + std::to_string(n));
      ASSERT_TRUE(Write(Folder(), "shot", older));
      int ended[2];
      ASSERT_EQ(::pipe(ended), 0);
      const pid_t child = ::fork();
      if (child == 0) {
        test::DieAtSystemCall(n);
        const bool written =
            WriteTelling(Folder(), newer, [&] { (void)!::write(ended[1], "x", 1); });
        ::_exit(written ? 0 : 1);
      }
      ::close(ended[1]);
      std::size_t blocks = 0;
      for (char byte = 0; ::read(ended[0], &byte, 1) == 1;) ++blocks;
      ::close(ended[0]);
      int status = 0;
      ASSERT_EQ(::waitpid(child, &status, 0), child);
      ASSERT_TRUE(WIFEXITED(status));
      if (WEXITSTATUS(status) == 0) {
        EXPECT_TRUE(ReadCache(Folder(), "shot") == ContentsOf(newer));
        break;
      }
      ASSERT_EQ(WEXITSTATUS(status), test::kDiedStatus);
      RecoverAndCheck(older, newer, blocks);
      std::system(("rm -rf " + Folder() + "*").c_str());
    }
    std::system(("rm -rf " + Folder() + "*").c_str());
  }
}

TEST_F(Crash, KilledAtRandomMoments) {
  std::mt19937 random(7);
  for (int round = 0; round < 100; ++round) {
    CacheSpec older = Frames(20, 50);
    CacheSpec newer = Frames(60, 4000, 100);
    older.format = newer.format = round % 2 == 0 ? Cache::eSingleFile : Cache::eFilePerFrame;
    newer.tag = round % 4 < 2 ? "ncx" : "ncc";
    ASSERT_TRUE(Write(Folder(), "shot", older));
    int ended[2];
    ASSERT_EQ(::pipe(ended), 0);
    const pid_t child = ::fork();
    if (child == 0) {
      ::_exit(WriteTelling(Folder(), newer, [&] { (void)!::write(ended[1], "x", 1); }) ? 0 : 1);
    }
    ::close(ended[1]);
    ::usleep(std::uniform_int_distribution<useconds_t>(0, 30000)(random));
    ::kill(child, SIGKILL);
    std::size_t blocks = 0;
    for (char byte = 0; ::read(ended[0], &byte, 1) == 1;) ++blocks;
    ::close(ended[0]);
    ::waitpid(child, nullptr, 0);
    SCOPED_TRACE("round " + std::to_string(round) + ", " + std::to_string(blocks) + " blocks");
    RecoverAndCheck(older, newer, blocks);
    std::system(("rm -rf " + Folder() + "*").c_str());
  }
}

TEST_F(Crash, RecoverTakesTheNewestAndLeavesTheLiving) {
  ASSERT_TRUE(Write(Folder(), "shot", Frames(2, 10)));
  const CacheSpec first = Frames(4, 10, 20);
  const CacheSpec second = Frames(3, 10, 40);
  for (const CacheSpec* spec : {&first, &second}) {
    Cache cache;
    ASSERT_TRUE(WriteOpen(cache, Folder(), "shot", *spec));
  }
  Cache living;
  ASSERT_TRUE(WriteOpen(living, Folder(), "shot", Frames(1, 10, 60)));
  unsigned int blocks = 0;
  Lines said;
  EXPECT_TRUE(Cache::recover(Folder().c_str(), "shot", blocks, Lines::Add, &said)) << said.All();
  EXPECT_EQ(blocks, 3u);
  EXPECT_TRUE(ReadCache(Folder(), "shot") == ContentsOf(second));
  EXPECT_NE(said.All().find("a living writer"), std::string::npos);
  EXPECT_FALSE(Cache::recover(Folder().c_str(), "shot", blocks, nullptr, nullptr))
      << "the first is older than what stands there now";
  EXPECT_TRUE(living.endFileWrite()) << living.errorString();
}

TEST_F(Crash, AWriterThatWroteNothingLeavesNothing) {
  {
    Cache cache;
    CacheSpec spec = Frames(0, 0);
    ASSERT_TRUE(WriteOpen(cache, Folder(), "shot", spec));
  }
  EXPECT_TRUE(test::NamesIn(folder_.path()).empty());
}

}  // namespace
}  // namespace kelsdk::nc
