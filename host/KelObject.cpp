#include "host/KelObject.h"

#include <utility>

#include "host/KelManager.h"
#include "host/KelMemory.h"
#include "host/KelPropertyData.h"
#include "host/KelStream.h"

namespace kelsdk {

constinit KelClassId KelObject::ClassId;

namespace {

KelObject* AllocateObject(KelManager* manager, const char* name, const KelObject* from) {
  auto* object = KelNew<KelObject>(*manager, name);
  if (object == nullptr) return nullptr;
  object->Construct(from);
  if (object->IsWhole()) return object;
  object->Destroy();
  return nullptr;
}

const KelClassRegistration registration(KelObject::ClassId, "KelObject", nullptr, AllocateObject);

unsigned int Bit(KelObject::EObjectFlag flag) {
  return 1U << static_cast<unsigned int>(flag);
}

bool IsSavable(const KelPropertyData& data) {
  return (data.flags & (1U << KelPropertyFlags::eSavable)) != 0;
}

bool SameValue(const KelPropertyData& a, const KelPropertyData& b) {
  return a.dataType.GetType() == b.dataType.GetType() && a.integer == b.integer &&
         a.string == b.string;
}

}  // namespace

KelObject::KelObject(KelManager& manager, const char* name) : name_(name) {
  manager.Add(this);
}

KelObject::~KelObject() {
  if (manager_ != nullptr) manager_->Release(this);
  while (KelPropertyData* data = properties_) {
    properties_ = data->next;
    data->owner = nullptr;
    data->next = nullptr;
    ReleasePropertyData(data);
  }
}

KelClassId KelObject::GetClassId() const {
  return ClassId;
}

KelObject& KelObject::Copy(const KelObject& other) {
  for (KelPropertyData* data = properties_; data != nullptr; data = data->next) {
    const KelProperty source = other.FindProperty(data->name);
    if (!source.IsValid() || source.data_->dataType.GetType() != data->dataType.GetType()) continue;
    data->integer = source.data_->integer;
    data->string = source.data_->string;
  }
  return *this;
}

KelObject* KelObject::Clone(ECloneType /*cloneType*/, KelObject* container, void* /*set*/) const {
  if (manager_ == nullptr) return nullptr;
  return manager_->CreateNewObjectFromClassId(GetClassId(), name_, container, this);
}

bool KelObject::GetSelected() {
  return selected_;
}

void KelObject::SetSelected(bool selected) {
  selected_ = selected;
}

bool KelObject::ContentWriteTo(KelStream& stream) const {
  for (const KelPropertyData* data = properties_; data != nullptr; data = data->next) {
    if (!IsSavable(*data)) continue;
    if (!stream.WriteText(data->name, data->name.GetLen())) return false;
    const bool written = data->dataType.GetType() == eKelEnum
                             ? stream.WriteInteger(static_cast<unsigned int>(data->integer))
                             : stream.WriteText(data->string, data->string.GetLen());
    if (!written) return false;
  }
  return stream.WriteText("", 0);
}

bool KelObject::ContentReadFrom(const KelStream& stream) {
  const char* text = nullptr;
  unsigned int length = 0;
  while (stream.ReadText(text, length)) {
    if (length == 0) return true;  // the empty name that ends the content
    KelProperty property = FindProperty(KelString(text, length));
    if (!property.IsValid()) return false;
    KelPropertyData& data = *property.data_;
    if (data.dataType.GetType() == eKelEnum) {
      unsigned int value = 0;
      if (!stream.ReadInteger(value)) return false;
      data.integer = static_cast<std::int32_t>(value);
    } else {
      if (!stream.ReadText(text, length)) return false;
      KelString value(text, length);
      if (!value.IsValid()) return false;
      data.string = std::move(value);
    }
  }
  return false;
}

KelString KelObject::Localize(const char* /*id*/, const char* defaultText) const {
  return defaultText;
}

KelString KelObject::GetUrl() const {
  return url_;
}

bool KelObject::SetUrl(char* url) {
  KelString copy(url);
  if (!copy.IsValid()) return false;
  url_ = std::move(copy);
  return true;
}

void KelObject::Compact() {}

void KelObject::Construct(const KelObject* from) {
  ConstructProperties(false);
  if (from != nullptr) Copy(*from);
}

void KelObject::ConstructProperties(bool /*forceSet*/) {}

void KelObject::Destruct(bool /*recursive*/) {}

void KelObject::ContentClear() {
  ConstructProperties(true);
}

KelPeripheral* KelObject::GetPeripheral() {
  return nullptr;
}

bool KelObject::Compare(KelObject* other) {
  if (other == nullptr || GetClassId() != other->GetClassId()) return false;
  unsigned int count = 0;
  for (const KelPropertyData* data = properties_; data != nullptr; data = data->next, ++count) {
    const KelProperty match = other->FindProperty(data->name);
    if (!match.IsValid() || !SameValue(*data, *match.data_)) return false;
  }
  for (const KelPropertyData* data = other->properties_; data != nullptr; data = data->next)
    --count;
  return count == 0;
}

void KelObject::SetDocument(KelDocument* document) {
  document_ = document;
}

const char* KelObject::GetTypeName() const {
  return GetClassId().GetName();
}

KelString KelObject::GetTypeFlags() const {
  return "";
}

bool KelObject::ConnectNotify(const KelConnectEvent& /*event*/) {
  return true;
}

bool KelObject::PropertyNotify(EPropertyNotifyType /*type*/, KelProperty& /*property*/) {
  return true;
}

void KelObject::Destroy() {
  Destruct(true);
  void* block = dynamic_cast<void*>(this);
  this->~KelObject();
  KelFree(block);
}

void KelObject::SetObjectFlags(EObjectFlag flag, bool value) noexcept {
  flags_ = value ? flags_ | Bit(flag) : flags_ & ~Bit(flag);
}

bool KelObject::GetObjectFlags(EObjectFlag flag) const noexcept {
  return (flags_ & Bit(flag)) != 0;
}

bool KelObject::IsWhole() const noexcept {
  for (const KelPropertyData* data = properties_; data != nullptr; data = data->next) {
    if (!data->string.IsValid()) return false;
  }
  return name_.IsValid();
}

KelProperty KelObject::FindProperty(const char* name) const noexcept {
  for (KelPropertyData* data = properties_; data != nullptr; data = data->next) {
    if (data->name == name) return KelProperty(data);
  }
  return {};
}

void KelObject::AddProperty(KelPropertyData* data) noexcept {
  data->owner = this;
  KelPropertyData** last = &properties_;
  while (*last != nullptr) last = &(*last)->next;
  *last = data;
}

}  // namespace kelsdk
