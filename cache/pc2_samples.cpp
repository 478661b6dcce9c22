#include <algorithm>

#include "cache/conversion.h"

namespace kelsdk {
namespace {

constexpr unsigned int kValuesPerPoint = 3;

// Makes the scratch buffer hold the values of `pointCount` points. It is replaced, not resized:
// nothing in it is worth a copy. Code 3 for a size that does not fit 32 bits, code 1 without
// memory.
bool EnsureScratch(KelCache_internal* state, unsigned int pointCount, KelStatus* status) {
  unsigned int bytes = 0;
  if (!SizeOf(pointCount, kValuesPerPoint, sizeof(float), &bytes)) {
    return Fail(status, KelStatus::eInvalidParameter);
  }
  if (pointCount * kValuesPerPoint <= state->pc2BufferCount) return true;
  KelFree(state->pc2Buffer);
  state->pc2Buffer = static_cast<float*>(KelMalloc(bytes));
  state->pc2BufferCount = state->pc2Buffer != nullptr ? pointCount * kValuesPerPoint : 0;
  return state->pc2Buffer != nullptr || Fail(status, KelStatus::eFailure);
}

}  // namespace

bool KelCache::Read(unsigned int sampleIndex, double* buffer, unsigned int pointCount,
                    KelStatus* status) {
  auto* cache = RequirePC2(GetCacheFileFormat(), internalState, eOpenForRead, status);
  if (cache == nullptr) return false;
  if (buffer == nullptr && pointCount != 0) return Fail(status, KelStatus::eInvalidParameter);
  if (!EnsureScratch(internalState, pointCount, status)) return false;
  float* scratch = internalState->pc2Buffer;
  const unsigned int valueCount = pointCount * kValuesPerPoint;
  if (pointCount > cache->pointCount) {
    std::fill(scratch + size_t{cache->pointCount} * kValuesPerPoint, scratch + valueCount, 0.0F);
  }
  unsigned int count = pointCount;
  if (!cache->readSample(sampleIndex, scratch, count)) {
    return Fail(status, "Error reading sample data");
  }
  ConvertValues(scratch, buffer, valueCount);
  ClearStatus(status);
  return true;
}

bool KelCache::Write(unsigned int sampleIndex, double* buffer, KelStatus* status) {
  if (buffer == nullptr) return Fail(status, KelStatus::eInvalidParameter);
  auto* cache = RequirePC2(GetCacheFileFormat(), internalState, eOpenForWrite, status);
  if (cache == nullptr) return false;
  if (!EnsureScratch(internalState, cache->pointCount, status)) return false;
  ConvertValues(buffer, internalState->pc2Buffer, cache->pointCount * kValuesPerPoint);
  if (!cache->writeSample(static_cast<int>(sampleIndex), internalState->pc2Buffer)) {
    return Fail(status, "Error writing sample data");
  }
  ClearStatus(status);
  return true;
}

unsigned int KelCache::GetPointCount(KelStatus* status) {
  const auto* cache = RequirePC2(GetCacheFileFormat(), internalState, eOpenForRead, status);
  if (cache == nullptr) return 0;
  ClearStatus(status);
  return cache->pointCount * kValuesPerPoint;
}

unsigned int KelCache::GetSampleCount(KelStatus* status) {
  const auto* cache = RequirePC2(GetCacheFileFormat(), internalState, eOpenForRead, status);
  if (cache == nullptr) return 0;
  ClearStatus(status);
  return cache->sampleCount;
}

double KelCache::GetFrameStartOffset(KelStatus* status) {
  const auto* cache = RequirePC2(GetCacheFileFormat(), internalState, eOpenForRead, status);
  if (cache == nullptr) return 0.0;
  ClearStatus(status);
  return double(cache->startFrame);
}

}  // namespace kelsdk
