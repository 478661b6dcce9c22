// Bytes as a sequence of calls on one cache object, in any order: names and formats change while
// files are open, caches are written, read, fetched and converted. After each call the object must
// keep its word: a failed fetch hands out nothing, a closed format is not open.
#include <filesystem>
#include <functional>
#include <numeric>
#include <string>

#include "cache/KelCache.h"
#include "fuzz/support.h"

namespace {

using namespace kelsdk;
using kelsdk::fuzz::Require;

constexpr unsigned int kRoom = 16;  // elements in the caller's arrays

class Player {
 public:
  Player(const std::uint8_t* bytes, std::size_t size) : at_(bytes), end_(bytes + size) {
    // A small archive to open, when there is one beside the corpus.
    std::error_code missing;
    std::filesystem::copy_file(KELCACHE_TEST_DATA "/abc/tiny.abc", folder_.File("a.abc"), missing);
  }
  ~Player() { manager_->Destroy(); }
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  void Play() {
    while (at_ != end_) operations_[Below(24)]();
  }

 private:
  // A small number from the front of the input; zero when it is used up.
  unsigned int Below(unsigned int limit) { return at_ == end_ ? 0 : *at_++ % limit; }
  template <typename Enum>
  Enum Any(unsigned int limit) {
    return static_cast<Enum>(Below(limit));
  }
  int Channel() { return static_cast<int>(Below(4)) - 1; }
  KelTime Time() {
    switch (Below(6)) {
      case 0: return KelTime(0);
      case 1: return KelTime::FromFrame(int(Below(8)) - 2);
      case 2: return KelTime(7697693LL * int(Below(255)));
      case 3: return KelTime(-1);
      case 4: return KelTime(INT64_MAX);
      default: return KelTime::FromSeconds(Below(200) / 100.0);
    }
  }
  template <typename Call>
  void WithAnArray(const Call& call) {
    switch (Below(3)) {
      case 0: return call(doubles_);
      case 1: return call(floats_);
      default: return call(ints_);
    }
  }

  void SetName() {
    const char* const names[] = {"a.pc2", "a.xml", "b.pc2", "b.xml", "a.abc", "", "none/x.pc2"};
    const std::string name = names[Below(7)];
    cache_->SetCacheFileName(name.c_str(), name.empty() ? "" : folder_.File(name).c_str(),
                             &status_);
  }

  void SetFormat() { cache_->SetCacheFileFormat(Any<KelCache::EFileFormat>(5), &status_); }

  void Fetch() {
    float* values = nullptr;
    unsigned int length = 1;
    const unsigned int channel = Below(4);
    const KelTime time = Time();
    const bool read = cache_->Read(&values, length, time, channel);
    Require((values != nullptr) == read && (length != 0) == read);
    Require(!read || cache_->IsOpen(nullptr));
    // The address sanitizer sees a length that is too long.
    doubles_[0] = std::accumulate(values, values + length, 0.0);
  }

  void Transfer(bool writes) {
    KelTime time = Time();
    const int channel = Channel();
    // Alembic elements have up to 16 values: room for one of them.
    const bool alembic = !writes && cache_->GetCacheFileFormat() == KelCache::eAlembicFormat;
    const unsigned int count = alembic ? 1 : Below(kRoom);
    WithAnArray([&](auto* values) {
      writes ? cache_->Write(channel, time, values, count, &status_)
             : cache_->Read(channel, time, values, count, &status_);
    });
  }

