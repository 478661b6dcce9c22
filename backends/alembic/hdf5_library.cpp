#include "backends/alembic/hdf5_library.h"

#include <new>

#include "backends/io/checked.h"

namespace kelsdk::alembic {
namespace {

// The one lock of the whole process: libhdf5's own state is one for the process, too.
std::recursive_mutex& LibraryMutex() {
  static std::recursive_mutex mutex;
  return mutex;
}

// A file as libhdf5 sees it.
struct Driver {
  H5FD_t base;  // first: the library hands out pointers to it
  Hdf5Source* source;
  haddr_t end;  // of what the library has to do with
};

// What opening a file gets by way of the library, which copies it.
struct Settings {
  Hdf5Source* source;
};

const Driver* AsDriver(const H5FD_t* file) {
  return reinterpret_cast<const Driver*>(file);
}

H5FD_t* Open(const char* /*name*/, unsigned flags, hid_t access, haddr_t /*most*/) {
  const auto* settings = static_cast<const Settings*>(H5Pget_driver_info(access));
  if (settings == nullptr || (flags & H5F_ACC_RDWR) != 0) return nullptr;
  auto* driver = new (std::nothrow) Driver{};
  if (driver == nullptr) return nullptr;
  driver->source = settings->source;
  return &driver->base;
}

herr_t Close(H5FD_t* file) {
  delete reinterpret_cast<Driver*>(file);
  return 0;
}

// Every open archive is a file of its own, even when two are of the same name: it may have been
// replaced in between.
int Compare(const H5FD_t* a, const H5FD_t* b) {
  if (a == b) return 0;
  return a < b ? -1 : 1;
}

haddr_t End(const H5FD_t* file, H5FD_mem_t /*type*/) {
  return AsDriver(file)->end;
}

herr_t SetEnd(H5FD_t* file, H5FD_mem_t /*type*/, haddr_t end) {
  reinterpret_cast<Driver*>(file)->end = end;
  return 0;
}

haddr_t EndOfFile(const H5FD_t* file, H5FD_mem_t /*type*/) {
  return AsDriver(file)->source->file.Size();
}

herr_t Read(H5FD_t* file, H5FD_mem_t /*type*/, hid_t /*transfer*/, haddr_t address,
            std::size_t size, void* buffer) try {
  Hdf5Source& source = *AsDriver(file)->source;
  if (!io::RangeFits(address, size, source.file.Size())) {
    source.error.Set(io::Error::eDamaged, "%zu bytes at %llu of %llu", size,
                     static_cast<unsigned long long>(address),
                     static_cast<unsigned long long>(source.file.Size()));
    return -1;
  }
  return source.cache.Read(address, buffer, size, source.error) ? 0 : -1;
} catch (const std::bad_alloc&) {
  AsDriver(file)->source->error.Set(io::Error::eNoMemory, "not enough memory");
  return -1;
}

herr_t RefuseToWrite(H5FD_t* /*file*/, H5FD_mem_t /*type*/, hid_t /*transfer*/, haddr_t /*address*/,
                     std::size_t /*size*/, const void* /*buffer*/) {
  return -1;
}

hid_t RegisterDriver() {
  H5FD_class_t driver = {};
#ifdef H5FD_CLASS_VERSION  // from 1.14 on
  driver.version = H5FD_CLASS_VERSION;
  driver.value = 513;  // of the range that is free for applications
#endif
  driver.name = "kelcache";
  driver.maxaddr = HADDR_MAX - 1;
  driver.fc_degree = H5F_CLOSE_STRONG;
  driver.fapl_size = sizeof(Settings);
  driver.open = Open;
  driver.close = Close;
  driver.cmp = Compare;
  driver.get_eoa = End;
  driver.set_eoa = SetEnd;
  driver.get_eof = EndOfFile;
  driver.read = Read;
  driver.write = RefuseToWrite;
  for (H5FD_mem_t& type : driver.fl_map) type = H5FD_MEM_SUPER;
  return H5FDregister(&driver);
}

// The deepest entry of the library's report: what went wrong first.
struct Cause {
  char text[128] = "";
  bool memory = false;
};

herr_t TakeCause(unsigned /*level*/, const H5E_error2_t* entry, void* context) {
  auto* cause = static_cast<Cause*>(context);
  cause->memory = entry->maj_num == H5E_RESOURCE && entry->min_num == H5E_NOSPACE;
  std::snprintf(cause->text, sizeof cause->text, "%s", entry->desc != nullptr ? entry->desc : "");
  return 0;
}

}  // namespace

Hdf5Turn::Hdf5Turn() : lock_(LibraryMutex()) {
  H5Eget_auto2(H5E_DEFAULT, &print_, &printData_);
  H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
}

Hdf5Turn::~Hdf5Turn() {
  H5Eset_auto2(H5E_DEFAULT, print_, printData_);
}

Hdf5Handle OpenHdf5(Hdf5Source& source) {
  static const hid_t driver = RegisterDriver();
  const Settings settings = {&source};
  const Hdf5Handle access(H5Pcreate(H5P_FILE_ACCESS));
  if (driver < 0 || H5Pset_driver(access.Get(), driver, &settings) < 0) return {};
  // Nothing that is named in the file is opened; the name is for the library's messages.
  return Hdf5Handle(H5Fopen("archive", H5F_ACC_RDONLY, access.Get()));
}

bool SetHdf5Error(Hdf5Source& source, const char* what, io::Error& error) {
  if (source.error) {
    error.Set(source.error.kind(), "%s: %.180s", what, source.error.text());
    source.error.Clear();
    return false;
  }
  Cause cause;
  H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, TakeCause, &cause);
  H5Eclear2(H5E_DEFAULT);
  if (cause.memory) return error.Set(io::Error::eNoMemory, "%s: not enough memory", what);
  return error.Set(io::Error::eDamaged, "%s: %s", what, cause.text);
}

}  // namespace kelsdk::alembic
