#include "backends/alembic/sample_bounds.h"

#include <algorithm>

namespace kelsdk::alembic {

void SampleBounds::Note(std::uint64_t offset) {
  for (; next_ < begins_.size() && begins_[next_] < offset; ++next_) {
    ends_[next_] = std::min(ends_[next_], offset);
  }
}

std::size_t SampleBounds::Longest() const {
  std::size_t longest = 0;
  for (std::size_t i = 1; i < begins_.size(); ++i) {
    if (Most(i) > Most(longest)) longest = i;
  }
  return longest;
}

}  // namespace kelsdk::alembic
