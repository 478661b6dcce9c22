#pragma once

#include <memory>

#include "backends/alembic/archive.h"

namespace kelsdk::alembic {

/// Opens an archive in the HDF5 container; null with an error otherwise, also in a build that has
/// no support for it. Throws std::bad_alloc.
std::unique_ptr<Archive> OpenHdf5Archive(const char* path, io::Error& error);

/// The containers that this build reads, for a person: "Ogawa, HDF5 (libhdf5 1.10.8)".
const char* Containers();

}  // namespace kelsdk::alembic
