#pragma once

#include "host/KelApi.h"
#include "host/KelClassId.h"

namespace kelsdk {

class KelObject;

/// Makes, owns and ends objects. Separate managers share nothing and may live on separate threads.
class KEL_API KelManager {
 public:
  /// A manager that can make an object of every linked class; null when there is no memory.
  static KelManager* Create() noexcept;

  /// Ends all objects that the manager owns, the newest first, and then the manager itself.
  void Destroy();

  /// A new object of the class, owned by this manager; null when the id identifies no class or
  /// there is no memory.
  /// @param container  accepted for hosts that keep a hierarchy; this one keeps a flat list
  /// @param from       the object to take property values from, or null
  KelObject* CreateNewObjectFromClassId(KelClassId classId, const char* name, KelObject* container,
                                        const KelObject* from);

  unsigned int GetObjectCount() const noexcept { return count_; }

  /// Hands an object over to the caller, who ends it with KelObject::Destroy().
  void Release(KelObject* object) noexcept;

 private:
  friend class KelObject;

  KelManager() noexcept = default;
  ~KelManager() = default;
  void Add(KelObject* object) noexcept;

  KelObject* newest_ = nullptr;
  unsigned int count_ = 0;
};

}  // namespace kelsdk
