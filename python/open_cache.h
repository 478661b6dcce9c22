#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "python/errors.h"
#include "tools/source.h"

namespace kelpython {

/// Says that an object is in use, for as long as it lives. Throws RuntimeError when another thread
/// is using the object. With the interpreter lock.
class Use {
 public:
  explicit Use(std::atomic<bool>& busy);
  ~Use() { busy_ = false; }
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;

 private:
  std::atomic<bool>& busy_;
};

/// A cache that is open for reading, shared by its Python object and those of its channels.
struct OpenCache {
  /// Without the lock.
  OpenCache(const std::string& path, kelcache::Format format, const kelsdk::KelFrameRate& rate)
      : source(std::in_place, path, format, rate) {}

  /// Throws ValueError once the cache is closed. Under a Use.
  kelcache::Source& Open();

  std::atomic<bool> busy = false;
  std::optional<kelcache::Source> source;
  kelcache::Room room;
  std::vector<float> floats;  ///< of values that are stored as something else
};

void BindCache(py::module_& module);

}  // namespace kelpython
