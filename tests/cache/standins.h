#pragma once

#include <set>
#include <sstream>
#include <string>
#include <utility>

#include "tests/cache/cache_test.h"

/// Stand-ins of the three back-end classes, linked in their place: they note each call with its
/// arguments and answer as they are told.
namespace kelsdk::test {

struct Answers {
  std::set<std::string> refused = {};  ///< operations that answer false, such as "addChannel"
  unsigned int channels = 1;
  int type = 6;               ///< of every NC channel
  unsigned int elements = 2;  ///< of every array; also the points
  int version = 1;
  unsigned int typeSize = 12;  ///< of an Alembic element
  unsigned int dataLength = 3;
};

inline Answers answers;
inline std::string calls;

/// The calls since it was last asked: "one(1, 2); another()".
inline std::string TakeCalls() {
  return std::exchange(calls, "");
}

/// Notes a call; tells whether it is to succeed.
template <typename... Arguments>
bool Note(const char* name, const Arguments&... arguments) {
  std::ostringstream text;
  [[maybe_unused]] const char* separator = "";
  ((text << std::exchange(separator, ", ") << arguments), ...);
  calls += (calls.empty() ? "" : "; ") + std::string(name) + "(" + text.str() + ")";
  return !answers.refused.contains(name);
}

/// The words that each stand-in gives for an error.
inline const char* WordsOf(KelCache::EFileFormat format) {
  if (format == KelCache::ePC2Format) return "PC2 words";
  return format == KelCache::eNCFormat ? "NC words" : "Alembic words";
}

/// A cache object over the stand-ins, with files of every format for it to find.
class StandInTest : public CacheTest {
 protected:
  void SetUp() override {
    CacheTest::SetUp();
    answers = {};
    calls.clear();
    for (const char* name : {"pc2", "xml", "abc"}) WriteBytes(Path(name), {0});
  }
  /// TakeCalls() with the scratch folder written "here/".
  std::string CallsHere() const {
    const std::string folder = folder_.path() + "/";
    std::string text = TakeCalls();
    for (std::size_t at = 0; (at = text.find(folder, at)) != std::string::npos;) {
      text.replace(at, folder.size(), "here/");
    }
    return text;
  }
  std::string Path(const char* extension) const {
    return folder_.File(std::string("shot.") + extension);
  }
  /// Opens folder + "shot.any", beside what is open.
  bool Open(KelCache::EFileFormat format, KelCache::EOpenFlag flag, double rate = 24) {
    object_->Name(format, Path("any"));
    return cache_->OpenFile(flag, KelCache::eNCSingleFile, rate, nullptr, nullptr, 3, 2, 10.25,
                            &status_, KelCache::eNCFloatVectorArray, KelCache::eNCBinaryX);
  }

  static constexpr auto kPC2 = KelCache::ePC2Format;
  static constexpr auto kNC = KelCache::eNCFormat;
  static constexpr auto kAbc = KelCache::eAlembicFormat;
  static constexpr auto kRead = KelCache::eOpenForRead;
  static constexpr auto kWrite = KelCache::eOpenForWrite;
};

}  // namespace kelsdk::test
