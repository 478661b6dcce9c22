#pragma once

#include <cstdint>
#include <string>

namespace kelcache {

/// The shortest text that reads back to the same float or double; "nan", "inf", "-inf".
std::string ShortestText(float value);
std::string ShortestText(double value);

/// Seven significant digits, for people.
std::string RoundedText(double value);

/// "1.1 MB": decimal units.
std::string SizeText(std::uint64_t bytes);

/// Says on standard error what a person should know of a file, though nothing failed.
void Note(const std::string& file, const std::string& what);

/// A progress bar on standard error, when that is a terminal and `wanted`; otherwise nothing. It is
/// drawn at most 20 times a second.
class Progress {
 public:
  Progress(std::uint64_t total, bool wanted);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  void Show(std::uint64_t done);
  /// Takes the bar off the terminal, before other output.
  void Clear();

 private:
  std::uint64_t total_;
  bool drawn_ = false;
  bool active_;
  std::int64_t lastDrawn_ = 0;  // milliseconds of the steady clock
};

}  // namespace kelcache
