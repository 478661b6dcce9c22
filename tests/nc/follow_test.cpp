#include <functional>
#include <memory>

#include "backends/CacheProgress.h"
#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

constexpr std::size_t kPoints = 5000;

/// Follows a writer of "shot" and runs a step after each look.
class Following : public NcTest {
 protected:
  CacheProgress Follow(const std::function<void(const CacheProgress&)>& step) {
    struct Context {
      const std::function<void(const CacheProgress&)>& step;
      CacheProgress last;
    } context = {step, {}};
    const auto told = [](void* what, const CacheProgress& progress) {
      auto& looker = *static_cast<Context*>(what);
      looker.last = progress;
      looker.step(progress);
      return ++looks_ < kMostLooks;
    };
    looks_ = 0;
    isAtWork_ = Cache::follow(Folder().c_str(), "shot", told, nullptr, &context);
    return context.last;
  }

  void Begin(const Form& form) {
    cache_ = std::make_unique<Cache>();
    ASSERT_TRUE(WriteOpen(*cache_, Folder(), "shot", form.Of(Frames(0, kPoints))));
    ASSERT_TRUE(WriteBlock(0));
  }

  bool WriteBlock(int frame) {
    Bytes array = MakeArray(zuCacheData::eNCFloatVectorArray, kPoints, frame);
    return cache_->beginWriteAtTime(frame * 250) &&
           cache_->addArrayData(0, frame * 250, array.data(), kPoints) && cache_->endWriteAtTime();
  }

  static constexpr int kMostLooks = 100;
  static inline int looks_ = 0;
  bool isAtWork_ = false;
  unsigned long calls_ = 0;
  std::unique_ptr<Cache> cache_;
};

TEST_F(Following, TellsEachBlockAndHowItEnds) {
  struct End {
    const char* name;
    std::function<void(std::unique_ptr<Cache>&)> make;
    CacheProgress::EState state;
  };
  const End ends[] = {
      {"published", [](auto& cache) { EXPECT_TRUE(cache->endFileWrite()); },
       CacheProgress::ePublished},
      {"given up", [](auto& cache) { cache->discardWrite(); }, CacheProgress::eGivenUp},
      {"died", [](auto& cache) { cache.reset(); }, CacheProgress::eDied},
  };
  constexpr int kBlocks = 40;
  for (const Form& form : kForms) {
    for (const End& end : ends) {
      SCOPED_TRACE(form.Name() + end.name);
      Begin(form);
      unsigned int blocks = 1;
      unsigned long long bytes = 0;
      unsigned long most = 0;
      const CacheProgress last = Follow([&](const CacheProgress& progress) {
        if (progress.state != CacheProgress::eAtWork) return;
        EXPECT_EQ(progress.samples, blocks);
        EXPECT_GT(progress.bytes, std::exchange(bytes, progress.bytes));
        EXPECT_EQ(progress.hasFrames, true);
        EXPECT_EQ(progress.lastFrame, blocks - 1.0);
        EXPECT_EQ(progress.promised, 0u);
        EXPECT_STREQ(progress.problem, "");
        if (blocks > 1) most = std::max(most, test::SystemCallCount() - calls_);
        if (blocks == kBlocks) return end.make(cache_);
        EXPECT_TRUE(WriteBlock(static_cast<int>(blocks++)));
        calls_ = test::SystemCallCount();
      });
      EXPECT_EQ(last.state, end.state);
      EXPECT_EQ(last.samples, blocks);
      EXPECT_LT(most, 40u) << "each look begins where the one before ended";
      cache_.reset();
    }
  }
}

TEST_F(Following, AFailureOfALookIsNoEnd) {
  for (const Form& form : kForms) {
    for (unsigned long n = 1, failed = 1; failed != 0; ++n) {
      Begin(form);
      std::optional<test::FailSystemCall> failure;
      const auto step = [&](const CacheProgress& progress) {
        EXPECT_EQ(progress.state, CacheProgress::eAtWork) << form.Name() << n;
        EXPECT_LE(progress.samples, 2u);
        if (looks_ == 0) {
          EXPECT_TRUE(WriteBlock(1));
          failure.emplace(n);
        } else if (failure) {
          failed = failure->Reached() ? 1 : 0;
          failure.reset();
        } else {
          EXPECT_EQ(progress.samples, 2u) << "seen at the next look";
          looks_ = kMostLooks;
        }
      };
      Follow(step);
      cache_->discardWrite();
    }
  }
}

TEST_F(Following, NobodyAndSeveral) {
  Follow([](const CacheProgress&) {});
  EXPECT_FALSE(isAtWork_);
  Begin(kForms[0]);
  cache_.reset();
  Follow([](const CacheProgress&) {});
  EXPECT_FALSE(isAtWork_) << "a dead one is not followed";
  Begin(kForms[0]);
  const CacheProgress last = Follow([&](const CacheProgress& progress) {
    EXPECT_EQ(progress.samples, 1u);
    if (progress.state == CacheProgress::eAtWork) cache_->discardWrite();
  });
  EXPECT_TRUE(isAtWork_) << "beside the dead one";
  EXPECT_EQ(last.state, CacheProgress::eGivenUp);
}

}  // namespace
}  // namespace kelsdk::nc
