#include <charconv>
#include <string_view>

#include "tools/verbs.h"

namespace kelsdk {
namespace {

template <typename Number>
bool TakeWhole(std::string_view text, Number* number) {
  const char* const end = text.data() + text.size();
  const auto taken = std::from_chars(text.data(), end, *number);
  return taken.ec == std::errc() && taken.ptr == end;
}

}  // namespace

bool lexical_cast(const std::string& text, KelFrameRate& rate) {
  const std::size_t slash = text.find('/');
  if (slash == std::string::npos) {
    double perSecond = 0;
    if (!TakeWhole(text, &perSecond)) return false;
    rate = KelFrameRate::FromDouble(perSecond);
    if (!rate.IsValid()) rate = KelFrameRate::FromComputed(perSecond);
    return rate.IsValid();
  }
  const std::string_view view(text);
  return TakeWhole(view.substr(0, slash), &rate.numerator) &&
         TakeWhole(view.substr(slash + 1), &rate.denominator) && rate.IsValid();
}

}  // namespace kelsdk
