#pragma once

#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/hooks.h"

namespace kelsdk::test {

/// Collects lines of text in the std::string that is its context.
inline void AddLine(void* context, const char* line) {
  static_cast<std::string*>(context)->append(line).append("\n");
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
