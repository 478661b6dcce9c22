#pragma once

#include "backends/io/error.h"
#include "backends/nc/names.h"

namespace kelsdk::nc {

/// Asked after each sample whether to go on.
struct Proceed {
  bool (*ask)(void* context, unsigned int done, unsigned int total) = nullptr;
  void* context = nullptr;

  bool operator()(unsigned int done, unsigned int total, io::Error& error) const {
    if (ask == nullptr || ask(context, done, total)) return true;
    return error.Set(io::Error::eRefused, "interrupted");
  }
};

/// Writes the samples of a PC2 file as one channel of float vectors named after the base name.
/// May throw std::bad_alloc.
bool ConvertFromPc2(const char* pc2FileName, const CacheName& name, bool isPerFrame,
                    const char* tag, int ticksPerFrame, const Proceed& proceed, io::Error& error);

/// Writes a vector channel as a PC2 file. Whatever cannot be converted is refused before anything
/// is written. May throw std::bad_alloc.
bool ConvertToPc2(const char* pc2FileName, const CacheName& name, std::uint32_t channel,
                  int ticksPerFrame, const Proceed& proceed, io::Error& error);

}  // namespace kelsdk::nc
