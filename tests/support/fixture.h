#pragma once

#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/hooks.h"

namespace kelsdk::test {

/// Collects lines of text in the std::string that is its context.
inline void AddLine(void* context, const char* line) {
  static_cast<std::string*>(context)->append(line).append("\n");
}

/// Calls `body` with the numbers from `from` to before `to`: it allocates nothing and makes at most
/// so many system calls each time.
template <typename Number, typename Body>
void ExpectCost(Number from, Number to, unsigned long callsEach, const Body& body) {
  const unsigned long allocations = AllocationCount();
  const unsigned long calls = SystemCallCount();
  for (Number i = from; i < to; ++i) body(i);
  EXPECT_EQ(AllocationCount() - allocations, 0U);
  EXPECT_LE(SystemCallCount() - calls, static_cast<unsigned long>(to - from) * callsEach);
}

/// A scratch folder for each test, and a failure for one that leaves KelMalloc blocks or open files
/// behind, in whatever its fixture holds too.
class FileTest : public testing::Test {
 protected:
  ~FileTest() override {
    EXPECT_EQ(OutstandingBlocks(), blocks_) << "KelMalloc blocks leaked";
    EXPECT_EQ(OpenDescriptors(), descriptors_) << "open files leaked";
  }

  ScratchFolder folder_;

 private:
  long blocks_ = OutstandingBlocks();
  int descriptors_ = OpenDescriptors();
};

}  // namespace kelsdk::test
