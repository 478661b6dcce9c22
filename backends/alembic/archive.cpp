#include "backends/alembic/archive.h"

#include "backends/alembic/hdf5_archive.h"
#include "backends/alembic/ogawa_archive.h"
#include "backends/io/checked.h"

namespace kelsdk::alembic {

bool Dimensions::Product(std::uint64_t& product) const {
  product = 1;
  for (std::size_t i = 0; i < rank; ++i) {
    if (!io::CheckedMultiply(product, sizes[i], &product)) return false;
  }
  return true;
}

std::unique_ptr<Archive> OpenArchive(const char* path, io::Error& error) {
  auto archive = std::make_unique<OgawaArchive>();
  if (archive->Open(path, error)) return archive;
  if (!archive->IsHdf5()) return nullptr;
  error.Clear();
  return OpenHdf5Archive(path, error);
}

}  // namespace kelsdk::alembic
