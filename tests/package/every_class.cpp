// Uses every public class from outside the library, derives from those that are made for it, and
// reads an archive and writes a cache of each format: every_class ARCHIVE FOLDER/.
#include <backends/AlembicInterface.h>
#include <backends/CacheLeftover.h>
#include <backends/zuCacheFileInterface.h>
#include <backends/zuPointCache2IO.h>
#include <cache/KelCache.h>
#include <host/KelFileUtils.h>
#include <host/KelFraction.h>
#include <host/KelNearestFloat.h>
#include <host/KelPathUtils.h>
#include <host/KelStream.h>

#include <cstdio>
#include <cstdlib>
#include <typeinfo>

using namespace kelsdk;

namespace {

int failures = 0;

void Expect(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "failed: %s\n", what);
  ++failures;
}

/// A class of the program's own, registered with the library's registry.
class OwnCache : public KelCache {
 public:
  static KelClassId ClassId;
  using KelCache::KelCache;
  KelClassId GetClassId() const override { return ClassId; }
  bool PropertyNotify(EPropertyNotifyType type, KelProperty& property) override {
    ++notified;
    return KelCache::PropertyNotify(type, property);
  }
  int notified = 0;
};

KelObject* MakeOwnCache(KelManager* manager, const char* name, const KelObject* from) {
  OwnCache* made = KelNew<OwnCache>(*manager, name);
  if (made != nullptr) made->Construct(from);
  return made;
}

KelClassId OwnCache::ClassId;
const KelClassRegistration registration(OwnCache::ClassId, "OwnCache", &KelCache::ClassId,
                                        MakeOwnCache);

/// The back-ends may be derived from too.
class OwnPoints : public zuPointCache2IO {};
class OwnChannels : public zuCacheFileInterface {};

int blocks = 0;

void HostServices() {
  Expect(KelSetMemoryHandlers(
             [](std::size_t size) {
               ++blocks;
               return std::malloc(size);
             },
             [](void* block, std::size_t size) { return std::realloc(block, size); },
             [](void* block) { std::free(block); }),
         "memory handlers");
  KelFree(KelRealloc(KelMalloc(8), 16));
  Expect(blocks == 1, "the program's allocator is asked");

  KelString text = KelString("a") + "b" + KelString("c");
  Expect(text == "abc" && Compare(text, KelString("abd")) < 0, "strings");
  Expect(KelPathUtils::GetFileName("/a/b.pc2", false) == "b", "paths");
  Expect(KelFileUtils::Exist("/proc/self/exe"), "files");
  Expect(KelTime::FromFrame(24, KelFrameRate::FromDouble(23.976))
                 .GetFrameCount(KelFrameRate{24000, 1001}) == 24,
         "times");
  Expect(KelFraction::Simplest(0.33, 0.34).denominator == 3, "fractions");
  Expect(KelNearestFloat(0.5) == 0.5F, "floats");
  KelStream stream;
  unsigned int number = 0;
  Expect(stream.WriteInteger(7) && stream.ReadInteger(number) && number == 7, "streams");
  KelStatus status;
  status.SetCode(KelStatus::eFailure, "%d", 5);
  Expect(status.Error() && KelString(status.GetErrorString()) == "5", "status");
}

void Objects() {
  KelManager* manager = KelManager::Create();
  KelObject* object =
      manager->CreateNewObjectFromClassId(OwnCache::ClassId, "own", nullptr, nullptr);
  Expect(typeid(*object) == typeid(OwnCache), "the registered factory is called");
  auto* cache = dynamic_cast<OwnCache*>(static_cast<KelObject*>(object));
  Expect(cache != nullptr && cache->GetClassId().Is(KelObject::ClassId), "classes");
  KelStatus status;
  cache->SetCacheFileName("own.pc2", "/nowhere/own.pc2", &status);
  Expect(cache->notified > 0, "overridden operations are called by the library");
  KelProperty property = KelProperty::Create(cache, KelStringDT, "note", "", true, nullptr);
  KelString note = "kept";
  Expect(property.Set(&note, eKelString, false) && property.GetDataType()->GetType() == eKelString,
         "properties");
  Expect(KelEnumDT.GetType() == eKelEnum, "property types");
  Expect(GetTypeSize(zuCacheData::eNCDoubleArray) == sizeof(double) &&
             GetTypeLength(zuCacheData::eNCFloatVectorArray) == 3 &&
             GetTypeIsFloat(zuCacheData::eNCFloatArray),
         "element types");
  manager->Destroy();
}

void Formats(const char* archive, const char* folder) {
  AlembicInterface alembic(true);
  AlembicChannelInfo info;
  Expect(alembic.Open(archive, 1) && alembic.GetChannelInfo(0, info) && !info.name.IsEmpty(),
         alembic.GetErrorString());

  float points[] = {1, 2, 3};
  const KelString file = KelString(folder) + "points.pc2";
  OwnPoints written;
  Expect(written.initialize(file, zuPointCache2IO::writeMode) &&
             written.beginWriteData(1, 1, 0, 1) && written.writeSample(0, points) &&
             written.endWriteData(),
         written.errorString());

  Expect(zuCacheFileInterface::convertFromPc2(file, folder, "channels",
                                              zuCacheFileInterface::eSingleFile, "ncc", 250),
         "PC2 to NC");
  OwnChannels channels;
  unsigned int channel = 1;
  Expect(channels.initFileRead("channels", folder) && channels.numChannels() == 1 &&
             channels.hasChannelByName("channels", channel),
         channels.errorString());
  Expect(zuCacheFileInterface::listLeftovers(
             folder, [](void*, const CacheLeftover& leftover) { Expect(false, leftover.name); },
             nullptr, nullptr),
         "leftovers");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  HostServices();
  Objects();
  Formats(argv[1], argv[2]);
  return failures == 0 ? 0 : 1;
}
