#pragma once

#include <optional>
#include <string>

#include "backends/io/error.h"
#include "backends/io/guard.h"
#include "backends/nc/reader.h"
#include "backends/nc/writer.h"
#include "backends/zuCacheFileInterface.h"

namespace kelsdk {
namespace nc {

// What an operation of the interface works on.
struct OnNothingOpen {};
struct OnCache {};
struct OnChannel {
  unsigned int index;
};
struct OnWriter {};

}  // namespace nc

struct zuCacheFileInterface::Impl {
  std::optional<nc::CacheReader> reader;
  std::optional<nc::CacheWriter> writer;
  nc::CacheName name;
  std::string text;  // a name being made; its memory is reused
  io::Error error;

  /// The sample that was asked for last: its length, then its data. Forgotten when anything is
  /// written or opened.
  struct Found {
    unsigned int channel = 0;
    int tick = 0;
    nc::SampleEntry entry;
  };
  std::optional<Found> found;

  /// The sample that answers for a time; null, with the error set, when none does. May throw
  /// std::bad_alloc.
  const nc::SampleEntry* FindSampleAt(nc::OpenCache& cache, unsigned int channel, int tick) {
    if (found && found->channel == channel && found->tick == tick) return &found->entry;
    found.reset();
    nc::SampleEntry entry;
    if (!nc::FindSampleAt(cache, channel, tick, &entry, error)) return nullptr;
    return &found.emplace(Found{channel, tick, entry}).entry;
  }

  nc::OpenCache* Open() {
    if (reader) return &*reader;
    return writer ? &*writer : nullptr;
  }

  /// What an operation works on; null, with the error set, when it is not there.
  nc::OpenCache* Target(nc::OnCache) {
    nc::OpenCache* const cache = Open();
    if (cache == nullptr) error.Set(io::Error::eRefused, "no cache is open");
    return cache;
  }
  nc::OpenCache* Target(nc::OnChannel channel) {
    nc::OpenCache* const cache = Target(nc::OnCache());
    if (cache == nullptr || channel.index < cache->Info().channels.size()) return cache;
    error.Set(io::Error::eRefused, "channel %u of %zu", channel.index,
              cache->Info().channels.size());
    return nullptr;
  }
  nc::CacheWriter* Target(nc::OnWriter) {
    found.reset();
    if (!writer) error.Set(io::Error::eRefused, "no cache is open for writing");
    return writer ? &*writer : nullptr;
  }
  Impl* Target(nc::OnNothingOpen) {
    found.reset();
    if (Open() == nullptr) return this;
    error.Set(io::Error::eRefused, "a cache is open already");
    return nullptr;
  }
};

namespace nc {

/// Runs the body of an operation on what it works on. What it throws becomes a failure, as does an
/// object that had no memory for its record.
template <typename Impl, typename Where, typename Result, typename Body>
Result Run(Impl* impl, Where where, Result onFailure, Body&& body) noexcept {
  if (impl == nullptr) return onFailure;
  try {
    auto* const target = impl->Target(where);
    return target != nullptr ? body(*target) : onFailure;
  } catch (...) {
    io::SetFromException(impl->error);
    return onFailure;
  }
}

/// Makes a cache in its place and takes it away again unless it could be opened.
template <typename Cache>
class Opening {
 public:
  explicit Opening(std::optional<Cache>* place) : place_(*place) { place_.emplace(); }
  Opening(const Opening&) = delete;
  Opening& operator=(const Opening&) = delete;
  ~Opening() {
    if (!isOpen_) place_.reset();
  }

  bool Done(bool isOpen) { return isOpen_ = isOpen; }

 private:
  std::optional<Cache>& place_;
  bool isOpen_ = false;
};

}  // namespace nc
}  // namespace kelsdk
