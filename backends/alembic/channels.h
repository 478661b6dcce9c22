#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "backends/alembic/archive.h"
#include "backends/io/error.h"

namespace kelsdk::alembic {

/// An archive as a list of channels: the numeric array and scalar properties that have samples, of
/// every object that is no instance. Positions come first, so that channel 0 is the points of the
/// first shape; each part is in the order of the hierarchy.
///
/// Channel numbers are checked by the caller against Count().
class ChannelList {
 public:
  /// Takes the archive. Throws std::bad_alloc.
  explicit ChannelList(std::unique_ptr<Archive> archive);

  Archive& archive() const { return *archive_; }
  std::uint32_t Count() const { return static_cast<std::uint32_t>(channels_.size()); }

  /// Finds a channel by the full path of its property, or positions by the path of their object. Of
  /// equal paths the first counts. Throws std::bad_alloc.
  bool Find(std::string_view name, std::uint32_t& channel);

  std::string Name(std::uint32_t channel) const;  ///< throws std::bad_alloc
  const Property& PropertyOf(std::uint32_t channel) const;
  const TimeSampling& SamplingOf(std::uint32_t channel) const;

  /// Samples that have a time.
  std::uint32_t SampleCount(std::uint32_t channel) const { return channels_[channel].sampleCount; }

  /// Seconds of the first sample and of the last.
  double Start(std::uint32_t channel) const;
  double End(std::uint32_t channel) const;

  /// Elements of the largest sound sample, found when first asked for. Throws std::bad_alloc.
  bool BufferLength(std::uint32_t channel, std::uint32_t& elements, io::Error& error);

  /// Elements of one sample. Throws std::bad_alloc.
  bool SampleLength(std::uint32_t channel, std::uint32_t sample, std::uint32_t& elements,
                    io::Error& error);

  /// Delivers one sample in the values it is stored in, halves as floats, into room for `elements`;
  /// `elements` becomes their number. Throws std::bad_alloc.
  bool ReadSample(std::uint32_t channel, std::uint32_t sample, void* values,
                  std::uint32_t& elements, io::Error& error);

  /// Where the archive keeps a sample (Archive::SampleIdentity). Throws std::bad_alloc.
  bool SampleIdentity(std::uint32_t channel, std::uint32_t sample, std::uint64_t& identity,
                      io::Error& error);

  /// Delivers `count` elements of the sample at `seconds` as floats: count x extent of them. What
  /// the sample does not fill is quiet NaN. When false, `buffer` is unspecified. Throws
  /// std::bad_alloc; allocates nothing once the channel has been read with as large a `count`.
  bool Read(std::uint32_t channel, double seconds, float* buffer, std::uint32_t count,
            io::Error& error);

 private:
  struct Channel {
    PropertyId property = 0;
    std::uint32_t sampleCount = 0;
    std::uint32_t bufferLength = 0;
    bool lengthKnown = false;
  };
  /// A path that leads to a channel.
  struct HashedName {
    std::uint64_t hash = 0;
    std::uint32_t channel = 0;
    bool ofObject = false;  // the path of the object whose positions they are
  };

  void AddChannels();
  bool IsChannel(PropertyId id) const;
  bool IsPositions(PropertyId id) const;
  void HashNames();
  bool HasName(const HashedName& entry, std::string_view name) const;

  /// Reads values of `valueSize` bytes as they are stored and converts them into `buffer`.
  bool ReadConverted(const Property& property, PropertyId id, std::uint64_t stored, float* buffer,
                     std::uint64_t valueCount, std::uint64_t& valuesRead, io::Error& error);

  std::unique_ptr<Archive> archive_;
  std::vector<Channel> channels_;
  std::uint32_t positionCount_ = 0;
  std::vector<HashedName> names_;         // sorted; empty before the first Find
  std::vector<std::uint8_t> wideValues_;  // 64-bit values on their way to floats
};

}  // namespace kelsdk::alembic