  // All that can be asked, of a channel, a sample's or data file's number and a time.
  void Ask(int channel, int number, KelTime from) {
    KelString text, absolute;
    KelTime a, b;
    unsigned int samples = 0;
    auto type = KelCache::eNCUnknownData;
    auto files = KelCache::eNCSingleFile;
    auto sampling = KelCache::eNCSamplingRegular;
    cache_->GetChannelName(channel, text, &status_);
    cache_->GetChannelInterpretation(channel, text, &status_);
    cache_->GetChannelDataType(channel, type, &status_);
    cache_->GetCacheType(files, &status_);
    const int channels = cache_->GetChannelCount(&status_);
    Require((channels >= 0) == cache_->IsOpen(nullptr));
    Require(cache_->GetChannelIndex("first", &status_) < std::max(channels, 1));
    cache_->GetAnimationRange(channel, a, b, &status_);
    cache_->GetSamplingFrameRate(&status_);
    cache_->GetCacheTimePerFrame(&status_);
    cache_->GetDataTime(channel, unsigned(number), a, &status_);
    cache_->GetDataCount(channel, &status_);
    if (cache_->GetNextTimeWithData(from, b, channel, &status_)) Require(b > from);
    cache_->GetChannelPointCount(channel, from, samples, &status_);
    cache_->GetChannelSampleCount(channel, samples, &status_);
    cache_->GetChannelSamplingType(channel, sampling, &status_);
    cache_->GetChannelSamplingRate(channel, a, &status_);
    const int dataFiles = cache_->GetCacheDataFileCount(&status_);
    const bool named = cache_->GetCacheDataFileName(number, text, absolute, &status_);
    Require(!named || (number >= 0 && number < dataFiles));
  }

  const std::uint8_t* at_;
  const std::uint8_t* const end_;
  const fuzz::ScratchFolder folder_;
  KelStatus status_;
  KelManager* manager_ = KelManager::Create();
  KelCache* cache_ = KelCache::Create(manager_, "c");
  double doubles_[3 * kRoom] = {0.5};
  float floats_[3 * kRoom] = {0.5F};
  int ints_[3 * kRoom] = {5};
  // What is called often stands here twice. A change of the order makes the corpus another one.
  const std::function<void()> operations_[24] = {
      [this] { SetName(); },
      [this] { SetFormat(); },
      [this] { SetFormat(); },
      [this] { cache_->OpenFileForRead(&status_); },
      [this] { cache_->OpenFileForRead(&status_); },
      [this] { cache_->OpenFileForWrite(0, 24, Below(5), Below(kRoom), &status_); },
      [this] {
        cache_->OpenFileForWrite(
            Any<KelCache::ENCFileCount>(2), 24, Below(2) != 0 ? "first" : nullptr,
            Any<KelCache::ENCBinaryFormat>(2), Any<KelCache::ENCDataType>(8), nullptr, &status_);
      },
      [this] {
        Require(cache_->CloseFile(&status_) && !status_.Error());
        Require(!cache_->IsOpen(nullptr));
      },
      [this] { Fetch(); },
      [this] { Fetch(); },
      [this] {
        KelTime time = Time();
        Below(2) != 0 ? cache_->BeginWriteAt(time, &status_) : cache_->EndWriteAt(&status_);
      },
      [this] { Transfer(true); },
      [this] { Transfer(true); },
      [this] { Transfer(false); },
      [this] { Ask(Channel(), 0, KelTime()); },
      [this] {
        const int channel = Channel();
        const int number = int(Below(5));
        Ask(channel, number, Time());
      },
      [this] { cache_->Write(Below(6), doubles_, &status_); },
      [this] { cache_->Read(Below(6), doubles_, Below(kRoom), &status_); },
      [this] {
        const char* const names[] = {"first", "second", "third", ""};
        unsigned int index = 0;
        cache_->AddChannel(names[Below(4)], Any<KelCache::ENCDataType>(8), "i", index, &status_);
      },
      [this] { cache_->EnableMultiChannelFetching(Below(2) != 0, &status_); },
      [this] {
        cache_->ConvertFromPC2ToNC(Any<KelCache::ENCFileCount>(2), 24,
                                   Any<KelCache::ENCBinaryFormat>(2), &status_);
      },
      [this] { cache_->ConvertFromNCToPC2(24, Below(3), &status_); },
      [this] { Ask(0, Channel(), KelTime()); },
      [this] {
        cache_->Destroy();
        cache_ = KelCache::Create(manager_, "c");
      }};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  constexpr std::size_t kLongest = 512;
  Player(bytes, std::min(size, kLongest)).Play();
  return 0;
}
