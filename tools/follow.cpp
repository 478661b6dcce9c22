#include "tools/follow.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "tools/bare_report.h"
#include "tools/numbers.h"
#include "tools/pace.h"
#include "tools/terminal.h"

namespace kelcache {
namespace {

using kelsdk::CacheProgress;
using Clock = std::chrono::steady_clock;

bool IsOver(const CacheProgress& progress) {
  return progress.state != CacheProgress::eAtWork && progress.state != CacheProgress::eBeingPlaced;
}

class Display {
 public:
  Display(const std::string& file, const FollowOptions& options)
      : file_(file), options_(options), isDrawn_(!options.json && IsTerminal(stdout)) {}

  // The end is told by who has asked for this.
  void Show(const CacheProgress& progress) {
    const double now = std::chrono::duration<double>(Clock::now() - begun_).count();
    if (!isKnown_) {
      pace_.SetEarlier(progress.samples,
                       progress.begun != 0 ? double(progress.written - progress.begun) : 0);
    }
    pace_.Note(progress.samples, now);
    NoteProblem(progress);
    const bool isNew =
        !isKnown_ || progress.samples != last_.samples || progress.state != last_.state;
    isKnown_ = true;
    last_ = progress;
    last_.problem = "";
    if (IsOver(progress)) {
      Clear();
    } else if (isDrawn_) {
      Draw(now);
    } else if (isNew) {
      Print(now);
    }
  }

  void Note(const std::string& line) {
    Clear();
    PrintError(file_ + ": " + line);
  }

  const CacheProgress& last() const { return last_; }

 private:
  // The share of all that is done, where its end is known, and the samples that are missing.
  struct Part {
    double share = 0;
    double missing = 0;
  };

  std::optional<Part> PartOf() const {
    const auto samples = double(last_.samples);
    if (options_.lastFrame) {
      const double done = last_.lastFrame - last_.firstFrame;
      const double all = *options_.lastFrame - last_.firstFrame;
      if (!last_.hasFrames || done == 0 || all / done < 1) return {};
      const double total = 1 + (samples - 1) * all / done;
      return Part{samples / total, total - samples};
    }
    if (last_.promised == 0) return {};
    const auto total = double(last_.promised);
    return Part{samples / total, total - samples};
  }

  std::string Line(double now) const {
    // Files that are in place already are not counted.
    if (last_.state == CacheProgress::eBeingPlaced) return StateText(last_.state);
    std::string line = std::to_string(last_.samples);
    if (last_.promised != 0) line += " of " + std::to_string(last_.promised);
    line += " samples";
    if (last_.hasFrames) line += ", frame " + RoundedText(last_.lastFrame);
    if (last_.hasFrames && options_.lastFrame) line += " of " + RoundedText(*options_.lastFrame);
    const auto part = PartOf();
    if (part) line += " (" + std::to_string(static_cast<int>(part->share * 100)) + "%)";
    line += ", " + SizeText(last_.bytes);
    const auto perSecond = pace_.PerSecond();
    if (perSecond) line += ", " + SpeedText(*perSecond);
    const auto still = pace_.SecondsStill(now);
    if (still && IsLong(*still, perSecond)) {
      return line + ", nothing new for " + DurationText(*still);
    }
    const auto left = part ? pace_.SecondsFor(part->missing, now) : std::nullopt;
    if (left) line += ", " + DurationText(*left) + " left";
    return line;
  }

  // Next to what a sample takes, when that is known.
  static bool IsLong(double still, const std::optional<double>& perSecond) {
    constexpr double kLeast = 10;  // seconds
    return still > std::max(kLeast, perSecond ? 3 / *perSecond : 0.0);
  }

  static std::string SpeedText(double perSecond) {
    char text[32];
    if (perSecond < 0.1) {
      std::snprintf(text, sizeof text, "%.1f samples/min", perSecond * 60);
    } else {
      std::snprintf(text, sizeof text, perSecond < 100 ? "%.1f samples/s" : "%.0f samples/s",
                    perSecond);
    }
    return text;
  }

  void Draw(double now) {
    const std::string name = Printable(std::filesystem::path(file_).filename().string());
    const std::string line = Line(now);
    // One column stays free: terminals differ in what they do after the last one.
    const unsigned int columns = ColumnsOf(stdout) - 1;
    const unsigned int room = columns - std::min(columns, static_cast<unsigned int>(line.size()));
    std::string shown = room > 4 ? std::string(TailOf(name, room - 2)) + "  " + line : line;
    if (shown.size() > columns && room == 0) shown.resize(columns);
    std::fprintf(stdout, "\r%s\033[K", shown.c_str());
    std::fflush(stdout);
    isOnScreen_ = true;
  }

  void Clear() {
    if (isOnScreen_) std::fputs("\r\033[K", stdout);
    std::fflush(stdout);
    isOnScreen_ = false;
  }

  void Print(double now) const {
    PrintLine(stdout, options_.json ? TextOf(Report(now), true) : file_ + ": " + Line(now));
    std::fflush(stdout);
  }

  Json Report(double now) const {
    Json report = BareReport("info", file_);
    if (last_.state == CacheProgress::eAtWork) {
      report["counts"] = {{"samples", last_.samples}, {"bytes", last_.bytes}};
    }
    report["state"] = StateText(last_.state);
    report["promised"] = last_.promised != 0 ? Json(last_.promised) : Json(nullptr);
    report["firstFrame"] = last_.hasFrames ? Json(last_.firstFrame) : Json(nullptr);
    report["lastFrame"] = last_.hasFrames ? Json(last_.lastFrame) : Json(nullptr);
    report["samplesPerSecond"] = OrNull(pace_.PerSecond());
    const auto part = PartOf();
    report["secondsLeft"] = part ? OrNull(pace_.SecondsFor(part->missing, now)) : Json(nullptr);
    return report;
  }

  void NoteProblem(const CacheProgress& progress) {
    if (!progress.isLifeKnown && !isDoubtTold_) {
      isDoubtTold_ = true;
      Note("the file system has no locks, so whether its writer lives cannot be told");
    }
    if (problem_ == progress.problem) return;
    problem_ = progress.problem;
    if (!problem_.empty()) Note(problem_ + "; tried again");
  }

  const std::string& file_;
  const FollowOptions& options_;
  const bool isDrawn_;
  bool isOnScreen_ = false;
  bool isKnown_ = false;
  bool isDoubtTold_ = false;
  std::string problem_;
  CacheProgress last_;
  Pace pace_;
  Clock::time_point begun_ = Clock::now();
};

}  // namespace

const char* StateText(CacheProgress::EState state) {
  switch (state) {
    case CacheProgress::eAtWork: return "at work";
    case CacheProgress::eBeingPlaced: return "being put in place";
    case CacheProgress::ePublished: return "published";
    case CacheProgress::eGivenUp: return "given up";
    case CacheProgress::eDied: return "died";
  }
  return "";
}

std::optional<CacheProgress> FollowWriter(const std::string& file, const FormatRow& row,
                                          const FollowOptions& options) {
  Display display(file, options);
  const auto look = [&](const CacheProgress& progress) {
    display.Show(progress);
    if (IsOver(progress)) return;
    std::this_thread::sleep_for(std::chrono::duration<double>(options.interval));
  };
  FollowReport report(look, [&](const std::string& line) { display.Note(line); });
  const bool wasAtWork = row.follow(file, &report);
  report.Finish();
  return wasAtWork ? std::optional(display.last()) : std::nullopt;
}

}  // namespace kelcache
