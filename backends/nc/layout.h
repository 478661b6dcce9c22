#pragma once

#include <cstdint>

#include "backends/io/error.h"
#include "backends/zuCacheFileInterface.h"
#include "host/KelTime.h"

namespace kelsdk::nc {

constexpr std::uint64_t kTicksPerSecond = zuCacheFileInterface::kTicksPerSecond;

/// Ticks of a frame, not cut to whole ones; `exactRate` may be not valid.
inline double ExactTicks(std::int32_t ticksPerFrame, const KelFrameRate& exactRate) {
  return exactRate.IsValid() ? double(kTicksPerSecond) / exactRate.PerSecond() : ticksPerFrame;
}

/// Whether a rate, noted beside the ticks per frame, gives just these when it is cut.
inline bool IsRateOfTicks(const KelFrameRate& rate, std::int32_t ticksPerFrame) {
  return rate.IsValid() &&
         std::int64_t(kTicksPerSecond * rate.denominator / rate.numerator) == ticksPerFrame;
}

/// Refuses an exact rate, where one is given, that is none of so many ticks per frame.
bool CheckExactRate(const KelFrameRate& exactRate, std::int32_t ticksPerFrame, io::Error& error);

/// How a cache is laid out in data files. The description and every file say it.
struct FileLayout {
  bool isCompact = false;   ///< tag "ncc"
  bool isPerFrame = false;  ///< one file for each time
  std::int32_t ticksPerFrame = 0;
  KelFrameRate exactRate = {0, 0};  ///< where the ticks per frame are cut; else not valid

  const char* Tag() const { return isCompact ? "ncc" : "ncx"; }
  const FileLayout& Layout() const { return *this; }
  void SetLayout(const FileLayout& layout) { *this = layout; }
};

/// Equal in every number.
bool AreSame(const FileLayout& a, const FileLayout& b);

/// Checks what a layout is made of and fills `layout`.
bool MakeLayout(bool isPerFrame, const char* tag, int ticksPerFrame, const KelFrameRate& exactRate,
                FileLayout* layout, io::Error& error);

}  // namespace kelsdk::nc
