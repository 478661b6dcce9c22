// Bytes as a sequence of calls on one cache object, in any order: names and formats change while
// files are open, caches are written, read, fetched and converted. After each call the object must
// keep its word: a failed fetch hands out nothing, a closed format is not open.
#include <filesystem>
#include <numeric>
#include <string>
#include <vector>

#include "cache/KelCache.h"
#include "fuzz/support.h"

namespace {

using namespace kelsdk;
using kelsdk::fuzz::Require;

constexpr unsigned int kRoom = 16;  // elements in the caller's arrays

// Takes small numbers from the front of the input; zeros when it is used up.
class Script {
 public:
  Script(const std::uint8_t* bytes, std::size_t size) : at_(bytes), end_(bytes + size) {}
  bool AtEnd() const { return at_ == end_; }
  unsigned int Below(unsigned int limit) { return at_ == end_ ? 0 : *at_++ % limit; }
  template <typename Enum>
  Enum EnumBelow(unsigned int limit) {
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

 private:
  const std::uint8_t* at_;
  const std::uint8_t* end_;
};

class Player {
 public:
  Player(Script& script, const fuzz::ScratchFolder& folder) : script_(script), folder_(folder) {}
  ~Player() { manager_->Destroy(); }
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  void Step() {
    switch (script_.Below(24)) {
      case 0: SetName(); break;
      case 1:
      case 2:
        cache_->SetCacheFileFormat(script_.EnumBelow<KelCache::EFileFormat>(5), &status_);
        break;
      case 3:
      case 4: cache_->OpenFileForRead(&status_); break;
      case 5:
        cache_->OpenFileForWrite(0, 24, script_.Below(5), script_.Below(kRoom), &status_);
        break;
      case 6: OpenNCForWrite(); break;
      case 7: Close(); break;
      case 8:
      case 9: Fetch(); break;
      case 10: BeginOrEnd(); break;
      case 11:
      case 12: Write(); break;
      case 13: Read(); break;
      case 14: Catalogue(); break;
      case 15: Timing(); break;
      case 16: cache_->Write(script_.Below(6), doubles_, &status_); break;
      case 17: cache_->Read(script_.Below(6), doubles_, script_.Below(kRoom), &status_); break;
      case 18: AddChannel(); break;
      case 19: cache_->EnableMultiChannelFetching(script_.Below(2) != 0, &status_); break;
      case 20:
        cache_->ConvertFromPC2ToNC(script_.EnumBelow<KelCache::ENCFileCount>(2), 24,
                                   script_.EnumBelow<KelCache::ENCBinaryFormat>(2), &status_);
        break;
      case 21: cache_->ConvertFromNCToPC2(24, script_.Below(3), &status_); break;
      case 22: DataFiles(); break;
      default: Renew(); break;
    }
  }

 private:
  void SetName() {
    const char* const names[] = {"a.pc2", "a.xml", "b.pc2", "b.xml", "a.abc", "", "none/x.pc2"};
    const std::string name = names[script_.Below(7)];
    cache_->SetCacheFileName(name.c_str(), name.empty() ? "" : folder_.File(name).c_str(),
                             &status_);
  }

  void OpenNCForWrite() {
    cache_->OpenFileForWrite(script_.EnumBelow<KelCache::ENCFileCount>(2), 24,
                             script_.Below(2) != 0 ? "first" : nullptr,
                             script_.EnumBelow<KelCache::ENCBinaryFormat>(2),
                             script_.EnumBelow<KelCache::ENCDataType>(8), nullptr, &status_);
  }

  void Close() {
    Require(cache_->CloseFile(&status_) && !status_.Error());
    Require(!cache_->IsOpen(nullptr));
  }

  void Fetch() {
    float* values = nullptr;
    unsigned int length = 1;
    const unsigned int channel = script_.Below(4);
    const KelTime time = script_.Time();
    const bool read = cache_->Read(&values, length, time, channel);
    Require((values != nullptr) == read && (length != 0) == read);
    Require(!read || cache_->IsOpen(nullptr));
    // The address sanitizer sees a length that is too long.
    doubles_[0] = std::accumulate(values, values + length, 0.0);
  }

