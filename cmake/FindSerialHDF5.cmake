# The C library of HDF5, as SerialHDF5::SerialHDF5. CMake's own module would have every user of the
# package enable C.
find_path(SerialHDF5_INCLUDE_DIR hdf5.h PATH_SUFFIXES hdf5/serial)
find_library(SerialHDF5_LIBRARY NAMES hdf5_serial hdf5 PATH_SUFFIXES hdf5/serial)
mark_as_advanced(SerialHDF5_INCLUDE_DIR SerialHDF5_LIBRARY)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(SerialHDF5
  REQUIRED_VARS SerialHDF5_LIBRARY SerialHDF5_INCLUDE_DIR)
if(SerialHDF5_FOUND AND NOT TARGET SerialHDF5::SerialHDF5)
  add_library(SerialHDF5::SerialHDF5 UNKNOWN IMPORTED)
  set_target_properties(SerialHDF5::SerialHDF5 PROPERTIES
    IMPORTED_LOCATION "${SerialHDF5_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${SerialHDF5_INCLUDE_DIR}")
endif()
