// Memory and system calls that fail, and processes that die, at every point of every operation on
// every kind of cache, and writers that are killed at any moment.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <random>
#include <tuple>

#include "tests/faults/stores.h"

namespace kelsdk::test {
namespace {

constexpr Animation kOlder = {1, 4, 2};
constexpr Animation kNewer = {2, 3, 2};

struct Fault {
  const char* name;
  enum EKind { eAllocation, eSystemCall, eDeath } kind;
  int error = 0;
  bool andAllLater = false;
};

constexpr Fault kFaults[] = {{"allocation fails", Fault::eAllocation},
                             {"EIO", Fault::eSystemCall, EIO},
                             {"EINTR", Fault::eSystemCall, EINTR},
                             {"ENOSPC for good", Fault::eSystemCall, ENOSPC, true},
                             {"death", Fault::eDeath}};

// A process of its own that runs `body`.
template <typename Body>
pid_t Start(Body&& body) {
  const pid_t process = ::fork();
  if (process != 0) return process;
  body();
  ::_exit(0);
}

// Runs `body` with the n-th allocation or system call failing or never made; false when there are
// fewer.
bool RunWithFault(const Fault& fault, unsigned long n, const std::function<void()>& body) {
  const auto fails = [&body](auto&& failure) {
    body();
    return failure.Reached();
  };
  if (fault.kind == Fault::eAllocation) return fails(FailAllocation(n));
  if (fault.kind == Fault::eSystemCall) {
    return fails(FailSystemCall(n, fault.error, fault.andAllLater));
  }
  int status = 0;
  ::waitpid(Start([&] {
              DieAtSystemCall(n);
              body();
            }),
            &status, 0);
  EXPECT_TRUE(WIFEXITED(status));
  return WEXITSTATUS(status) == kDiedStatus;
}

enum EOperation { eRead, eWrite, eRecover, eRecoverByForce, eFromPC2, eToPC2 };

struct Operation {
  const char* name;
  EOperation operation;
  unsigned long fewestPoints;

  friend void PrintTo(const Operation& one, std::ostream* out) { *out << one.name; }
};

constexpr Operation kOperations[] = {
    {"read", eRead, 5},         {"write", eWrite, 12},
    {"recover", eRecover, 11},  {"recover_by_force", eRecoverByForce, 11},
    {"from_PC2", eFromPC2, 25}, {"to_PC2", eToPC2, 15}};

class Faults : public StoreTest, public testing::WithParamInterface<std::tuple<Store, Operation>> {
 protected:
  // Lays out what the operation finds. A compact cache replaces one of the other layout.
  void SetUp() override {
    if (operation_ == eToPC2) std::swap(source_, target_);
    if (operation_ >= eFromPC2 || !target_.IsNC()) older_.channels = newer_.channels = 1;
    Store replaced = target_;
    if (replaced.binary == KelCache::eNCBinaryC) {
      replaced.files = static_cast<KelCache::ENCFileCount>(1 - replaced.files);
    }
    targetPath_ = PathOf(target_);
    sourcePath_ = PathOf(source_);
    WriteCache(replaced, targetPath_, older_, steps_);
    if (operation_ >= eFromPC2) WriteCache(source_, sourcePath_, newer_, steps_);
    if (Recovers()) WriteCache(target_, targetPath_, newer_, steps_, false);
    Keep();
  }

  bool Recovers() const { return operation_ == eRecover || operation_ == eRecoverByForce; }

  void Operate() {
    unsigned int saved = 0;
    if (operation_ == eRead) ReadInBothWays();
    if (operation_ == eWrite) WriteCache(target_, targetPath_, newer_, steps_);
    if (Recovers()) Recover(target_, targetPath_, work_, operation_ == eRecoverByForce, saved);
    if (operation_ >= eFromPC2) Convert();
  }

  // Opens, reads in both ways, closes. Whatever fails, what is delivered is right.
  void ReadInBothWays() {
    const CacheObject object(target_.format, targetPath_);
    if (object.get() == nullptr) return;
    double values[kValues] = {-1};
    double expected[kValues];
    KelTime time = KelTime::FromFrame(2);
    object->OpenFileForRead(nullptr);
    older_.Fill(2, 0, expected);
    const bool read = target_.IsNC() ? object->Read(0, time, values, kPoints, nullptr)
                                     : object->Read(2U, values, kPoints, nullptr);
    EXPECT_TRUE(!read || std::equal(values, values + kValues, expected));
    EXPECT_TRUE(read || target_.IsNC() || values[0] == -1) << "a sample in part";
    // Of the same time, then of another.
    for (const unsigned int sample : {2U, 1U}) {
      float* fetched = nullptr;
      unsigned int length = 0;
      older_.Fill(sample, older_.channels - 1, expected);
      const bool done =
          object->Read(&fetched, length, KelTime::FromFrame(sample), older_.channels - 1);
      EXPECT_TRUE(length == (done ? kValues : 0) && (fetched != nullptr) == done);
      EXPECT_TRUE(std::equal(fetched, fetched + length, expected));
    }
    EXPECT_TRUE(object->CloseFile(nullptr));
    EXPECT_FALSE(object->IsOpen(nullptr));
  }

  void Convert() {
    const CacheObject object(source_.format, sourcePath_);
    if (object.get() == nullptr) return;
    converted_ = source_.IsNC()
                     ? object->ConvertFromNCToPC2(24, 0, nullptr)
                     : object->ConvertFromPC2ToNC(store_.files, 24, store_.binary, nullptr);
  }

