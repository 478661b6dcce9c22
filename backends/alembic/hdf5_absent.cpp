#include "backends/alembic/hdf5_archive.h"

namespace kelsdk::alembic {

std::unique_ptr<Archive> OpenHdf5Archive(const char* /*path*/, io::Error& error) {
  error.Set(io::Error::eUnsupported,
            "the archive is kept in HDF5, which is not served; convert it to Ogawa");
  return nullptr;
}

const char* Containers() {
  return "Ogawa";
}

}  // namespace kelsdk::alembic
