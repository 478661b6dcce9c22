#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/KelTime.h"

namespace kelsdk {

/// The frame rate that a person types: "25", "23.976" (which stands for 24000/1001), "24000/1001".
bool lexical_cast(const std::string& text, KelFrameRate& rate);

}  // namespace kelsdk

namespace kelcache {

/// The finite number that a text is, as a whole; empty for any other text.
std::optional<double> ParseNumber(const std::string& text);

/// The same for decimal digits whose number fits 32 bits.
std::optional<unsigned int> ParseWholeNumber(const std::string& text);

/// The shortest text that reads back to the same float or double; "nan", "inf", "-inf".
std::string ShortestText(float value);
std::string ShortestText(double value);

/// Seven significant digits, for people.
std::string RoundedText(double value);

/// A to Z as small letters.
std::string Lowered(std::string text);

/// "1.1 MB": decimal units.
std::string SizeText(std::uint64_t bytes);

/// "1:02", with hours "1:02:03".
std::string DurationText(double seconds);

/// "5 min", "3 h", "12 d".
std::string AgeText(std::uint64_t seconds);

}  // namespace kelcache
