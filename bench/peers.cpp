#include "bench/peers.h"

#include <memory>

namespace kelbench {
namespace {

constexpr unsigned int kDeflateLevel = 4;

hid_t TypeOf(EValue value) {
  return value == EValue::eFloat ? H5T_NATIVE_FLOAT : H5T_NATIVE_DOUBLE;
}

std::vector<double> AsDoubles(const Workload& workload, unsigned int pose) {
  const float* const values = workload.Pose(pose);
  return {values, values + workload.valueCount()};
}

template <typename From, typename To>
void Convert(const std::vector<From>& from, std::vector<To>& to) {
  for (std::size_t i = 0; i < from.size(); ++i) to[i] = static_cast<To>(from[i]);
}

}  // namespace

Hdf5File::Hdf5File(const std::string& path, const Workload& workload, EValue stored, ELayout layout)
    : points_(workload.points()) {
  const hsize_t whole[3] = {workload.frames(), points_, 3};
  const hsize_t frame[3] = {1, points_, 3};
  const hid_t how = H5Pcreate(H5P_DATASET_CREATE);
  H5Pset_fill_time(how, H5D_FILL_TIME_NEVER);
  if (layout == ELayout::eDeflated) {
    H5Pset_chunk(how, 3, frame);
    H5Pset_shuffle(how);
    H5Pset_deflate(how, kDeflateLevel);
  }
  file_ = H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
  fileSpace_ = H5Screate_simple(3, whole, nullptr);
  memorySpace_ = H5Screate_simple(3, frame, nullptr);
  data_ = H5Dcreate2(file_, "points", TypeOf(stored), fileSpace_, H5P_DEFAULT, how, H5P_DEFAULT);
  H5Pclose(how);
  Require(data_ >= 0, "make an HDF5 data set");
}

Hdf5File::Hdf5File(const std::string& path, const Workload& workload) : points_(workload.points()) {
  const hsize_t frame[3] = {1, points_, 3};
  file_ = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
  data_ = H5Dopen2(file_, "points", H5P_DEFAULT);
  fileSpace_ = H5Dget_space(data_);
  memorySpace_ = H5Screate_simple(3, frame, nullptr);
  Require(data_ >= 0, "open an HDF5 data set");
}

Hdf5File::~Hdf5File() {
  H5Sclose(memorySpace_);
  H5Sclose(fileSpace_);
  H5Dclose(data_);
  H5Fclose(file_);
}

void Hdf5File::SelectFrame(unsigned int frame) {
  const hsize_t start[3] = {frame, 0, 0};
  const hsize_t count[3] = {1, points_, 3};
  H5Sselect_hyperslab(fileSpace_, H5S_SELECT_SET, start, nullptr, count, nullptr);
}

void Hdf5File::Write(unsigned int frame, const void* values, EValue type) {
  SelectFrame(frame);
  Require(H5Dwrite(data_, TypeOf(type), memorySpace_, fileSpace_, H5P_DEFAULT, values) >= 0,
          "write to HDF5");
}

void Hdf5File::Read(unsigned int frame, void* values, EValue type) {
  SelectFrame(frame);
  Require(H5Dread(data_, TypeOf(type), memorySpace_, fileSpace_, H5P_DEFAULT, values) >= 0,
          "read from HDF5");
}

void Hdf5File::Flush() {
  Require(H5Fflush(file_, H5F_SCOPE_LOCAL) >= 0, "flush HDF5");
}

std::size_t Hdf5File::StoredSize() const {
  return H5Dget_storage_size(data_);
}

StreamFile::StreamFile(const std::string& path, const char* mode, std::size_t frameBytes)
    : file_(std::fopen(path.c_str(), mode)), frameBytes_(frameBytes) {
  Require(file_ != nullptr, "open a stream");
}

StreamFile::~StreamFile() {
  std::fclose(file_);
}

void StreamFile::Seek(unsigned int frame) {
  Require(::fseeko(file_, static_cast<off_t>(frameBytes_ * frame), SEEK_SET) == 0, "fseek");
}

void StreamFile::Write(unsigned int frame, const void* values) {
  Seek(frame);
  Require(std::fwrite(values, frameBytes_, 1, file_) == 1, "fwrite");
}

void StreamFile::Read(unsigned int frame, void* values) {
  Seek(frame);
  Require(std::fread(values, frameBytes_, 1, file_) == 1, "fread");
}

void StreamFile::Flush() {
  Require(std::fflush(file_) == 0, "fflush");
}

PeerFiles::PeerFiles(const Workload& workload, const Scratch& scratch, EValue stored)
    : workload_(workload),
      stored_(stored),
      plain_(scratch.File("plain" + std::to_string(SizeOf(stored)))),
      contiguous_(plain_ + ".contiguous.h5"),
      deflated_(plain_ + ".deflated.h5"),
      floats_(workload.valueCount()),
      doubles_(workload.valueCount()) {
  StreamFile plain(plain_, "wb", workload.valueCount() * SizeOf(stored));
  Hdf5File contiguous(contiguous_, workload, stored, Hdf5File::ELayout::eContiguous);
  Hdf5File deflated(deflated_, workload, stored, Hdf5File::ELayout::eDeflated);
  VisitPoses(workload, [&](unsigned int frame, unsigned int pose) {
    const std::vector<double> doubles = AsDoubles(workload, pose);
    const void* const values =
        stored == EValue::eFloat ? static_cast<const void*>(workload.Pose(pose)) : doubles.data();
    plain.Write(frame, values);
    contiguous.Write(frame, values, stored);
    deflated.Write(frame, values, stored);
  })();
}

std::vector<Contender> PeerFiles::Readers(EValue wanted) {
  const auto stream =
      std::make_shared<StreamFile>(plain_, "rb", workload_.valueCount() * SizeOf(stored_));
  std::vector<Contender> readers;
  readers.push_back(
      {"fread", VisitPoses(workload_, [this, stream, wanted](unsigned int frame, auto) {
         void* const raw =
             stored_ == EValue::eFloat ? static_cast<void*>(floats_.data()) : doubles_.data();
         stream->Read(frame, raw);
         if (stored_ == EValue::eFloat && wanted == EValue::eDouble) {
           Convert(floats_, doubles_);
         } else if (stored_ == EValue::eDouble && wanted == EValue::eFloat) {
           Convert(doubles_, floats_);
         }
         Keep(floats_.data());
         Keep(doubles_.data());
       })});
  for (const auto& [name, path] :
       {std::pair("HDF5", contiguous_), std::pair("HDF5 deflate", deflated_)}) {
    const auto file = std::make_shared<Hdf5File>(path, workload_);
    readers.push_back({name, VisitPoses(workload_, [this, file, wanted](unsigned int frame, auto) {
                         void* const values = wanted == EValue::eFloat
                                                  ? static_cast<void*>(floats_.data())
                                                  : doubles_.data();
                         file->Read(frame, values, wanted);
                       })});
  }
  return readers;
}

std::vector<Contender> PeerFiles::Openers(unsigned int times) {
  std::vector<Contender> openers;
  openers.push_back({"fread", [this, times] {
                       char header[32];
                       for (unsigned int i = 0; i < times; ++i) {
                         StreamFile(plain_, "rb", sizeof header).Read(0, header);
                       }
                     }});
  for (const auto& [name, path] :
       {std::pair("HDF5", contiguous_), std::pair("HDF5 deflate", deflated_)}) {
    openers.push_back({name, [this, path = path, times] {
                         for (unsigned int i = 0; i < times; ++i) Hdf5File(path, workload_);
                       }});
  }
  return openers;
}

std::vector<Contender> PeerWriters(const Workload& workload, const Scratch& scratch) {
  std::vector<Contender> writers;
  const std::string path = scratch.File("written");
  const auto stream = std::make_shared<std::unique_ptr<StreamFile>>();
  writers.push_back({"fread",
                     [&workload, stream] {
                       VisitPoses(workload, [&](unsigned int frame, unsigned int pose) {
                         (*stream)->Write(frame, workload.Pose(pose));
                       })();
                       (*stream)->Flush();
                     },
                     [&workload, stream, path] {
                       *stream = std::make_unique<StreamFile>(path, "wb", workload.frameBytes());
                     },
                     [stream, path] {
                       stream->reset();
                       std::remove(path.c_str());
                     }});
  for (const auto& [name, layout] : {std::pair("HDF5", Hdf5File::ELayout::eContiguous),
                                     std::pair("HDF5 deflate", Hdf5File::ELayout::eDeflated)}) {
    const auto file = std::make_shared<std::unique_ptr<Hdf5File>>();
    writers.push_back({name,
                       [&workload, file] {
                         VisitPoses(workload, [&](unsigned int frame, unsigned int pose) {
                           (*file)->Write(frame, workload.Pose(pose), EValue::eFloat);
                         })();
                         (*file)->Flush();
                       },
                       [&workload, file, path, layout = layout] {
                         *file = std::make_unique<Hdf5File>(path, workload, EValue::eFloat, layout);
                       },
                       [file, path] {
                         file->reset();
                         std::remove(path.c_str());
                       }});
  }
  return writers;
}

}  // namespace kelbench
