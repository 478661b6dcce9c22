#pragma once

#include <string>

#include "cache/internal.h"
#include "tests/standins/recorder.h"
#include "tests/support/fixture.h"

namespace kelsdk::test {

/// Opens the protected fields to tests, through pointers to members.
struct CacheFields : KelCache {
  static KelCache_internal* State(KelCache* cache) { return cache->*&CacheFields::internalState; }
  static void* ReadBuffer(KelCache* cache) { return cache->*&CacheFields::readBuffer; }
  static float* FloatBuffer(KelCache* cache) { return cache->*&CacheFields::readFloatBuffer; }
  static unsigned int Capacity(KelCache* cache) { return cache->*&CacheFields::readBufferCapacity; }
  static unsigned int TypeSize(KelCache* cache) { return cache->*&CacheFields::readTypeSize; }
};

constexpr char kInvalidFormatText[] = "Invalid/unspecified cache format";
constexpr char kNotOpenedText[] = "Cache file not opened";
constexpr char kInvalidFlagText[] = "Invalid open flag";

/// A cache object whose back-ends are the stand-ins, with files that exist for all three formats.
class StandInTest : public FileTest {
 protected:
  void SetUp() override {
    TheRecorder() = {};
    manager_ = KelManager::Create();
    cache_ = KelCache::Create(manager_, "cache");
    for (const char* extension : {".pc2", ".xml", ".abc"}) {
      WriteBytes(folder_.File(std::string("shot") + extension), {0});
    }
    cache_->SetCacheFileName("relative/none", folder_.File("shot.pc2").c_str(), nullptr);
  }

  void TearDown() override {
    manager_->Destroy();
    status_.Clear();
    FileTest::TearDown();
  }

  /// Sets the format and opens the file of it; the calls made so far are dropped.
  void Open(KelCache::EFileFormat format, bool write = false) {
    cache_->SetCacheFileFormat(format, nullptr);
    bool opened = false;
    if (!write) {
      if (format == KelCache::eNCFormat && TheRecorder().channels.empty()) {
        TheRecorder().channels.push_back({});
      }
      opened = cache_->OpenFileForRead(nullptr);
    } else if (format == KelCache::ePC2Format) {
      opened = cache_->OpenFileForWrite(0.0, 24.0, 3, 4, nullptr);
    } else {
      opened =
          cache_->OpenFileForWrite(KelCache::eNCSingleFile, 24.0, nullptr, KelCache::eNCBinaryX,
                                   KelCache::eNCFloatVectorArray, nullptr, nullptr);
    }
    ASSERT_TRUE(opened);
    TheRecorder().Take();
  }

  /// A status that holds something, to see what an operation does to it.
  void Soil() { status_.SetCode(KelStatus::eIndexOutOfRange, "%s", "old"); }

  void ExpectStatus(KelStatus::EStatusCode code, const std::string& message = "") {
    EXPECT_EQ(status_.GetCode(), code);
    EXPECT_STREQ(status_.GetErrorString(), message.c_str());
  }
  void ExpectClear() { ExpectStatus(KelStatus::eSuccess); }
  void ExpectSoiled() { ExpectStatus(KelStatus::eIndexOutOfRange, "old"); }

  KelManager* manager_ = nullptr;
  KelCache* cache_ = nullptr;
  KelStatus status_;
};

}  // namespace kelsdk::test
