// Memory and system calls that fail, each in its turn, in every operation on every kind of cache.
#include <cerrno>
#include <cstdio>
#include <functional>
#include <tuple>

#include "tests/faults/stores.h"

namespace kelsdk::test {
namespace {

constexpr Animation kOlder = {1, 4, 2};
constexpr Animation kNewer = {2, 3, 2};

struct Fault {
  const char* name;
  int error = 0;  // 0: an allocation
  bool andAllLater = false;
};

constexpr Fault kFaults[] = {
    {"allocations"}, {"EIO", EIO}, {"EINTR", EINTR}, {"ENOSPC for good", ENOSPC, true}};

// Runs `body` with the n-th allocation or system call failing; false when there are fewer.
bool RunWithFault(const Fault& fault, unsigned long n, const std::function<void()>& body) {
  if (fault.error == 0) {
    const FailAllocation failure(n);
    body();
    return failure.Reached();
  }
  const FailSystemCall failure(n, fault.error, fault.andAllLater);
  body();
  return failure.Reached();
}

enum EOperation { eRead, eWrite, eRecover, eFromPC2, eToPC2 };

struct Operation {
  const char* name;
  EOperation operation;
  unsigned long fewestAllocations;
  unsigned long fewestSystemCalls;
};

constexpr Operation kOperations[] = {{"read", eRead, 30, 5},
                                     {"write", eWrite, 20, 10},
                                     {"recover", eRecover, 12, 10},
                                     {"from_PC2", eFromPC2, 60, 30},
                                     {"to_PC2", eToPC2, 30, 18}};

class Faults : public StoreTest, public testing::WithParamInterface<std::tuple<Store, Operation>> {
 protected:
  // Lays out what the operation finds.
  void SetUp() override {
    Clear();
    if (operation_ == eToPC2) std::swap(source_, target_);
    if (operation_ >= eFromPC2 || !target_.IsNC()) older_.channels = newer_.channels = 1;
    targetPath_ = PathOf(target_);
    sourcePath_ = PathOf(source_);
    WriteCache(target_, targetPath_.c_str(), older_);
    if (operation_ >= eFromPC2) WriteCache(source_, sourcePath_.c_str(), newer_);
    if (operation_ == eRecover) WriteCache(target_, targetPath_.c_str(), newer_, false);
    Keep();
  }

  void Operate() {
    confirmed_ = 0;
    unsigned int saved = 0;
    switch (operation_) {
      case eRead: ReadInBothWays(); break;
      case eWrite:
        confirmed_ = WriteCache(target_, targetPath_.c_str(), newer_);
        // That a block could not be ended shows with the next one only.
        if (target_.IsNC() && confirmed_ > 0) --confirmed_;
        break;
      case eRecover:
        confirmed_ = newer_.samples;
        Recover(target_, targetPath_.c_str(), saved);
        break;
      case eFromPC2:
      case eToPC2: Convert(); break;
    }
  }

  // Opens, reads in both ways, closes. Whatever fails, what is delivered is right.
  void ReadInBothWays() {
    const StoreObject object(target_, targetPath_.c_str());
    if (object.cache == nullptr) return;
    double values[kValues] = {-1};
    double expected[kValues];
    float* fetched = nullptr;
    unsigned int length = 0;
    KelStatus status;
    if (object->OpenFileForRead(&status)) {
      KelTime time = KelTime::FromFrame(2);
      older_.Fill(2, 0, expected);
      if (target_.IsNC() ? object->Read(0, time, values, kPoints, &status)
                         : object->Read(2U, values, kPoints, &status)) {
        EXPECT_TRUE(std::equal(values, values + kValues, expected));
      } else if (!target_.IsNC()) {
        EXPECT_EQ(values[0], -1.0);
        EXPECT_EQ(status.GetCode(), KelStatus::eFailure);
      }
      older_.Fill(1, older_.channels - 1, expected);
      if (object->Read(&fetched, length, KelTime::FromFrame(1), older_.channels > 1 ? 1 : 0)) {
        EXPECT_TRUE(length == kValues && std::equal(fetched, fetched + length, expected));
      } else {
        EXPECT_TRUE(fetched == nullptr && length == 0);
      }
    }
    EXPECT_TRUE(object->CloseFile(&status));
    EXPECT_FALSE(object->IsOpen(nullptr));
  }