  void BeginOrEnd() {
    KelTime time = script_.Time();
    script_.Below(2) != 0 ? cache_->BeginWriteAt(time, &status_) : cache_->EndWriteAt(&status_);
  }

  template <typename Call>
  void WithAnArray(Call&& call) {
    switch (script_.Below(3)) {
      case 0: call(doubles_); break;
      case 1: call(floats_); break;
      default: call(ints_); break;
    }
  }

  void Write() {
    KelTime time = script_.Time();
    const int channel = script_.Channel();
    const unsigned int count = script_.Below(kRoom);
    WithAnArray([&](auto* values) { cache_->Write(channel, time, values, count, &status_); });
  }

  void Read() {
    KelTime time = script_.Time();
    const int channel = script_.Channel();
    // Alembic elements have up to 16 values: room for one of them.
    const bool alembic = cache_->GetCacheFileFormat() == KelCache::eAlembicFormat;
    const unsigned int count = alembic ? 1 : script_.Below(kRoom);
    WithAnArray([&](auto* values) { cache_->Read(channel, time, values, count, &status_); });
  }

  void Catalogue() {
    const int channel = script_.Channel();
    KelString text;
    auto type = KelCache::eNCUnknownData;
    auto files = KelCache::eNCSingleFile;
    cache_->GetChannelName(channel, text, &status_);
    cache_->GetChannelInterpretation(channel, text, &status_);
    cache_->GetChannelDataType(channel, type, &status_);
    cache_->GetCacheType(files, &status_);
    const int count = cache_->GetChannelCount(&status_);
    Require((count >= 0) == cache_->IsOpen(nullptr));
    Require(cache_->GetChannelIndex("first", &status_) < std::max(count, 1));
  }

  void Timing() {
    const int channel = script_.Channel();
    KelTime a;
    KelTime b;
    unsigned int count = 0;
    auto sampling = KelCache::eNCSamplingRegular;
    cache_->GetAnimationRange(channel, a, b, &status_);
    cache_->GetSamplingFrameRate(&status_);
    cache_->GetCacheTimePerFrame(&status_);
    cache_->GetDataTime(channel, script_.Below(5), a, &status_);
    cache_->GetDataCount(channel, &status_);
    const KelTime from = script_.Time();
    if (cache_->GetNextTimeWithData(from, b, channel, &status_)) Require(b > from);
    cache_->GetChannelPointCount(channel, from, count, &status_);
    cache_->GetChannelSampleCount(channel, count, &status_);
    cache_->GetChannelSamplingType(channel, sampling, &status_);
    cache_->GetChannelSamplingRate(channel, a, &status_);
  }

  void AddChannel() {
    const char* const names[] = {"first", "second", "third", ""};
    unsigned int index = 0;
    cache_->AddChannel(names[script_.Below(4)], script_.EnumBelow<KelCache::ENCDataType>(8), "i",
                       index, &status_);
  }

  void DataFiles() {
    KelString relative;
    KelString absolute;
    const int count = cache_->GetCacheDataFileCount(&status_);
    const int index = script_.Channel();
    const bool named = cache_->GetCacheDataFileName(index, relative, absolute, &status_);
    Require(!named || (index >= 0 && index < count));
  }

  void Renew() {
    cache_->Destroy();
    cache_ = KelCache::Create(manager_, "c");
  }

  Script& script_;
  const fuzz::ScratchFolder& folder_;
  KelStatus status_;
  KelManager* manager_ = KelManager::Create();
  KelCache* cache_ = KelCache::Create(manager_, "c");
  double doubles_[3 * kRoom] = {0.5};
  float floats_[3 * kRoom] = {0.5F};
  int ints_[3 * kRoom] = {5};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  constexpr std::size_t kLongest = 512;
  const fuzz::ScratchFolder folder;
  // A small archive to open, when there is one beside the corpus.
  std::error_code missing;
  std::filesystem::copy_file(KELCACHE_TEST_DATA "/abc/tiny.abc", folder.File("a.abc"), missing);
  Script script(bytes, std::min(size, kLongest));
  Player player(script, folder);
  while (!script.AtEnd()) player.Step();
  return 0;
}
