#include "host/KelManager.h"

#include "host/KelMemory.h"
#include "host/KelObject.h"

namespace kelsdk {

bool KelClassId::Is(const KelClassId& other) const noexcept {
  for (const KelClassId* id = this; id != nullptr && id->IsValid(); id = id->info_->base) {
    if (*id == other) return true;
  }
  return false;
}

KelManager* KelManager::Create() noexcept {
  void* block = KelMalloc(sizeof(KelManager));
  return block != nullptr ? ::new (block) KelManager : nullptr;
}

void KelManager::Destroy() {
  while (newest_ != nullptr) newest_->Destroy();
  this->~KelManager();
  KelFree(this);
}

KelObject* KelManager::CreateNewObjectFromClassId(KelClassId classId, const char* name,
                                                  KelObject* /*container*/, const KelObject* from) {
  return classId.IsValid() ? classId.info_->factory(this, name, from) : nullptr;
}

void KelManager::Add(KelObject* object) noexcept {
  object->manager_ = this;
  object->next_ = newest_;
  if (newest_ != nullptr) newest_->previous_ = object;
  newest_ = object;
  ++count_;
}

void KelManager::Release(KelObject* object) noexcept {
  if (object == nullptr || object->manager_ != this) return;
  (object->previous_ != nullptr ? object->previous_->next_ : newest_) = object->next_;
  if (object->next_ != nullptr) object->next_->previous_ = object->previous_;
  object->previous_ = object->next_ = nullptr;
  object->manager_ = nullptr;
  --count_;
}

}  // namespace kelsdk
