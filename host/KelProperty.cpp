#include "host/KelProperty.h"

#include <cstring>
#include <utility>

#include "host/KelMemory.h"
#include "host/KelObject.h"
#include "host/KelPropertyData.h"

namespace kelsdk {

constinit const KelDataType KelStringDT("String", eKelString);
constinit const KelDataType KelEnumDT("Enum", eKelEnum);

namespace {

KelPropertyData* MakePropertyData(const KelDataType& dataType, const char* name,
                                  const char* label) {
  void* block = KelMalloc(sizeof(KelPropertyData));
  if (block == nullptr) return nullptr;
  auto* data = ::new (block) KelPropertyData;
  data->references = 1;
  data->typeName = dataType.GetName();
  data->dataType = KelDataType(data->typeName, dataType.GetType());
  data->name = name;
  data->label = label;
  if (data->typeName.IsValid() && data->name.IsValid() && data->label.IsValid()) return data;
  ReleasePropertyData(data);
  return nullptr;
}

}  // namespace

void ReleasePropertyData(KelPropertyData* data) noexcept {
  if (data == nullptr || --data->references != 0) return;
  data->~KelPropertyData();
  KelFree(data);
}

KelProperty::KelProperty(KelPropertyData* data) noexcept : data_(data) {
  if (data_ != nullptr) ++data_->references;
}

KelProperty::KelProperty(const KelProperty& other) noexcept : KelProperty(other.data_) {}

KelProperty::KelProperty(KelProperty&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)) {}

KelProperty::~KelProperty() {
  ReleasePropertyData(data_);
}

KelProperty& KelProperty::operator=(const KelProperty& other) noexcept {
  return *this = KelProperty(other);
}

KelProperty& KelProperty::operator=(KelProperty&& other) noexcept {
  std::swap(data_, other.data_);
  return *this;
}

KelProperty KelProperty::Create(KelObject* object, const KelDataType& dataType, const char* name,
                                const char* label, bool checkForExisting,
                                bool* alreadyExisted) noexcept {
  if (alreadyExisted != nullptr) *alreadyExisted = false;
  if (object == nullptr || name == nullptr) return {};
  if (checkForExisting) {
    KelProperty existing = object->FindProperty(name);
    if (existing.IsValid()) {
      if (alreadyExisted != nullptr) *alreadyExisted = true;
      return existing.data_->dataType.GetType() == dataType.GetType() ? existing : KelProperty();
    }
  }
  KelPropertyData* data = MakePropertyData(dataType, name, label);
  if (data != nullptr) object->AddProperty(data);
  return KelProperty(data);
}

const char* KelProperty::GetName() const noexcept {
  return data_ != nullptr ? data_->name.Buffer() : "";
}

const char* KelProperty::GetLabel() const noexcept {
  return data_ != nullptr ? data_->label.Buffer() : "";
}

const KelDataType* KelProperty::GetDataType() const noexcept {
  return data_ != nullptr ? &data_->dataType : nullptr;
}

bool KelProperty::Get(void* value, const EKelType& type) const noexcept {
  if (data_ == nullptr || value == nullptr || data_->dataType.GetType() != type) return false;
  switch (type) {
    case eKelEnum: std::memcpy(value, &data_->integer, sizeof data_->integer); return true;
    case eKelString: *static_cast<KelString*>(value) = data_->string; return true;
  }
  return false;
}

bool KelProperty::Set(const void* value, const EKelType& type, bool notify) noexcept {
  return Store(value, type, notify) == eStored;
}

KelProperty::EStoreResult KelProperty::Store(const void* value, const EKelType& type,
                                             bool notify) noexcept {
  if (data_ == nullptr || value == nullptr || data_->dataType.GetType() != type) return eMistyped;
  KelObject* listener = notify ? data_->owner : nullptr;
  if (listener != nullptr && !listener->PropertyNotify(KelObject::ePropertySetRequest, *this)) {
    return eRefused;
  }
  switch (type) {
    case eKelEnum: std::memcpy(&data_->integer, value, sizeof data_->integer); break;
    case eKelString: {
      KelString copy(*static_cast<const KelString*>(value));
      if (!copy.IsValid()) return eNoMemory;
      data_->string = std::move(copy);
      break;
    }
  }
  if (listener != nullptr) listener->PropertyNotify(KelObject::ePropertySet, *this);
  return eStored;
}

bool KelProperty::ModifyFlag(KelPropertyFlags::EFlags flag, bool value) noexcept {
  if (data_ == nullptr) return false;
  const unsigned int bit = 1U << static_cast<unsigned int>(flag);
  data_->flags = value ? data_->flags | bit : data_->flags & ~bit;
  return true;
}

bool KelProperty::GetFlag(KelPropertyFlags::EFlags flag) const noexcept {
  return data_ != nullptr && (data_->flags & (1U << static_cast<unsigned int>(flag))) != 0;
}

}  // namespace kelsdk
