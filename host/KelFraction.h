#pragma once

#include "host/KelApi.h"

namespace kelsdk {

/// A ratio of whole numbers.
struct KEL_API KelFraction {
  long long numerator = 0;
  long long denominator = 1;  ///< above 0; 0 where there is no such fraction

  bool IsValid() const noexcept { return denominator > 0; }
  double Value() const noexcept { return double(numerator) / double(denominator); }

  /// The fraction of the least denominator in [low, high], and of those the one nearest to zero:
  /// what a person most likely meant by a number that is known no better. Not valid when the range
  /// is empty, not finite, or too narrow for numbers below 2^40.
  static KelFraction Simplest(double low, double high) noexcept;
};

}  // namespace kelsdk
