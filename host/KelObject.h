#pragma once

#include "host/KelApi.h"
#include "host/KelClassId.h"
#include "host/KelProperty.h"
#include "host/KelString.h"

namespace kelsdk {

class KelDocument;
class KelManager;
class KelPeripheral;
class KelStream;
struct KelPropertyData;

/// A change in the connections of an object, as ConnectNotify is told of it.
struct KelConnectEvent {
  enum EType { eConnect = 0, eDisconnect = 1 };

  EType type = eConnect;
  KelObject* source = nullptr;
  KelObject* destination = nullptr;
};

/// The base class of everything that a manager owns: a name, a class, flags and typed properties.
///
/// A manager makes an object through its class's factory (memory from KelMalloc, constructor,
/// Construct) and ends it by Destruct, destructor and KelFree, in Destroy() or when the manager
/// itself ends.
class KEL_API KelObject {
 public:
  static KelClassId ClassId;

  enum ECloneType { eDeepClone = 0, eReferenceClone = 1 };
  enum EPropertyNotifyType { ePropertySetRequest = 0, ePropertySet = 1, ePropertyGet = 2 };
  /// Each value is the number of a bit.
  enum EObjectFlag { eSystem = 0, eSavable = 1 };

  KelObject(KelManager& manager, const char* name);
  KelObject(const KelObject&) = delete;
  KelObject& operator=(const KelObject&) = delete;
  virtual ~KelObject();

  virtual KelClassId GetClassId() const;

  /// Takes over the values of the properties that both objects have by name and type.
  virtual KelObject& Copy(const KelObject& other);

  /// A new object of the same class, name and manager made from this one; null when it cannot be
  /// made. This host has no references between objects, so both types give a deep clone.
  virtual KelObject* Clone(ECloneType cloneType, KelObject* container, void* set) const;

  virtual bool GetSelected();
  virtual void SetSelected(bool selected);

  /// Writes the savable properties to the stream, or takes their values from it. False when memory
  /// or the stream runs out, or the stream holds something else; what was read so far then stays.
  virtual bool ContentWriteTo(KelStream& stream) const;
  virtual bool ContentReadFrom(const KelStream& stream);

  /// The text shown for `id` in the host's language; this host has one language, the default.
  virtual KelString Localize(const char* id, const char* defaultText) const;

  virtual KelString GetUrl() const;
  virtual bool SetUrl(char* url);

  /// Gives back memory that the object could do without; the base has none.
  virtual void Compact();

  /// The base part of construction: makes the properties (virtual ConstructProperties) and takes
  /// over the values of `from` when it is given.
  virtual void Construct(const KelObject* from);
  virtual void ConstructProperties(bool forceSet);
  virtual void Destruct(bool recursive);

  /// Sets all properties back to their defaults.
  virtual void ContentClear();

  virtual KelPeripheral* GetPeripheral();

  /// True when the other object has the same class and the same values in the same properties.
  virtual bool Compare(KelObject* other);

  virtual void SetDocument(KelDocument* document);
  virtual const char* GetTypeName() const;
  virtual KelString GetTypeFlags() const;
  virtual bool ConnectNotify(const KelConnectEvent& event);

  /// Told of a property's change: a set request may be refused by returning false.
  virtual bool PropertyNotify(EPropertyNotifyType type, KelProperty& property);

  /// Ends the object: Destruct, destructor, memory. Nothing of it may be used afterwards.
  void Destroy();

  /// Null once the manager has released the object (KelManager::Release).
  KelManager* GetKelManager() const noexcept { return manager_; }

  const char* GetName() const noexcept { return name_.Buffer(); }
  KelDocument* GetDocument() const noexcept { return document_; }

  void SetObjectFlags(EObjectFlag flag, bool value) noexcept;
  bool GetObjectFlags(EObjectFlag flag) const noexcept;

  /// False when memory ran out while the object was made or copied: a factory then ends it.
  bool IsWhole() const noexcept;

  /// The property of that name, or a handle to none.
  KelProperty FindProperty(const char* name) const noexcept;

 private:
  friend class KelManager;
  friend class KelProperty;

  void AddProperty(KelPropertyData* data) noexcept;

  KelManager* manager_ = nullptr;
  KelObject* previous_ = nullptr;  // neighbours in the manager's list, newest first
  KelObject* next_ = nullptr;
  KelPropertyData* properties_ = nullptr;
  KelDocument* document_ = nullptr;
  KelString name_;
  KelString url_;
  unsigned int flags_ = 0;
  bool selected_ = false;
};

}  // namespace kelsdk