  // The samples that must not get lost.
  unsigned int Sure(const Fault& fault) const {
    if (Recovers() || converted_) return newer_.samples;
    if (operation_ != eWrite) return 0;
    const unsigned int confirmed = Confirmed(newer_.samples);
    // That a block could not be ended shows with the next one only.
    const bool isSure = !target_.IsNC() || fault.kind == Fault::eDeath || confirmed == 0;
    return isSure ? confirmed : confirmed - 1;
  }

  // What the operation left is whole, and without a fault it succeeds.
  void ExpectSound(const Fault& fault) {
    const bool isOnce = fault.kind != Fault::eDeath && !fault.andAllLater;
    unsigned int stands = 0;
    if (operation_ == eRead) {
      EXPECT_TRUE(ReadCache(target_, targetPath_) == older_.All());
    } else {
      Allowed allowed;
      allowed.endsEarly = fault.kind == Fault::eAllocation && operation_ == eWrite;
      allowed.olderGone = !Recovers();
      allowed.otherNames = target_.binary == KelCache::eNCBinaryC;
      allowed.force = operation_ == eRecoverByForce;
      stands = ExpectNothingLost(target_, older_, newer_, Sure(fault), allowed);
    }
    if (operation_ >= eFromPC2) {
      EXPECT_TRUE(ReadCache(source_, sourcePath_) == newer_.All()) << "the source has suffered";
      EXPECT_TRUE(!isOnce || stands == 0 || stands == newer_.samples) << "half a conversion";
    } else if (stands > 0 && fault.kind == Fault::eDeath) {
      ExpectOnlyFilesOfCaches(target_);
    }
    if (Recovers()) return;  // done
    Operate();
    EXPECT_TRUE(ReadCache(target_, targetPath_) == (operation_ == eRead ? older_ : newer_).All());
    EXPECT_TRUE(Verifies(target_));
  }

  const Store store_ = std::get<0>(GetParam());
  const EOperation operation_ = std::get<1>(GetParam()).operation;
  Store target_ = store_;
  Store source_ = kPC2;
  std::string targetPath_;
  std::string sourcePath_;
  Animation older_ = kOlder;
  Animation newer_ = kNewer;
  bool converted_ = false;
};

TEST_P(Faults, EveryPointInTurn) {
  const Operation& operation = std::get<1>(GetParam());
  for (const Fault& fault : kFaults) {
    unsigned long visited = 0;
    for (bool reached = true; reached && !HasFailure(); ++visited) {
      SCOPED_TRACE(std::string(fault.name) + ", point " + std::to_string(visited + 1));
      Restore();
      steps_ = 0;
      converted_ = false;
      const long blocks = OutstandingBlocks();
      const int descriptors = OpenDescriptors();
      reached = RunWithFault(fault, visited + 1, [this] { Operate(); });
      EXPECT_EQ(OutstandingBlocks(), blocks);
      EXPECT_EQ(OpenDescriptors(), descriptors);
      ExpectSound(fault);
    }
    --visited;  // the last is the run without a fault
    std::printf("%-14s %-9s %-16s %5lu points\n", store_.name, operation.name, fault.name, visited);
    EXPECT_GE(visited, operation.fewestPoints);
  }
}

std::string NameOf(const testing::TestParamInfo<std::tuple<Store, Operation>>& param) {
  return std::string(std::get<0>(param.param).name) + "_" + std::get<1>(param.param).name;
}

INSTANTIATE_TEST_SUITE_P(OfOneCache, Faults,
                         testing::Combine(testing::ValuesIn(kStores),
                                          testing::ValuesIn(kOperations, kOperations + 4)),
                         NameOf);
INSTANTIATE_TEST_SUITE_P(OfConversions, Faults,
                         testing::Combine(testing::ValuesIn(kStores + 1, std::end(kStores)),
                                          testing::ValuesIn(kOperations + 4,
                                                            std::end(kOperations))),
                         NameOf);

class Killed : public StoreTest, public testing::WithParamInterface<Store> {};

// The moments cover all of a writer's life; a quarter of them fall into its end, when the cache is
// put in its place, short as that is.
TEST_P(Killed, AtRandomMoments) {
  constexpr unsigned int kRounds = 125;
  constexpr Animation kOld = {1, 20};
  constexpr Animation kNew = {2, 60};
  constexpr unsigned int kLastStep = kNew.samples + 3;
  const Store store = GetParam();
  const std::string path = PathOf(store);
  WriteCache(store, path, kOld, steps_);
  Keep();
  std::mt19937 random(7);
  const auto below = [&](unsigned int limit) {
    return static_cast<unsigned int>(random() % limit);
  };
  unsigned int within = 0, closing = 0, confirmed = 0, found = 0;
  for (unsigned int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    Restore();
    steps_ = 0;
    const pid_t process = Start([&] { WriteCache(store, path, kNew, steps_); });
    const unsigned int step = below(4) == 0 ? kLastStep - 1 : below(kLastStep);
    while (steps_ < step) ::usleep(10);
    ::usleep(below(200));
    ::kill(process, SIGKILL);
    ::waitpid(process, nullptr, 0);

    (steps_ < kLastStep - 1 ? within : closing)++;
    const unsigned int sure = Confirmed(kNew.samples);
    const unsigned int stands = ExpectNothingLost(store, kOld, kNew, sure, {});
    if (stands > 0) ExpectOnlyFilesOfCaches(store);
    confirmed += sure;
    found += stands;
  }
  std::printf("%-14s %u kills while writing, %u at the end; %u samples confirmed, %u found\n",
              store.name, within, closing, confirmed, found);
  EXPECT_TRUE(within > 0 && closing > 0);
}

INSTANTIATE_TEST_SUITE_P(WhileWriting, Killed, testing::ValuesIn(kStores),
                         [](const auto& param) { return std::string(param.param.name); });

}  // namespace
}  // namespace kelsdk::test
