#pragma once

#include <string>

#include "backends/io/endian.h"
#include "cache/KelCache.h"
#include "tests/support/fixture.h"

namespace kelsdk::test {

/// A PC2 file's bytes: a header of these fields and `data` after it.
inline Bytes MakePC2(std::uint32_t points, std::uint32_t samples, size_t dataBytes, float start = 0,
                     float rate = 1, std::int32_t version = 1) {
  Bytes bytes(32 + dataBytes);
  const char signature[] = "POINTCACHE2";
  std::copy(signature, signature + 12, bytes.begin());
  io::StoreLittle(&bytes[12], version);
  io::StoreLittle(&bytes[16], points);
  io::StoreLittle(&bytes[20], start);
  io::StoreLittle(&bytes[24], rate);
  io::StoreLittle(&bytes[28], samples);
  for (size_t i = 0; i + 4 <= dataBytes; i += 4) {
    io::StoreLittle(&bytes[32 + i], static_cast<float>(i / 4));
  }
  return bytes;
}

/// A manager with one cache object of format PC2.
class PC2Object {
 public:
  explicit PC2Object(const std::string& path) : manager_(KelManager::Create()) {
    cache = KelCache::Create(manager_, "cache");
    cache->SetCacheFileFormat(KelCache::ePC2Format, nullptr);
    cache->SetCacheFileName("", path.c_str(), nullptr);
  }
  ~PC2Object() { manager_->Destroy(); }
  PC2Object(const PC2Object&) = delete;
  PC2Object& operator=(const PC2Object&) = delete;
  KelCache* operator->() { return cache; }

  KelCache* cache = nullptr;

 private:
  KelManager* manager_;
};

inline KelTime FrameTime(long long frame) {
  return KelTime::FromFrame(frame);
}

}  // namespace kelsdk::test
