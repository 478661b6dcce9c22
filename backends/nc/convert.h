#pragma once

#include "backends/io/error.h"
#include "backends/nc/names.h"

namespace kelsdk::nc {

/// Writes the samples of a PC2 file as one channel of float vectors named after the base name.
/// May throw std::bad_alloc.
bool ConvertFromPc2(const char* pc2FileName, const CacheName& name, bool isPerFrame,
                    const char* tag, int ticksPerFrame, io::Error& error);

/// Writes a vector channel as a PC2 file. Whatever cannot be converted is refused before anything
/// is written. May throw std::bad_alloc.
bool ConvertToPc2(const char* pc2FileName, const CacheName& name, std::uint32_t channel,
                  int ticksPerFrame, io::Error& error);

}  // namespace kelsdk::nc
