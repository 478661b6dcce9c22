#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/interrupt.h"
#include "tools/output.h"
#include "tools/terminal.h"
#include "tools/watch.h"

namespace kelcache {

/// Who runs the command: a bar and notes on standard error, signals that were caught.
class TerminalWatch : public Watch {
 public:
  /// @param progress  draw the bar
  explicit TerminalWatch(bool progress) : progress_(progress) {}

  void Begin(std::uint64_t total, const std::string& file) override {
    bar_.emplace(total, progress_, file);
  }
  void Show(std::uint64_t done) override { bar_->Show(done); }
  void End() override { bar_.reset(); }
  void ThrowIfInterrupted() override { kelcache::ThrowIfInterrupted(); }
  void Note(const std::string& line) override {
    if (bar_) bar_->Clear();
    PrintError(line);
    notes_.push_back(line);
  }

  /// All that was noted.
  const std::vector<std::string>& notes() const { return notes_; }

 private:
  bool progress_;
  std::vector<std::string> notes_;
  std::optional<Progress> bar_;
};

}  // namespace kelcache
