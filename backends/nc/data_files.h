#pragma once

#include <string>

#include "backends/io/error.h"
#include "backends/nc/description.h"
#include "backends/nc/names.h"

namespace kelsdk::nc {

/// The data files of a cache: what they are called, how many there are, each in turn. Refers to
/// what it is made of.
class DataFiles {
 public:
  /// @param times  per-frame layout: one file each
  DataFiles(const std::string& base, const FileLayout& layout, const Times& times)
      : base_(base), layout_(layout), times_(times) {}
  DataFiles(const std::string& base, const Description& description)
      : DataFiles(base, description, Times(description.times)) {}

  std::uint32_t Count() const { return layout_.isPerFrame ? times_.Count() : 1; }

  /// Replaces `*name`, reusing its memory. May throw std::bad_alloc, as does all below.
  /// @param file  counted from 0, below Count()
  void Name(std::uint32_t file, std::string* name) const {
    NameAt(layout_.isPerFrame ? times_.At(file) : 0, name);
  }
  /// The file that holds a tick.
  void NameAt(std::int32_t tick, std::string* name) const {
    DataFileName(base_, layout_, tick, name);
  }

  /// Calls `visit` with the name of every file until it gives false.
  template <typename Visit>
  bool ForEach(Visit&& visit) const {
    std::string name;
    for (std::uint32_t i = 0; i < Count(); ++i) {
      Name(i, &name);
      if (!visit(name)) return false;
    }
    return true;
  }

 private:
  const std::string& base_;
  const FileLayout& layout_;
  Times times_;
};

// The data files as a folder holds them. May throw std::bad_alloc.

/// The identity that a data file carries in its header. The error tells of its content
/// (IsAboutContent) when it is no data file.
bool ReadFileIdentity(const std::string& path, Identity* identity, io::Error& error);

/// True for a data file that can be read and has this identity.
bool CarriesIdentity(const std::string& path, const Identity& identity);

}  // namespace kelsdk::nc
