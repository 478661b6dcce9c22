#include "tools/numbers.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace kelcache {
namespace {

template <typename Number>
std::optional<Number> Parse(std::string_view text) {
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  Number number{};
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number);
  if (parsed.ec != std::errc() || parsed.ptr != end) return {};
  return number;
}

template <typename Number>
std::string Shortest(Number value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  char text[64];
  return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

}  // namespace

std::optional<double> ParseNumber(const std::string& text) {
  const std::optional<double> number = Parse<double>(text);
  return number && std::isfinite(*number) ? number : std::nullopt;
}

std::optional<unsigned int> ParseWholeNumber(const std::string& text) {
  return Parse<unsigned int>(text);
}

std::string ShortestText(float value) {
  return Shortest(value);
}
std::string ShortestText(double value) {
  return Shortest(value);
}

std::string RoundedText(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.7g", value);
  return text;
}

std::string Lowered(std::string text) {
  for (char& letter : text)
    letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  return text;
}

std::string SizeText(std::uint64_t bytes) {
  constexpr double kStep = 1000;
  const char* const units[] = {"B", "kB", "MB", "GB", "TB", "PB"};
  double size = double(bytes);
  size_t unit = 0;
  for (; size >= kStep && unit < 5; ++unit) size /= kStep;
  char text[32];
  std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", size, units[unit]);
  return text;
}

std::string DurationText(double seconds) {
  constexpr double kMost = 359999;  // 99:59:59
  const auto whole = static_cast<unsigned int>(std::min(std::ceil(seconds), kMost));
  char text[32];
  if (whole < 3600) {
    std::snprintf(text, sizeof text, "%u:%02u", whole / 60, whole % 60);
  } else {
    std::snprintf(text, sizeof text, "%u:%02u:%02u", whole / 3600, whole / 60 % 60, whole % 60);
  }
  return text;
}

std::string AgeText(std::uint64_t seconds) {
  constexpr std::uint64_t kHour = 60;  // minutes
  constexpr std::uint64_t kDay = 24 * kHour;
  const std::uint64_t minutes = seconds / 60;
  if (minutes < 2 * kHour) return std::to_string(minutes) + " min";
  return minutes < 2 * kDay ? std::to_string(minutes / kHour) + " h"
                            : std::to_string(minutes / kDay) + " d";
}

}  // namespace kelcache

namespace kelsdk {

bool lexical_cast(const std::string& text, KelFrameRate& rate) {
  const std::size_t slash = text.find('/');
  if (slash == std::string::npos) {
    const std::optional<double> perSecond = kelcache::ParseNumber(text);
    if (!perSecond) return false;
    rate = KelFrameRate::FromDouble(*perSecond);
    if (!rate.IsValid()) rate = KelFrameRate::FromComputed(*perSecond);
    return rate.IsValid();
  }
  const auto numerator = kelcache::Parse<std::uint32_t>(text.substr(0, slash));
  const auto denominator = kelcache::Parse<std::uint32_t>(text.substr(slash + 1));
  rate = {numerator.value_or(0), denominator.value_or(0)};
  return rate.IsValid();
}

}  // namespace kelsdk
