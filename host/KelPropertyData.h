#pragma once

#include <cstdint>

#include "host/KelProperty.h"

namespace kelsdk {

/// The record behind the handles of one property. The owner's list holds one reference, every
/// handle another; the last one frees it.
struct KelPropertyData {
  unsigned int references = 0;
  KelObject* owner = nullptr;  ///< null once the owner is gone
  KelPropertyData* next = nullptr;
  KelString typeName;
  KelDataType dataType{"", eKelEnum};  ///< its name is typeName's, so that nobody else's is kept
  unsigned int flags = 0;
  std::int32_t integer = 0;  ///< the value under eKelEnum
  KelString string;          ///< the value under eKelString
  KelString name;
  KelString label;
};

void ReleasePropertyData(KelPropertyData* data) noexcept;

}  // namespace kelsdk
