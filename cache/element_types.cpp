#include "cache/KelCache.h"

namespace kelsdk {
namespace {

struct ElementType {
  unsigned int valueSize = 0;
  unsigned int length = 0;
  bool isFloat = false;
};

ElementType Describe(zuCacheData::zuCacheDataType type) {
  switch (type) {
    case zuCacheData::eNCDoubleArray: return {8, 1, false};
    case zuCacheData::eNCDoubleVectorArray: return {8, 3, false};
    case zuCacheData::eNCInt32Array: return {4, 1, false};
    case zuCacheData::eNCFloatArray: return {4, 1, true};
    case zuCacheData::eNCFloatVectorArray: return {4, 3, true};
    case zuCacheData::eNCUnknownData:
    case zuCacheData::eNCDouble: break;
  }
  return {};
}

}  // namespace

unsigned int GetTypeSize(zuCacheData::zuCacheDataType type) {
  return Describe(type).valueSize;
}

unsigned int GetTypeLength(zuCacheData::zuCacheDataType type) {
  return Describe(type).length;
}

bool GetTypeIsFloat(zuCacheData::zuCacheDataType type) {
  return Describe(type).isFloat;
}

}  // namespace kelsdk
