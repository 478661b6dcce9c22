#include "host/KelFraction.h"

#include <cmath>

namespace kelsdk {
namespace {

constexpr double kLargest = double(1LL << 40);
constexpr KelFraction kNone = {0, 0};

}  // namespace

KelFraction KelFraction::Simplest(double low, double high) noexcept {
  if (!(low <= high) || !(std::fabs(low) < kLargest) || !(std::fabs(high) < kLargest)) return kNone;
  if (low <= 0 && high >= 0) return {0, 1};
  if (high < 0) {
    const KelFraction positive = Simplest(-high, -low);
    return {-positive.numerator, positive.denominator};
  }
  // The continued fraction that both ends have in common, and after it the least whole number
  // between them. p/q is its value so far, r/s the one before that.
  double p = 1;
  double q = 0;
  double r = 0;
  double s = 1;
  for (;;) {
    const double whole = std::floor(low);
    const bool last = whole == low || whole + 1 <= high;
    const double term = last && whole != low ? whole + 1 : whole;
    const double numerator = term * p + r;
    const double denominator = term * q + s;
    if (!(numerator < kLargest) || !(denominator < kLargest)) return kNone;
    if (last) return {static_cast<long long>(numerator), static_cast<long long>(denominator)};
    r = p;
    s = q;
    p = numerator;
    q = denominator;
    const double above = 1 / (low - whole);
    low = 1 / (high - whole);
    high = above;
  }
}

}  // namespace kelsdk
