#pragma once

#include <hdf5.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench/measure.h"
#include "bench/workload.h"

namespace kelbench {

/// A frame's values as they are kept or handed out.
enum class EValue { eFloat, eDouble };

inline std::size_t SizeOf(EValue value) {
  return value == EValue::eFloat ? sizeof(float) : sizeof(double);
}

/// Every pose of the workload in turn: `read(frame, pose)`.
template <typename Read>
std::function<void()> VisitPoses(const Workload& workload, Read read) {
  return [&workload, read] {
    for (unsigned int pose = 0; pose < workload.poses(); ++pose) {
      read(workload.FirstFrame(pose), pose);
    }
  };
}

/// One data set of frames x points x 3 in an HDF5 file of its own: contiguous, or in chunks of one
/// frame, shuffled and deflated at level 4.
class Hdf5File {
 public:
  enum class ELayout { eContiguous, eDeflated };

  /// Makes the file.
  Hdf5File(const std::string& path, const Workload& workload, EValue stored, ELayout layout);
  /// Opens it for reading.
  Hdf5File(const std::string& path, const Workload& workload);
  ~Hdf5File();
  Hdf5File(const Hdf5File&) = delete;
  Hdf5File& operator=(const Hdf5File&) = delete;

  void Write(unsigned int frame, const void* values, EValue type);
  void Read(unsigned int frame, void* values, EValue type);
  /// Hands everything written to the system.
  void Flush();
  /// The bytes that the data take in the file.
  std::size_t StoredSize() const;

 private:
  void SelectFrame(unsigned int frame);

  hsize_t points_;
  hid_t file_ = -1;
  hid_t data_ = -1;
  hid_t fileSpace_ = -1;
  hid_t memorySpace_ = -1;
};

/// A plain file of frames one after the other, read and written through the C library's streams.
class StreamFile {
 public:
  StreamFile(const std::string& path, const char* mode, std::size_t frameBytes);
  ~StreamFile();
  StreamFile(const StreamFile&) = delete;
  StreamFile& operator=(const StreamFile&) = delete;

  void Write(unsigned int frame, const void* values);
  void Read(unsigned int frame, void* values);
  void Flush();

 private:
  void Seek(unsigned int frame);

  std::FILE* file_;
  std::size_t frameBytes_;
};

/// The workload in the peers' files, all of one stored type, and their ways of reading it.
class PeerFiles {
 public:
  PeerFiles(const Workload& workload, const Scratch& scratch, EValue stored);
  /// Frames of the stored type read and handed out as `wanted`: "fread", "HDF5", "HDF5 deflate".
  std::vector<Contender> Readers(EValue wanted);
  /// Opening and closing.
  std::vector<Contender> Openers(unsigned int times);

 private:
  const Workload& workload_;
  EValue stored_;
  std::string plain_, contiguous_, deflated_;
  std::vector<float> floats_;
  std::vector<double> doubles_;
};

/// The peers' ways of writing every frame of the workload as floats: "fwrite", "HDF5",
/// "HDF5 deflate". Only the frames are timed, until the system has them all.
std::vector<Contender> PeerWriters(const Workload& workload, const Scratch& scratch);

}  // namespace kelbench
