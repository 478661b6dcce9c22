#include "tools/output.h"

#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace kelcache {
namespace {

template <typename Number>
std::string Shortest(Number value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  char text[64];
  return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

}  // namespace

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

void Note(const std::string& file, const std::string& what) {
  std::fprintf(stderr, "kelcache: %s: %s\n", file.c_str(), what.c_str());
}

Progress::Progress(std::uint64_t total, bool wanted)
    : total_(total), active_(wanted && total > 0 && ::isatty(STDERR_FILENO) == 1) {}

void Progress::Show(std::uint64_t done) {
  if (!active_) return;
  constexpr int kWidth = 40;
  constexpr std::int64_t kInterval = 50;
  const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
                       std::chrono::steady_clock::now().time_since_epoch())
                       .count();
  if (drawn_ && done < total_ && now - lastDrawn_ < kInterval) return;
  lastDrawn_ = now;
  drawn_ = true;
  const double share = double(done) / double(total_);
  const int filled = static_cast<int>(share * kWidth);
  std::fprintf(stderr, "\r[%s%s] %3.0f%%", std::string(static_cast<size_t>(filled), '#').c_str(),
               std::string(static_cast<size_t>(kWidth - filled), '.').c_str(), share * 100);
  std::fflush(stderr);
}

void Progress::Clear() {
  if (drawn_) std::fprintf(stderr, "\r\033[K");
  drawn_ = false;
}

Progress::~Progress() {
  Clear();
}

}  // namespace kelcache
