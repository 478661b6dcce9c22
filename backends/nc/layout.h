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

/// The form of the arrays, by its number in a description.
enum EEncoding : std::uint32_t {
  eRaw = 0,
  eBytePlanes = 1,  ///< compact, each array by itself
  ePredicted = 2,   ///< compact, from earlier arrays too
};

/// How a cache is laid out in data files. The description and every file say it.
struct FileLayout {
  EEncoding encoding = eRaw;
  bool isPerFrame = false;  ///< one file for each time
  std::int32_t ticksPerFrame = 0;
  KelFrameRate exactRate = {0, 0};  ///< where the ticks per frame are cut; else not valid

  bool IsCompact() const { return encoding != eRaw; }
  const char* Tag() const { return IsCompact() ? "ncc" : "ncx"; }
  const FileLayout& Layout() const { return *this; }
  void SetLayout(const FileLayout& layout) { *this = layout; }
};

/// Equal in every number.
bool AreSame(const FileLayout& a, const FileLayout& b);

/// Checks what a layout is made of and fills `layout`.
/// @param compactEncoding  the number of the form that the tag "ncc" stands for
bool MakeLayout(bool isPerFrame, const char* tag, int ticksPerFrame, const KelFrameRate& exactRate,
                unsigned int compactEncoding, FileLayout* layout, io::Error& error);

}  // namespace kelsdk::nc
