#pragma once

#include "host/KelApi.h"

namespace kelsdk {

class KelManager;
class KelObject;

class KelClassId;

/// What the class registry knows of a class.
struct KelClassInfo {
  using Factory = KelObject* (*)(KelManager* manager, const char* name, const KelObject* from);

  const char* name = "";
  const KelClassId* base = nullptr;  ///< null for the root class
  Factory factory = nullptr;
};

/// Identifies a registered class. A default-made id identifies none until a KelClassRegistration
/// binds it. Copies are cheap: one pointer to a record that lives as long as the process.
class KEL_API KelClassId {
 public:
  constexpr KelClassId() noexcept = default;

  bool IsValid() const noexcept { return info_ != nullptr; }
  /// The class's name; "" when the id identifies none.
  const char* GetName() const noexcept { return info_ != nullptr ? info_->name : ""; }
  /// True when this class is `other` or derives from it.
  bool Is(const KelClassId& other) const noexcept;

  bool operator==(const KelClassId& other) const noexcept { return info_ == other.info_; }
  bool operator!=(const KelClassId& other) const noexcept { return info_ != other.info_; }

 private:
  friend class KelClassRegistration;
  friend class KelManager;

  const KelClassInfo* info_ = nullptr;
};

/// The class registry: a static object of this class, after the class's static id in the same
/// source, binds the id to the class's name, base and factory while the program starts. Nothing
/// changes afterwards, so every manager knows every linked class and needs no lock.
class KelClassRegistration {
 public:
  KelClassRegistration(KelClassId& id, const char* name, const KelClassId* base,
                       KelClassInfo::Factory factory) noexcept
      : info_{name, base, factory} {
    id.info_ = &info_;
  }
  KelClassRegistration(const KelClassRegistration&) = delete;
  KelClassRegistration& operator=(const KelClassRegistration&) = delete;

 private:
  KelClassInfo info_;
};

}  // namespace kelsdk
