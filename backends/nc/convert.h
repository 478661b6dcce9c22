#pragma once

#include "backends/io/error.h"
#include "backends/nc/layout.h"
#include "backends/nc/names.h"
#include "host/KelTime.h"

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

/// What a conversion takes and how it counts frames.
struct ConvertOptions {
  int ticksPerFrame = 0;
  KelFrameRate exactRate = {0, 0};  ///< where the ticks per frame are cut; else not valid
  std::uint32_t firstSample = 0;
  std::uint32_t sampleCount = ~0u;  ///< or as many as there are
  std::uint32_t compactEncoding = ePredicted;
  double maximumError = 0;  ///< of the points in an NC cache; 0: none moves
};

/// Writes the samples of a PC2 file as one channel of float vectors named after the base name, each
/// at the tick nearest to its frame. May throw std::bad_alloc.
bool ConvertFromPc2(const char* pc2FileName, const CacheName& name, bool isPerFrame,
                    const char* tag, const ConvertOptions& options, const Proceed& proceed,
                    io::Error& error);

/// Writes a vector channel as a PC2 file: all samples of one that is evenly spaced to within a
/// tick, else one for each frame. A range counts the samples of that PC2 file. Whatever cannot be
/// converted is refused before anything is written. May throw std::bad_alloc.
bool ConvertToPc2(const char* pc2FileName, const CacheName& name, std::uint32_t channel,
                  const ConvertOptions& options, const Proceed& proceed, io::Error& error);

}  // namespace kelsdk::nc
