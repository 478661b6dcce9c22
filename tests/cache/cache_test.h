#pragma once

#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "cache/KelCache.h"
#include "tests/support/fixture.h"

namespace kelsdk::test {

constexpr long long kTick = 7697693;                 // KelTime units
constexpr long long kBeyond = kTick * 2147483648LL;  // the first time whose ticks do not fit
constexpr unsigned int kWrapping = 0x15555556;       // points; x 12 bytes is 8 in 32 bits
constexpr auto kOtherFormat = static_cast<KelCache::EFileFormat>(9);

/// A cache object of a manager of its own; none without memory.
class CacheObject {
 public:
  explicit CacheObject(KelCache::EFileFormat format = KelCache::eUnknownFormat,
                       const std::string& path = "")
      : manager(KelManager::Create()),
        cache_(manager != nullptr ? KelCache::Create(manager, "cache") : nullptr) {
    if (cache_ != nullptr) Name(format, path);
  }
  ~CacheObject() {
    if (manager != nullptr) manager->Destroy();
  }
  CacheObject(const CacheObject&) = delete;
  CacheObject& operator=(const CacheObject&) = delete;

  void Name(KelCache::EFileFormat format, const std::string& absolute,
            const std::string& relative = "") {
    cache_->SetCacheFileFormat(format, nullptr);
    cache_->SetCacheFileName(relative.c_str(), absolute.c_str(), nullptr);
  }
  /// Begins an NC cache of channels "0", "1" ... of these types.
  bool BeginNC(const std::string& path, const std::vector<int>& types, double rate = 24) {
    Name(KelCache::eNCFormat, path);
    bool done = cache_->OpenFileForWrite(KelCache::eNCSingleFile, rate, "0", KelCache::eNCBinaryX,
                                         KelCache::ENCDataType(types[0]), "words", nullptr);
    for (unsigned int i = 1; i < types.size(); ++i) {
      unsigned int index = 0;
      done = done && cache_->AddChannel(std::to_string(i).c_str(), KelCache::ENCDataType(types[i]),
                                        "words", index, nullptr);
    }
    return done;
  }
  KelCache* operator->() const { return cache_; }
  KelCache* get() const { return cache_; }

  KelManager* const manager;

 private:
  KelCache* cache_;
};

/// Calls `body` with a value of one of the types that a caller's array may have: doubles (0),
/// floats (1) or integers (2).
template <typename Body>
auto WithForm(int form, const Body& body) {
  if (form == 0) return body(double());
  return form == 1 ? body(float()) : body(int());
}

/// A channel's type and the elements of each of its arrays.
struct Layout {
  Layout(int itsType, unsigned int itsElements = 1) : type(itsType), elements(itsElements) {}
  int type;
  unsigned int elements;
};

class CacheTest : public FileTest {
 protected:
  void SetUp() override {
    Renew();
    Status();
  }

  void Renew() { cache_ = object_.emplace().get(); }

  /// What the last call did to the status: "" when it is clear, the code and the message, or
  /// "untouched".
  std::string Status() {
    const std::string text = std::to_string(status_.GetCode()) + " " + status_.GetErrorString();
    const bool clear = !status_.Error();
    status_.SetCode(KelStatus::eIndexOutOfRange, "%s", "untouched");
    return clear ? "" : text == "4 untouched" ? "untouched" : text;
  }

  /// What a call with the status has answered: "done", or the status of its failure.
  std::string Outcome(bool done) {
    const std::string status = Status();
    return !done ? status : status.empty() ? "done" : "done " + status;
  }

  /// Channels of these layouts at each of the ticks; the values of each array count up from
  /// `first`.
  void WriteNC(const std::string& name, const std::vector<Layout>& layouts,
               const std::vector<int>& ticks = {0}, double rate = 24, int first = 1) {
    CacheObject cache;
    std::vector<int> types;
    for (const Layout& layout : layouts) types.push_back(layout.type);
    ASSERT_TRUE(cache.BeginNC(folder_.File(name), types, rate));
    for (const int tick : ticks) {
      KelTime time(tick * kTick);
      ASSERT_TRUE(cache->BeginWriteAt(time, nullptr));
      for (int channel = 0; channel < int(types.size()); ++channel) {
        const Layout& layout = layouts[size_t(channel)];
        if (layout.type < KelCache::eNCDoubleArray) continue;
        std::vector<double> doubles(layout.elements * 3 + 1);
        std::iota(doubles.begin(), doubles.end(), first);
        std::vector<int> integers(doubles.begin(), doubles.end());
        ASSERT_TRUE(layout.type == KelCache::eNCInt32Array
                        ? cache->Write(channel, time, integers.data(), layout.elements, nullptr)
                        : cache->Write(channel, time, doubles.data(), layout.elements, nullptr));
      }
      ASSERT_TRUE(cache->EndWriteAt(nullptr));
    }
    cache->CloseFile(nullptr);
  }

  void OpenForRead(KelCache::EFileFormat format, const std::string& name) {
    object_->Name(format, folder_.File(name));
    ASSERT_TRUE(cache_->OpenFileForRead(nullptr));
  }

  std::optional<CacheObject> object_;
  KelCache* cache_ = nullptr;  // of object_
  KelStatus status_;
};

}  // namespace kelsdk::test
