#include "tools/options.h"

#include <algorithm>
#include <cstring>

#include "tools/inputs.h"
#include "tools/max_error.h"

namespace kelcache {
namespace {

// `shown`: whether help says the words too.
CLI::Validator Numbers(const char* words, bool shown, bool (*isOne)(double)) {
  const auto check = [=](std::string& text) {
    const std::optional<double> number = ParseNumber(text);
    return number && isOne(*number) ? std::string() : '"' + text + "\" is not " + words;
  };
  return {check, shown ? words : ""};
}

}  // namespace

CLI::Validator AnyNumber() {
  return Numbers("a finite number", false, [](double) { return true; });
}

CLI::Validator NumberAboveZero() {
  return Numbers("a number above 0", true, [](double number) { return number > 0; });
}

CLI::Validator NumberFromZero() {
  return Numbers("a number of at least 0", true, [](double number) { return number >= 0; });
}

CLI::Validator FrameRate() {
  const auto check = [](std::string& text) {
    kelsdk::KelFrameRate rate;
    return lexical_cast(text, rate)
               ? std::string()
               : '"' + text + "\" is not a number above 0, or a ratio such as 24000/1001";
  };
  return {check, ""};
}

CLI::Validator NumberOrPercentage() {
  const auto check = [](std::string& text) {
    return ParseMaxError(text)
               ? std::string()
               : '"' + text + "\" is not a number above 0, or a percentage such as 0.01%";
  };
  return {check, ""};
}

CLI::Validator WholeNumberFrom(unsigned int least) {
  const std::string words = "a whole number of at least " + std::to_string(least);
  const auto take = [=](std::string& text) {
    const auto number = ParseWholeNumber(text);
    if (!number || *number < least) {
      const bool isTooLarge =
          !number && !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
      return '"' + text + "\" is not " + words + (isTooLarge ? " and at most 4294967295" : "");
    }
    text = std::to_string(*number);
    return std::string();
  };
  return {take, least > 0 ? words : ""};
}

CLI::Validator ByteSize() {
  const auto take = [](std::string& text) {
    constexpr const char* kUnits = "KMG";
    std::string digits = text;
    std::uint64_t unit = 1;
    const char* const named = text.empty() ? nullptr : std::strchr(kUnits, text.back());
    if (named != nullptr) {
      digits.pop_back();
      for (const char* u = kUnits; u <= named; ++u) unit *= 1000;
    }
    const auto number = ParseWholeNumber(digits);
    if (!number || *number == 0) return '"' + text + "\" is not a size such as 500000, 64M or 1G";
    text = std::to_string(*number * unit);
    return std::string();
  };
  return {take, ""};
}

CLI::Validator Duration() {
  const auto take = [](std::string& text) {
    const std::map<std::string, std::uint64_t> seconds = {
        {"min", 60}, {"h", 3600}, {"d", 86400}, {"w", 604800}};
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    const auto number = ParseWholeNumber(text.substr(0, digits));
    const auto unit = seconds.find(text.substr(digits));
    if (!number || unit == seconds.end()) {
      return '"' + text + "\" is no time span such as 30min, 12h, 2d or 1w";
    }
    text = std::to_string(*number * unit->second);
    return std::string();
  };
  return {take, ""};
}

CLI::Validator ShardNumber() {
  const auto check = [](std::string& text) {
    return ParseShard(text) ? std::string() : '"' + text + "\" is no shard such as 2/8";
  };
  return {check, ""};
}

CLI::Validator OneOf(const std::vector<std::string>& words) {
  const auto check = [=](std::string& text) {
    const bool isOne = std::find(words.begin(), words.end(), text) != words.end();
    return isOne ? std::string() : '"' + text + "\" is none of " + CLI::detail::join(words, ", ");
  };
  return {check, CLI::detail::join(words, "|")};
}

}  // namespace kelcache
