#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "backends/io/error.h"
#include "backends/nc/format.h"
#include "backends/nc/layout.h"

namespace kelsdk::nc {

/// Where a cache lives and what its files are called. Names come from here alone, never from text
/// inside a file.
struct CacheName {
  std::string folder;  ///< with a final "/"
  std::string base;

  std::string DescriptionPath() const { return folder + base + ".xml"; }
};

/// Checks folder and base name and fills `name`. The base name is one component of a path: not
/// empty, no "/", not "." or "..". A folder without a final "/" gets one; an empty one is ".".
/// May throw std::bad_alloc.
bool MakeCacheName(const char* folder, const char* base, CacheName* name, io::Error& error);

/// The data file that holds a tick, replacing `*name` and reusing its memory. Single-file layout:
/// BASE.TAG. Per-frame layout: BASEFrameF.TAG or, between frames, BASEFrameFTickT.TAG, where F is
/// the tick divided by the ticks per frame, rounded down, T the remainder; with 0 ticks per frame
/// every tick is a frame.
void DataFileName(const std::string& base, const FileLayout& layout, std::int32_t tick,
                  std::string* name);

/// True for a name that some data file of the cache might have, whatever tag and layout.
bool IsDataFileName(std::string_view name, const std::string& base);
/// The same for one layout and its tag.
bool IsDataFileName(std::string_view name, const std::string& base, const FileLayout& layout);

/// The name that a data file of one cache has as a file of another.
std::string RenamedDataFile(const std::string& name, const std::string& base,
                            const std::string& newBase);

/// The folder beside the target in which a writer gathers its files under their final names.
std::string PartialFolderName(const std::string& base, const Identity& identity);
/// The identity in a name that PartialFolderName made for this cache.
std::optional<Identity> ParsePartialFolderName(std::string_view name, const std::string& base);

/// The base name in a name that PartialFolderName made, for whatever cache.
std::optional<std::string> BaseOfPartialFolder(std::string_view name);

std::string FormatIdentity(const Identity& identity);
std::optional<Identity> ParseIdentity(std::string_view text);

}  // namespace kelsdk::nc
