// Plays back a PC2 cache: every sample, as floats.
#include <cache/KelCache.h>

#include <cstdio>

using namespace kelsdk;

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  KelManager* manager = KelManager::Create();
  KelCache* cache = KelCache::Create(manager, "cache");
  KelStatus status;
  cache->SetCacheFileFormat(KelCache::ePC2Format, &status);
  cache->SetCacheFileName("", argv[1], &status);
  if (!cache->OpenFileForRead(&status)) {
    std::fprintf(stderr, "%s: %s\n", argv[1], status.GetErrorString());
    manager->Destroy();
    return 3;
  }
  float* points = nullptr;  // x0 y0 z0 x1 ..., owned by the cache, valid until the next fetch
  unsigned int length = 0;  // floats: 3 per point
  unsigned int played = 0;
  for (; played < cache->GetSampleCount(&status); ++played) {
    if (!cache->Read(&points, length, KelTime::FromFrame(played), 0)) break;
  }
  std::printf("%u samples of %u points\n", played, length / 3);
  cache->CloseFile(&status);
  manager->Destroy();
  return 0;
}