  void Convert() {
    const StoreObject object(source_, sourcePath_.c_str());
    if (object.cache == nullptr) return;
    const bool converted =
        source_.IsNC() ? object->ConvertFromNCToPC2(24, 0, nullptr)
                       : object->ConvertFromPC2ToNC(store_.files, 24, store_.binary, nullptr);
    if (converted) confirmed_ = newer_.samples;
  }

  // What the operation left is whole, and without a fault it succeeds.
  void ExpectSound() {
    if (operation_ == eRead) {
      EXPECT_TRUE(ReadCache(target_, targetPath_) == older_.All());
    } else {
      ExpectNothingLost(target_, older_, newer_, confirmed_);
    }
    if (operation_ >= eFromPC2) {
      EXPECT_TRUE(ReadCache(source_, sourcePath_) == newer_.All()) << "the source has suffered";
    }
    if (operation_ == eRecover) return;  // done, with the older cache put aside
    Operate();
    EXPECT_TRUE(ReadCache(target_, targetPath_) == (operation_ == eRead ? older_ : newer_).All());
    EXPECT_TRUE(Verifies(target_, targetPath_));
  }

  const Store store_ = std::get<0>(GetParam());
  const EOperation operation_ = std::get<1>(GetParam()).operation;
  Store target_ = store_;
  Store source_ = kPC2;
  std::string targetPath_;
  std::string sourcePath_;
  Animation older_ = kOlder;
  Animation newer_ = kNewer;
  unsigned int confirmed_ = 0;
};

TEST_P(Faults, EveryPointInTurn) {
  const Operation& operation = std::get<1>(GetParam());
  for (const Fault& fault : kFaults) {
    unsigned long visited = 0;
    unsigned long survived = 0;
    for (unsigned long n = 1;; ++n) {
      SCOPED_TRACE(std::string(fault.name) + ", point " + std::to_string(n));
      Restore();
      const long blocks = OutstandingBlocks();
      const int descriptors = OpenDescriptors();
      const bool reached = RunWithFault(fault, n, [this] { Operate(); });
      EXPECT_EQ(OutstandingBlocks(), blocks);
      EXPECT_EQ(OpenDescriptors(), descriptors);
      ExpectSound();
      if (!reached) break;
      ++visited;
      if (HasFailure()) break;
      ++survived;
    }
    std::printf("%-14s %-9s %-16s %5lu points, %5lu survived\n", store_.name, operation.name,
                fault.name, visited, survived);
    RecordProperty(fault.name, static_cast<int>(visited));
    EXPECT_GE(visited,
              fault.error == 0 ? operation.fewestAllocations : operation.fewestSystemCalls);
  }
}

std::string NameOf(const testing::TestParamInfo<std::tuple<Store, Operation>>& param) {
  return std::string(std::get<0>(param.param).name) + "_" + std::get<1>(param.param).name;
}

INSTANTIATE_TEST_SUITE_P(OfOneCache, Faults,
                         testing::Combine(testing::ValuesIn(kStores),
                                          testing::ValuesIn(kOperations, kOperations + 2)),
                         NameOf);
INSTANTIATE_TEST_SUITE_P(DISABLED_OfRecovery, Faults,
                         testing::Combine(testing::ValuesIn(kStores),
                                          testing::Values(kOperations[2])),
                         NameOf);
INSTANTIATE_TEST_SUITE_P(OfConversions, Faults,
                         testing::Combine(testing::ValuesIn(kStores + 1, std::end(kStores)),
                                          testing::ValuesIn(kOperations + 3,
                                                            std::end(kOperations))),
                         NameOf);

}  // namespace
}  // namespace kelsdk::test
