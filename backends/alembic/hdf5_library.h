#pragma once

#include <hdf5.h>

#include <mutex>
#include <utility>

#include "backends/alembic/block_cache.h"
#include "backends/io/error.h"
#include "backends/io/input_file.h"

namespace kelsdk::alembic {

/// A turn at libhdf5, which serves one thread at a time: every call into it is made within one.
/// While it lasts the library prints nothing. Turns may be nested.
class Hdf5Turn {
 public:
  Hdf5Turn();
  Hdf5Turn(const Hdf5Turn&) = delete;
  Hdf5Turn& operator=(const Hdf5Turn&) = delete;
  ~Hdf5Turn();

 private:
  std::unique_lock<std::recursive_mutex> lock_;
  H5E_auto2_t print_ = nullptr;
  void* printData_ = nullptr;
};

/// Owns an identifier of libhdf5. To be destroyed within a turn, unless it holds none.
class Hdf5Handle {
 public:
  Hdf5Handle() = default;
  explicit Hdf5Handle(hid_t id) : id_(id) {}
  Hdf5Handle(Hdf5Handle&& other) noexcept : id_(std::exchange(other.id_, -1)) {}
  Hdf5Handle& operator=(Hdf5Handle&& other) noexcept {
    std::swap(id_, other.id_);
    return *this;
  }
  ~Hdf5Handle() {
    if (id_ >= 0) H5Idec_ref(id_);
  }

  hid_t Get() const { return id_; }
  explicit operator bool() const { return id_ >= 0; }

 private:
  hid_t id_ = -1;
};

/// What libhdf5 reads an archive from. It gets at no other file, and none of the system's: reads
/// are those of our files, in the blocks of a cache, and one beyond the end fails.
struct Hdf5Source {
  const io::InputFile& file;
  BlockCache& cache;
  io::Error error;  ///< why the last read failed, when it did
};

/// Opens the file of a source, which outlives it. No handle when that fails.
Hdf5Handle OpenHdf5(Hdf5Source& source);

/// Sets what libhdf5 says of the call that failed; `what` names it: "a group". Gives false.
bool SetHdf5Error(Hdf5Source& source, const char* what, io::Error& error);

}  // namespace kelsdk::alembic
