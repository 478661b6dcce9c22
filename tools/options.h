#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <string>
#include <vector>

#include "tools/numbers.h"

namespace kelcache {

// What the values of options may be, in words that help and errors share. For Option::check.
CLI::Validator AnyNumber();  ///< finite
CLI::Validator NumberAboveZero();
CLI::Validator NumberFromZero();

/// A frame rate: "25", "23.976" (which stands for 24000/1001) or "24000/1001".
CLI::Validator FrameRate();

/// A bound that ParseMaxError takes.
CLI::Validator NumberOrPercentage();

/// A whole number that fits 32 bits. For Option::transform: it hands on plain decimal digits, where
/// the option would take "010" for eight.
CLI::Validator WholeNumberFrom(unsigned int least);

/// A number of bytes: "500000", "64M" (decimal units K, M, G). For Option::transform, likewise.
CLI::Validator ByteSize();

/// A time span: "30min", "12h", "2d", "1w". For Option::transform: it hands on seconds.
CLI::Validator Duration();

/// "2/8": one of so many shards.
CLI::Validator ShardNumber();

/// One of some words. Its description is "json|csv".
CLI::Validator OneOf(const std::vector<std::string>& words);

/// The words that choices have.
template <typename Choice>
std::vector<std::string> WordsOf(const std::map<std::string, Choice>& choices) {
  std::vector<std::string> words;
  words.reserve(choices.size());
  for (const auto& [word, choice] : choices) words.push_back(word);
  return words;
}

}  // namespace kelcache
