#include "cache/conversion.h"
#include "cache/ticks.h"

namespace kelsdk {
namespace {

// Hands an array to the library, in a block of its own when none is open.
bool AddArray(zuCacheFileInterface* cache, const KelCache_internal& state, int channelIndex,
              int ticks, void* data, unsigned int count) {
  const bool ownBlock = !state.beginWriteAtCalled;
  if (ownBlock) cache->beginWriteAtTime(ticks);
  const bool added = cache->addArrayData(LibraryIndex(channelIndex), ticks, data, count);
  if (ownBlock) cache->endWriteAtTime();
  return added;
}

// The one body of the three Write forms; `Value` is the caller's array type.
template <typename Value>
bool WriteArray(KelCache& owner, const KelCache_internal* state, int channelIndex,
                const KelTime& time, Value* buffer, unsigned int count, KelStatus* status) {
  ClearStatus(status);
  if (buffer == nullptr) return Fail(status, KelStatus::eInvalidParameter);
  auto* cache = RequireNCForWrite(owner.GetCacheFileFormat(), state, status);
  if (cache == nullptr) return false;
  auto type = zuCacheData::eNCUnknownData;
  if (!cache->channelDataType(LibraryIndex(channelIndex), type)) return false;
  if (!state->beginWriteAtCalled && owner.GetChannelCount(nullptr) > 1) {
    return Fail(status, "BeginWriteAt not called");
  }
  int ticks = 0;
  if (!TicksOf(time, &ticks, status)) return false;

  switch (PathOf<Value>(type)) {
    case EPath::eRefused: return Fail(status, KelStatus::eFailure);
    case EPath::eDirect: return AddArray(cache, *state, channelIndex, ticks, buffer, count);
    case EPath::eConverting: break;
  }
  using Stored = ConvertedTo<Value>;
  unsigned int bytes = 0;
  if (!SizeOf(count, GetTypeLength(type), sizeof(Stored), &bytes)) {
    return Fail(status, KelStatus::eInvalidParameter);
  }
  auto* scratch = static_cast<Stored*>(KelMalloc(bytes));
  if (scratch == nullptr) return false;
  ConvertValues(buffer, scratch, count * GetTypeLength(type));
  const bool added = AddArray(cache, *state, channelIndex, ticks, scratch, count);
  KelFree(scratch);
  return added;
}

}  // namespace

bool KelCache::BeginWriteAt(KelTime& time, KelStatus* status) {
  ClearStatus(status);
  auto* cache = RequireNCForWrite(GetCacheFileFormat(), internalState, status);
  if (cache == nullptr) return false;
  int ticks = 0;
  if (!TicksOf(time, &ticks, status)) return false;
  internalState->beginWriteAtCalled = true;
  cache->beginWriteAtTime(ticks);
  return true;
}

bool KelCache::EndWriteAt(KelStatus* status) {
  auto* cache = RequireNCForWrite(GetCacheFileFormat(), internalState, status);
  if (cache == nullptr) return false;
  ClearStatus(status);
  cache->endWriteAtTime();
  internalState->beginWriteAtCalled = false;
  return true;
}

bool KelCache::Write(int channelIndex, KelTime& time, double* buffer, unsigned int count,
                     KelStatus* status) {
  return WriteArray(*this, internalState, channelIndex, time, buffer, count, status);
}

bool KelCache::Write(int channelIndex, KelTime& time, float* buffer, unsigned int count,
                     KelStatus* status) {
  return WriteArray(*this, internalState, channelIndex, time, buffer, count, status);
}

bool KelCache::Write(int channelIndex, KelTime& time, int* buffer, unsigned int count,
                     KelStatus* status) {
  return WriteArray(*this, internalState, channelIndex, time, buffer, count, status);
}

}  // namespace kelsdk
