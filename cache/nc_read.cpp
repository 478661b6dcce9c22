#include "cache/conversion.h"
#include "cache/ticks.h"

namespace kelsdk {
namespace {

bool ReadInto(zuCacheFileInterface* cache, int channelIndex, int ticks, void* data,
              unsigned int count) {
  return cache->getArrayDataAtTime(LibraryIndex(channelIndex), ticks, data, count);
}

// The one body of the three Read forms on an NC cache; `Value` is the caller's array type.
template <typename Value>
bool ReadArray(KelCache::EFileFormat format, const KelCache_internal* state, int channelIndex,
               const KelTime& time, Value* buffer, unsigned int count, KelStatus* status) {
  auto* cache = RequireNC(format, state, status);
  if (cache == nullptr) return false;
  auto type = zuCacheData::eNCUnknownData;
  if (!cache->channelDataType(LibraryIndex(channelIndex), type)) return false;
  const EPath path = PathOf<Value>(type);
  // For integers the element type is looked at before the time, for the others after it.
  if (std::is_same_v<Value, int> && path == EPath::eRefused) {
    return Fail(status, KelStatus::eFailure);
  }
  int ticks = 0;
  if (!TicksOf(time, &ticks, status)) return false;
  if (path == EPath::eRefused) return Fail(status, KelStatus::eFailure);
  if (buffer == nullptr && count != 0) return Fail(status, KelStatus::eInvalidParameter);
  if (path == EPath::eDirect) return ReadInto(cache, channelIndex, ticks, buffer, count);

  using Stored = ConvertedTo<Value>;
  unsigned int bytes = 0;
  if (!SizeOf(count, GetTypeLength(type), sizeof(Stored), &bytes)) {
    return Fail(status, KelStatus::eInvalidParameter);
  }
  auto* scratch = static_cast<Stored*>(KelMalloc(bytes));
  if (scratch == nullptr) return false;
  const bool read = ReadInto(cache, channelIndex, ticks, scratch, count);
  if (read) ConvertValues(scratch, buffer, count * GetTypeLength(type));
  KelFree(scratch);
  return read;
}

}  // namespace

bool KelCache::Read(int channelIndex, KelTime& time, float* buffer, unsigned int count,
                    KelStatus* status) {
  ClearStatus(status);
  const EFileFormat format = GetCacheFileFormat();
  if (format != eAlembicFormat) {
    return ReadArray(format, internalState, channelIndex, time, buffer, count, status);
  }
  auto* cache = RequireAlembic(internalState, status);
  if (cache == nullptr) return false;
  if (buffer == nullptr && count != 0) return Fail(status, KelStatus::eInvalidParameter);
  return cache->GetChannelBuffer(LibraryIndex(channelIndex), buffer, count, time);
}

bool KelCache::Read(int channelIndex, KelTime& time, double* buffer, unsigned int count,
                    KelStatus* status) {
  ClearStatus(status);
  return ReadArray(GetCacheFileFormat(), internalState, channelIndex, time, buffer, count, status);
}

bool KelCache::Read(int channelIndex, KelTime& time, int* buffer, unsigned int count,
                    KelStatus* status) {
  ClearStatus(status);
  return ReadArray(GetCacheFileFormat(), internalState, channelIndex, time, buffer, count, status);
}

}  // namespace kelsdk
