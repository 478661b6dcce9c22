#pragma once

#include <memory>

#include "backends/alembic/archive.h"

namespace kelsdk::alembic {

/// Opens an archive in the HDF5 container; null with an error otherwise, also in a build that has
/// no support for it. Throws std::bad_alloc.
std::unique_ptr<Archive> OpenHdf5Archive(const char* path, io::Error& error);

}  // namespace kelsdk::alembic
