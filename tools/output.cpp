#include "tools/output.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "tools/terminal.h"

namespace kelcache {
Progress::Progress(std::uint64_t total, bool wanted, const std::string& file)
    : total_(total), active_(wanted && total > 0 && IsTerminal(stderr)) {
  if (active_) name_ = Printable(std::filesystem::path(file).filename().string());
}

// The share always; of the rest what there is room for, the more useful first.
std::string Progress::Line(std::uint64_t done, double seconds, unsigned int columns) const {
  constexpr double kSettled = 0.3;  // seconds after which a speed means something
  constexpr unsigned int kLongestName = 24;
  constexpr unsigned int kShortestBar = 8;
  constexpr unsigned int kLongestBar = 40;
  const double part = double(done) / double(total_);
  char text[32];
  std::snprintf(text, sizeof text, "%3u%%", static_cast<unsigned int>(part * 100));
  const std::string share = text;
  unsigned int room = columns - std::min(columns, static_cast<unsigned int>(share.size()));
  const auto fits = [&room](const std::string& words) {
    if (words.size() > room) return std::string();
    room -= static_cast<unsigned int>(words.size());
    return words;
  };
  std::string left;
  std::string speed;
  if (seconds >= kSettled && done != 0) {
    const double perSecond = double(done) / seconds;
    left = fits("  " + DurationText(double(total_ - done) / perSecond) + " left");
    std::snprintf(text, sizeof text, perSecond < 100 ? "  %.1f samples/s" : "  %.0f samples/s",
                  perSecond);
    speed = fits(text);
  }
  std::string name;
  const unsigned int wanted = std::min(WidthOf(name_), kLongestName);
  if (wanted != 0 && room > wanted) {
    name = std::string(TailOf(name_, kLongestName)) + " ";
    room -= WidthOf(name);
  }
  std::string bar;
  if (room >= kShortestBar + 4) {
    const unsigned int length = std::min(room - 4, kLongestBar);
    const auto filled = static_cast<unsigned int>(part * length);
    bar = "  [" + std::string(filled, '#') + std::string(length - filled, '.') + ']';
  }
  return name + share + bar + speed + left;
}

void Progress::Show(std::uint64_t done) {
  if (!active_) return;
  constexpr auto kInterval = std::chrono::milliseconds(50);
  const auto now = Clock::now();
  if (drawn_ && done < total_ && now - lastDrawn_ < kInterval) return;
  lastDrawn_ = now;
  drawn_ = true;
  const double seconds = std::chrono::duration<double>(now - begun_).count();
  // One column stays free: terminals differ in what they do after the last one.
  const std::string line = Line(std::min(done, total_), seconds, ColumnsOf(stderr) - 1);
  std::fprintf(stderr, "\r%s\033[K", line.c_str());
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
