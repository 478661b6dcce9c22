#pragma once

#include "host/KelApi.h"
#include "host/KelString.h"

namespace kelsdk {

class KelObject;

/// How the memory behind a `void*` value is to be read or written.
enum EKelType {
  eKelEnum = 10,    ///< a signed 32-bit integer
  eKelString = 18,  ///< a KelString
};

/// The type of a property: its name and the tag of its values.
class KelDataType {
 public:
  constexpr KelDataType(const char* name, EKelType type) noexcept : name_(name), type_(type) {}

  const char* GetName() const noexcept { return name_; }
  EKelType GetType() const noexcept { return type_; }

 private:
  const char* name_;
  EKelType type_;
};

KEL_API extern const KelDataType KelStringDT;
KEL_API extern const KelDataType KelEnumDT;

class KelPropertyFlags {
 public:
  /// Each value is the number of a bit.
  enum EFlags {
    eStatic = 0,   ///< made by the class itself, with the class's default value
    eSavable = 1,  ///< written and read with the object's content
  };
};

struct KelPropertyData;

/// A handle to a typed, named value of an object. Copies refer to the same property; a
/// default-made handle refers to none, and every operation on it fails. The property lives until
/// its object and the last handle are gone.
class KEL_API KelProperty {
 public:
  KelProperty() noexcept = default;
  KelProperty(const KelProperty& other) noexcept;
  KelProperty(KelProperty&& other) noexcept;
  ~KelProperty();
  KelProperty& operator=(const KelProperty& other) noexcept;
  KelProperty& operator=(KelProperty&& other) noexcept;

  /// The property of that name on the object, made with the type and label when there is none yet.
  /// @param checkForExisting  false makes a new one without looking for one of that name
  /// @param dataType          is copied. Of two types only the tags are compared
  /// @param alreadyExisted    may be null; out: whether the property existed before
  /// @return a handle to none when there is no memory or the one found has another type
  static KelProperty Create(KelObject* object, const KelDataType& dataType, const char* name,
                            const char* label, bool checkForExisting,
                            bool* alreadyExisted) noexcept;

  bool IsValid() const noexcept { return data_ != nullptr; }
  const char* GetName() const noexcept;
  const char* GetLabel() const noexcept;
  /// Valid as long as the property; null for a handle to none.
  const KelDataType* GetDataType() const noexcept;

  /// Copies the value into `*value`. False, and `*value` untouched, when the tag is not the
  /// property's own.
  bool Get(void* value, const EKelType& type) const noexcept;

  /// Stores `*value`. With `notify` the object's PropertyNotify is asked first, where it may
  /// refuse, and told afterwards. False when the tag is not the property's own, the object refused
  /// or there is no memory; the value is then unchanged.
  bool Set(const void* value, const EKelType& type, bool notify) noexcept;

  /// The same, telling why a value was not stored.
  enum EStoreResult {
    eStored = 0,
    eMistyped,  ///< no property, no value, or the tag is not the property's own
    eRefused,   ///< by the object's PropertyNotify
    eNoMemory,
  };
  EStoreResult Store(const void* value, const EKelType& type, bool notify) noexcept;

  bool ModifyFlag(KelPropertyFlags::EFlags flag, bool value) noexcept;
  bool GetFlag(KelPropertyFlags::EFlags flag) const noexcept;

  bool operator==(const KelProperty& other) const noexcept { return data_ == other.data_; }

 private:
  friend class KelObject;
  explicit KelProperty(KelPropertyData* data) noexcept;

  KelPropertyData* data_ = nullptr;
};

}  // namespace kelsdk
