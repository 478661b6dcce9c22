#pragma once

#include <functional>
#include <string>

#include "backends/io/error.h"
#include "backends/nc/description.h"
#include "backends/nc/names.h"

namespace kelsdk::nc {

// A writer puts its data files over files of the cache that it replaces, and over data files that
// no description claims, but over nothing else. May throw std::bad_alloc.

/// Before writing: refuses when a name that the cache may come to use is taken by what is no data
/// file, or by a file of another cache.
bool CheckPlacesAhead(const CacheName& name, const FileLayout& layout, io::Error& error);

/// The same, for just the names that the cache uses.
/// @param isKept  what stands there has been kept under other names, so it may be anything but
///                another cache's
bool CheckPlaces(const CacheName& name, const Description& description, bool isKept,
                 io::Error& error);

/// Visits the files that bear names of this cache's data files, whatever the layout and tag, but
/// for those of other caches.
/// @param visit  is told the name, and whether a writer would put its own file over it
bool ForEachInTheWay(
    const CacheName& name,
    const std::function<void(const std::string& fileName, bool replaceable)>& visit,
    io::Error& error);

}  // namespace kelsdk::nc
