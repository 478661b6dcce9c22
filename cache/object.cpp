#include "cache/checks.h"

namespace kelsdk {
namespace {

KelObject* AllocateCache(KelManager* manager, const char* name, const KelObject* from) {
  return KelCache::Allocate(manager, name, static_cast<const KelCache*>(from));
}

// One property of the class: found or made, with the class's default when it is new or forced.
KelProperty ConstructProperty(KelObject* object, const KelDataType& dataType, const char* name,
                              const void* defaultValue, bool forceSet) {
  bool alreadyExisted = false;
  KelProperty property = KelProperty::Create(object, dataType, name, "", true, &alreadyExisted);
  if (forceSet || !alreadyExisted) {
    property.ModifyFlag(KelPropertyFlags::eStatic, true);
    property.Set(defaultValue, dataType.GetType(), false);
  }
  property.ModifyFlag(KelPropertyFlags::eSavable, true);
  return property;
}

}  // namespace

constinit KelClassId KelCache::ClassId;

static const KelClassRegistration registration(KelCache::ClassId, "KelCache", &KelObject::ClassId,
                                               AllocateCache);

KelCache_internal::~KelCache_internal() {
  DestroyBackEnd(ncCache);
  DestroyBackEnd(pc2Cache);
  DestroyBackEnd(alembicCache);
  KelFree(pc2Buffer);
  pc2Buffer = nullptr;
}

KelCache* KelCache::Create(KelManager* manager, const char* name) {
  return static_cast<KelCache*>(
      manager->CreateNewObjectFromClassId(ClassId, name, nullptr, nullptr));
}

KelCache* KelCache::Create(KelObject* container, const char* name) {
  KelManager* manager = container != nullptr ? container->GetKelManager() : nullptr;
  if (manager == nullptr) return nullptr;
  return static_cast<KelCache*>(
      manager->CreateNewObjectFromClassId(ClassId, name, container, nullptr));
}

KelCache* KelCache::Allocate(KelManager* manager, const char* name, const KelCache* from) {
  auto* cache = KelNew<KelCache>(*manager, name);
  if (cache == nullptr) return nullptr;
  cache->Construct(from);
  if (!cache->IsWhole() || cache->internalState == nullptr || !cache->CacheFileName.IsValid() ||
      !cache->CacheAbsoluteFileName.IsValid() || !cache->CacheFileType.IsValid()) {
    cache->Destroy();
    return nullptr;
  }
  cache->SetObjectFlags(eSavable, true);
  return cache;
}

KelCache::KelCache(KelManager& manager, const char* name) : KelObject(manager, name) {}

KelCache::~KelCache() = default;

KelClassId KelCache::GetClassId() const {
  return ClassId;
}

void KelCache::Construct(const KelObject* from) {
  KelObject::Construct(from);
  readBuffer = nullptr;
  readValueCount = 0;
  readBufferCapacity = 0;
  readTypeSize = 0;
  readTypeLength = 0;
  readElementCount = 0;
  readFloatBuffer = nullptr;
  void* block = KelMalloc(sizeof(KelCache_internal));
  internalState = block != nullptr ? ::new (block) KelCache_internal : nullptr;
  if (from == nullptr) {
    const EFileFormat none = eUnknownFormat;
    CacheFileType.Set(&none, eKelEnum, true);
  }
}

void KelCache::ConstructProperties(bool forceSet) {
  KelObject::ConstructProperties(forceSet);
  const KelString noName;
  const EFileFormat noFormat = eUnknownFormat;
  CacheFileName = ConstructProperty(this, KelStringDT, "CacheFileName", &noName, forceSet);
  CacheAbsoluteFileName =
      ConstructProperty(this, KelStringDT, "CacheAbsoluteFileName", &noName, forceSet);
  CacheFileType = ConstructProperty(this, KelEnumDT, "CacheFileType", &noFormat, forceSet);
}

void KelCache::Destruct(bool recursive) {
  if (internalState != nullptr) {
    internalState->~KelCache_internal();
    KelFree(internalState);
    internalState = nullptr;
  }
  KelFree(readBuffer);
  readBuffer = nullptr;
  KelFree(readFloatBuffer);
  readFloatBuffer = nullptr;
  KelObject::Destruct(recursive);
}

bool KelCache::SetCacheFileFormat(EFileFormat fileFormat, KelStatus* status) {
  ClearStatus(status);
  return CacheFileType.Set(&fileFormat, eKelEnum, true);
}

KelCache::EFileFormat KelCache::GetCacheFileFormat() const {
  EFileFormat format = eUnknownFormat;
  CacheFileType.Get(&format, eKelEnum);
  return format;
}

void KelCache::SetCacheFileName(const char* relativeFileName, const char* absoluteFileName,
                                KelStatus* status) {
  const KelString relative(relativeFileName);
  const KelString absolute(absoluteFileName);
  // That the object itself refuses a name is its own affair.
  const auto relativeResult = CacheFileName.Store(&relative, eKelString, true);
  const auto absoluteResult = CacheAbsoluteFileName.Store(&absolute, eKelString, true);
  ClearStatus(status);
  if (relativeResult == KelProperty::eNoMemory || absoluteResult == KelProperty::eNoMemory) {
    Fail(status, KelStatus::eFailure);
  }
}

void KelCache::GetCacheFileName(KelString& relativeFileName, KelString& absoluteFileName) const {
  relativeFileName.Clear();
  CacheFileName.Get(&relativeFileName, eKelString);
  absoluteFileName.Clear();
  CacheAbsoluteFileName.Get(&absoluteFileName, eKelString);
}

}  // namespace kelsdk
