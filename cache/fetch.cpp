#include <algorithm>

#include "cache/conversion.h"
#include "cache/ticks.h"

namespace kelsdk {

bool KelCache::Read(float** buffer, unsigned int& length, const KelTime& time,
                    unsigned int channelIndex) {
  bool read = false;
  switch (GetCacheFileFormat()) {
    case eUnknownFormat: break;
    case ePC2Format: read = ReadTovCache(buffer, length, time); break;
    case eNCFormat: read = ReadNuvoCache(buffer, length, time, channelIndex); break;
    case eAlembicFormat: read = ReadAlembicCache(buffer, length, time, channelIndex); break;
  }
  if (!read) {
    if (buffer != nullptr) *buffer = nullptr;
    length = 0;
  }
  return read;
}

// The layout is stored only once both buffers hold it, so a failure leaves the old one true.
bool KelCache::AllocateReadBuffer(unsigned int typeSize, unsigned int typeLength,
                                  unsigned int elementCount, bool needsFloatBuffer) {
  if (typeSize == 0 || typeLength == 0 || elementCount == 0) return false;
  const bool sameLayout = readBuffer != nullptr && typeSize == readTypeSize &&
                          typeLength == readTypeLength && elementCount == readElementCount;
  if (sameLayout && (readFloatBuffer != nullptr || !needsFloatBuffer)) return true;

  unsigned int bytes = 0;
  unsigned int floatBytes = 0;
  if (!SizeOf(typeSize, typeLength, elementCount, &bytes) ||
      !SizeOf(sizeof(float), typeLength, elementCount, &floatBytes)) {
    return false;
  }
  if (bytes > readBufferCapacity) {
    void* grown = KelRealloc(readBuffer, bytes);
    if (grown == nullptr) return false;
    readBuffer = grown;
    readBufferCapacity = bytes;
  }
  if (needsFloatBuffer || readFloatBuffer != nullptr) {
    void* resized = KelRealloc(readFloatBuffer, floatBytes);
    if (resized == nullptr) return false;
    readFloatBuffer = static_cast<float*>(resized);
  }
  readTypeSize = typeSize;
  readTypeLength = typeLength;
  readElementCount = elementCount;
  readValueCount = typeLength * elementCount;
  return true;
}

bool KelCache::ReadTovCache(float** buffer, unsigned int& length, const KelTime& time) {
  constexpr unsigned int kValuesPerPoint = 3;
  auto* cache = RequirePC2(ePC2Format, internalState, eOpenForRead, nullptr);
  if (cache == nullptr) return false;
  unsigned int pointCount = cache->pointCount;
  if (!AllocateReadBuffer(sizeof(float), kValuesPerPoint, pointCount, false)) return false;
  if (buffer != nullptr) {
    // A negative frame becomes a sample number that no file has.
    const auto sample = static_cast<unsigned int>(time.GetFrameCount(KelTime::eDefaultMode));
    auto* points = static_cast<float*>(readBuffer);
    if (!cache->readSample(sample, points, pointCount)) return false;
    *buffer = points;
  }
  length = readValueCount;
  return true;
}

bool KelCache::ReadNuvoCache(float** buffer, unsigned int& length, const KelTime& time,
                             unsigned int channelIndex) {
  auto* cache = RequireNC(eNCFormat, internalState, nullptr);
  if (cache == nullptr) return false;
  auto type = zuCacheData::eNCUnknownData;
  if (!cache->channelDataType(channelIndex, type)) return false;
  int ticks = 0;
  if (!TicksOf(time, &ticks)) return false;
  unsigned int arrayLength = 0;
  if (!cache->getArrayLengthAtTime(channelIndex, ticks, arrayLength)) return false;
  const bool isFloat = GetTypeIsFloat(type);
  if (!AllocateReadBuffer(GetTypeSize(type), GetTypeLength(type), arrayLength, !isFloat)) {
    return false;
  }
  if (buffer != nullptr) {
    if (!cache->getArrayDataAtTime(channelIndex, ticks, readBuffer, arrayLength)) return false;
    if (isFloat) {
      *buffer = static_cast<float*>(readBuffer);
    } else {
      if (type == zuCacheData::eNCInt32Array) {
        ConvertValues(static_cast<const int*>(readBuffer), readFloatBuffer, readValueCount);
      } else {
        ConvertValues(static_cast<const double*>(readBuffer), readFloatBuffer, readValueCount);
      }
      *buffer = readFloatBuffer;
    }
  }
  length = readValueCount;
  return true;
}

bool KelCache::ReadAlembicCache(float** buffer, unsigned int& length, const KelTime& time,
                                unsigned int channelIndex) {
  auto* cache = RequireAlembic(internalState, nullptr);
  if (cache == nullptr) return false;
  const unsigned int typeSize = cache->GetChannelTypeSize(channelIndex);
  const unsigned int dataLength = cache->GetChannelDataLength(channelIndex);
  const unsigned int bufferLength = cache->GetChannelBufferLength(channelIndex);
  const bool isFloat = cache->GetChannelTypeIsFloat(channelIndex);
  const unsigned int valueSize = dataLength != 0 ? typeSize / dataLength : 0;
  if (valueSize == 0) return false;
  // The reader delivers floats whatever the channel's own value size.
  const unsigned int roomPerValue = std::max<unsigned int>(valueSize, sizeof(float));
  if (!AllocateReadBuffer(roomPerValue, dataLength, bufferLength, !isFloat)) return false;
  if (buffer != nullptr) {
    auto* values = static_cast<float*>(readBuffer);
    if (!cache->GetChannelBuffer(channelIndex, values, bufferLength, time)) return false;
    *buffer = values;
  }
  length = readValueCount;
  return true;
}

}  // namespace kelsdk
