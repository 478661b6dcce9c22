#pragma once

#include <string>

#include "backends/io/error.h"

namespace kelsdk::io {

/// What recovery adds to the base name of a cache: for what it saves while a whole cache stands
/// under the name, and for a cache whose place it takes.
inline constexpr char kRecoveredSuffix[] = ".recovered";
inline constexpr char kOlderSuffix[] = ".before-recover";

/// So many names are tried before it is given up.
inline constexpr unsigned int kMostNames = 1000;

/// "name", "name2", "name3" ... for attempts 1, 2, 3 ... May throw std::bad_alloc.
std::string NumberedName(const std::string& name, unsigned int attempt);

/// Gives a file a second name; eExists when that one is taken.
bool Link(const char* from, const char* to, Error& error);

/// True when something bears the name, be it a link to nowhere.
bool IsTaken(const char* path);

/// True when both names are of one file that is there.
bool IsSameFile(const char* path, const char* other);

}  // namespace kelsdk::io
