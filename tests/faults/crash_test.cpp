// Processes that end while they write or recover: at every system call, and at any moment.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>

#include "tests/faults/stores.h"

namespace kelsdk::test {
namespace {

/// A process of its own that runs `body` with a pipe to tell its progress through.
class Child {
 public:
  template <typename Body>
  explicit Child(Body&& body) {
    int ends[2];
    if (::pipe(ends) != 0) ::abort();
    process_ = ::fork();
    if (process_ == 0) {
      body(ends[1]);
      ::_exit(0);
    }
    ::close(ends[1]);
    pipe_ = ends[0];
  }
  ~Child() { ::close(pipe_); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// Waits until it has told one thing more; false when it has ended.
  bool Listen() {
    char byte = 0;
    if (::read(pipe_, &byte, 1) != 1) return false;
    told_ += byte;
    return true;
  }
  void Kill() { ::kill(process_, SIGKILL); }
  /// Waits for its end; its exit status, or -1 when it was killed.
  int Wait() {
    while (Listen()) {
    }
    int status = 0;
    ::waitpid(process_, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  bool HasTold(ETold what) const { return told_.find(what) != std::string::npos; }
  unsigned int Confirmed() const {
    return static_cast<unsigned int>(std::count(told_.begin(), told_.end(), eToldSample));
  }

 private:
  pid_t process_ = 0;
  int pipe_ = -1;
  std::string told_;
};

class Crash : public StoreTest, public testing::WithParamInterface<Store> {
 protected:
  // Also the older cache's files and the writer's are gone once a newer one stands.
  unsigned int ExpectSound(const Animation& older, const Animation& newer, unsigned int confirmed) {
    const unsigned int saved = ExpectNothingLost(store_, older, newer, confirmed);
    if (saved == 0) return saved;
    std::size_t files = 1;
    if (store_.IsNC()) {
      const StoreObject object(store_, PathOf(store_).c_str());
      EXPECT_TRUE(object->OpenFileForRead(nullptr));
      files += static_cast<std::size_t>(object->GetCacheDataFileCount(nullptr));
    }
    EXPECT_EQ(NamesIn(work_).size(), files) << "files of the older cache or the writer are left";
    return saved;
  }

  const Store store_ = GetParam();
  const std::string path_ = PathOf(store_);
};

TEST_P(Crash, AtEverySystemCall) {
  const Animation older = {1, 5};
  const Animation newer = {2, 3};
  for (const Store& replaced : kStores) {
    for (const bool recovers : {false, true}) {
      if (replaced.format != store_.format) continue;
      Clear();
      WriteCache(replaced, path_.c_str(), older);
      if (recovers) WriteCache(store_, path_.c_str(), newer, false);
      Keep();
      for (unsigned long n = 1;; ++n) {
        SCOPED_TRACE(std::string(replaced.name) + (recovers ? ", recovered" : ", written") +
                     ", call " + std::to_string(n));
        Restore();
        Child child([&](int pipe) {
          DieAtSystemCall(n);
          unsigned int saved = 0;
          if (recovers) {
            Recover(store_, path_.c_str(), saved);
          } else {
            WriteCache(store_, path_.c_str(), newer, true, pipe);
          }
        });
        const int status = child.Wait();
        const unsigned int saved =
            ExpectSound(older, newer, recovers ? newer.samples : child.Confirmed());
        if (status == 0) {
          EXPECT_EQ(saved, newer.samples);
          EXPECT_GT(n, 10U);
          break;
        }
        ASSERT_EQ(status, kDiedStatus);
      }
    }
  }
}

using Clock = std::chrono::steady_clock;

// How long a writer takes to the first thing that it tells and from each to the next.
std::vector<Clock::duration> SpansOf(Child& writer) {
  std::vector<Clock::duration> spans;
  for (auto last = Clock::now(); writer.Listen(); last += spans.back()) {
    spans.push_back(Clock::now() - last);
  }
  writer.Wait();
  return spans;
}

// The moments cover all of a writer's life; a quarter of them fall into its end, when the cache is
// put in its place, short as that is.
TEST_P(Crash, KilledAtRandomMoments) {
  constexpr unsigned int kRounds = 125;
  const Animation older = {1, 20};
  const Animation newer = {2, 60};
  const auto write = [&](int pipe) { WriteCache(store_, path_.c_str(), newer, true, pipe); };
  Clear();
  WriteCache(store_, path_.c_str(), older);
  Keep();
  Child measured(write);
  const std::vector<Clock::duration> spans = SpansOf(measured);
  ASSERT_EQ(spans.size(), newer.samples + 3);

  std::mt19937 random(7);
  unsigned int before = 0, within = 0, closing = 0, after = 0, confirmed = 0, saved = 0, lost = 0;
  for (unsigned int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    Restore();
    const std::size_t heard = random() % 4 == 0 ? spans.size() - 1 : random() % spans.size();
    Child child(write);
    for (std::size_t i = 0; i < heard; ++i) child.Listen();
    const auto until = Clock::now() + spans[heard] * static_cast<int>(random() % 100) / 100;
    while (Clock::now() < until) {
    }
    child.Kill();
    child.Wait();
    (child.HasTold(eToldClosed)    ? after
     : child.HasTold(eToldClosing) ? closing
     : child.HasTold(eToldOpen)    ? within
                                   : before)++;
    const unsigned int found = ExpectSound(older, newer, child.Confirmed());
    confirmed += child.Confirmed();
    saved += found;
    lost += child.Confirmed() - std::min(found, child.Confirmed());
  }
  std::printf(
      "%-14s %u kills: %u before, %u while writing, %u while closing, %u after; "
      "%u samples confirmed, %u found, %u lost\n",
      store_.name, kRounds, before, within, closing, after, confirmed, saved, lost);
  EXPECT_EQ(lost, 0U);
  EXPECT_GT(within, 0U);
  EXPECT_GT(closing + after, 0U);
}

INSTANTIATE_TEST_SUITE_P(OfEveryStore, Crash, testing::ValuesIn(kStores),
                         [](const auto& param) { return std::string(param.param.name); });

}  // namespace
}  // namespace kelsdk::test
