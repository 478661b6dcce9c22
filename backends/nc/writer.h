#pragma once

#include <span>
#include <string>
#include <vector>

#include "backends/nc/array_coder.h"
#include "backends/nc/arrays.h"
#include "backends/nc/data_writer.h"
#include "backends/nc/open_cache.h"
#include "backends/nc/partial.h"

namespace kelsdk::nc {

/// A cache being written. Its files gather in a folder of their own; ending the object without
/// Finish leaves them for `recover`, unless nothing has been written. A failed write is remembered:
/// from then on nothing more is written and Finish refuses.
///
/// Operations may throw std::bad_alloc.
class CacheWriter : public OpenCache {
 public:
  CacheWriter() = default;
  ~CacheWriter() override;

  bool Begin(const CacheName& name, const FileLayout& layout, io::Error& error);

  /// Small time blocks go to disk many at a time and do not survive the writer: for copies.
  void LetBlocksWait() { data_.LetBlocksWait(); }

  /// @param interval  the declared sampling interval in ticks, 0 for the ticks per frame
  bool AddChannel(const char* name, const char* interpretation, EType type, std::uint32_t interval,
                  std::uint32_t* index, io::Error& error);

  /// Lets the values of a channel move by so much, in their own unit, where that takes less room.
  /// Refused once an array has been written since the channel was added.
  bool SetMaximumError(std::uint32_t channel, double maximumError, io::Error& error);

  /// Ends the block before it.
  bool BeginBlock(std::int32_t tick, io::Error& error);
  bool AddArray(std::uint32_t channel, std::int32_t tick, const void* array, std::uint32_t count,
                io::Error& error);
  /// Gives a channel the array that another one, or the same, has at a time, without its values.
  /// Refused, with nothing changed, where the open data file does not hold that array.
  bool AddRepeat(std::uint32_t channel, std::int32_t tick, std::uint32_t ofChannel,
                 std::int32_t ofTick, io::Error& error);
  /// Does nothing outside a block.
  bool EndBlock(io::Error& error);
  /// Completes the data files and hands over what is left to publish.
  bool Finish(Partial* partial, Description* description, io::Error& error);

  /// Gives up: removes what has been written, unless Finish has handed it over.
  void Discard();

  const Description& Info() const override { return description_; }
  Extent ExtentOf(std::uint32_t channel) const override;
  bool TimesOf(std::uint32_t channel, Times* times, io::Error& error) override;
  bool Locate(std::uint32_t channel, std::uint32_t sample, SampleEntry* entry,
              io::Error& error) override;
  bool Fetch(std::uint32_t channel, const SampleEntry& entry, std::int32_t tick, void* array,
             io::Error& error) override;
  DataFiles Files() const override { return {partial_.name.base, description_, Times(fileTimes_)}; }

 private:
  bool CheckSample(std::uint32_t channel, std::int32_t tick, io::Error& error) const;
  bool PrepareSample(std::uint32_t channel, io::Error& error);
  void NoteSample(std::uint32_t channel, const SampleEntry& entry);
  bool CanWrite(io::Error& error) const;
  bool Fail(const io::Error& error);
  void ArmFailure();
  bool OpenForBlock(io::Error& error);
  bool ReopenFrame(io::Error& error);
  void DeclareChannels();
  const void* Encode(std::uint32_t channel, const void* array, std::uint32_t count);
  bool StoreArray(std::uint32_t channel, const void* array, SampleEntry* entry, io::Error& error);
  bool FinishFrame(io::Error& error);
  bool FinishSingle(io::Error& error);

  Partial partial_;
  Description description_;
  DataWriter data_;
  std::uint32_t declared_ = 0;                     // channels with a record in the open data file
  std::uint32_t everDeclared_ = 0;                 // in any data file
  std::uint32_t blockCount_ = 0;                   // in the open data file
  std::vector<std::vector<SampleEntry>> indices_;  // by channel
  std::vector<SampleEntry> latest_;                // by channel, the array written last
  std::vector<ArrayCoder> coders_;                 // by channel
  std::vector<std::int32_t> fileTimes_;            // per-frame layout: the files, ascending
  std::vector<std::vector<SampleEntry>> frameIndices_;
  PredictedEncoder predicted_;
  std::vector<std::uint8_t> bytePlanes_;
  std::span<const std::uint8_t> encoded_;  // of the array being written; empty: as it is
  ArrayReader arrays_;
  std::string fileName_;
  std::string path_;

  bool inBlock_ = false;
  std::int32_t blockTick_ = 0;
  std::uint32_t blockArrays_ = 0;
  bool holdsData_ = false;
  io::Error failure_;
};

}  // namespace kelsdk::nc
