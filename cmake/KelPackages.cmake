# Debian packages: what `cpack -G DEB` makes of the components. scripts/package calls it.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kelcache)
set(CPACK_PACKAGE_CONTACT "The KelCache authors <kelcache@packages.local>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE kelcache)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(debian_version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/packaging/config.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/finish.cmake)
set(CPACK_KELCACHE_PACKAGING ${PROJECT_SOURCE_DIR}/packaging)

# What building against either kind of the library takes is one package, the others a component each.
foreach(component DEVELOPMENT SHARED STATIC)
  set(CPACK_COMPONENT_KELCACHE_${component}_GROUP KelCache_Build)
endforeach()

# debian_package(COMPONENT-OR-GROUP NAME SECTION MULTIARCH DEPENDS SUMMARY TEXT)
macro(debian_package component name section multiarch depends summary text)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  # CPack 3.25 knows no field for the second one.
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION "${section}\nMulti-Arch: ${multiarch}")
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${text}")
endmacro()

set(CPACK_COMPONENTS_ALL)
if(TARGET kelcache_shared AND TARGET kelcache_static)
  list(APPEND CPACK_COMPONENTS_ALL
    KelCache_Runtime KelCache_Development KelCache_Shared KelCache_Static)
  set(runtime libkelcache${abi_version})
  debian_package(KelCache_Runtime ${runtime} libs same "" "animation caches of 3D scenes (library)"
    "KelCache reads and writes animation caches, PC2 point caches and NC
multi-channel caches, and reads Alembic archives. This is the shared library.")
  set(CPACK_KELCACHE_LIBRARY ${CMAKE_CURRENT_BINARY_DIR}/libkelcache.so.${PROJECT_VERSION})
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/packaging/shlibs
    "libkelcache ${abi_version} ${runtime} (>= ${PROJECT_VERSION})\n")
  set(CPACK_DEBIAN_KELCACHE_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_BINARY_DIR}/packaging/shlibs ${PROJECT_SOURCE_DIR}/packaging/triggers)

  set(needed "${runtime} (= ${debian_version}), libpugixml-dev, libmeshoptimizer-dev")
  if(KELCACHE_WITH_HDF5)
    string(APPEND needed ", libhdf5-dev, zlib1g-dev")
  endif()
  debian_package(KelCache_Build libkelcache-dev libdevel same "${needed}"
    "animation caches of 3D scenes (development files)"
    "KelCache reads and writes animation caches, PC2 point caches and NC
multi-channel caches, and reads Alembic archives. These are the headers, the
static library, and the files by which CMake and pkg-config find both kinds.")
endif()
if(TARGET kelcache)
  list(APPEND CPACK_COMPONENTS_ALL KelCache_Tools)
  debian_package(KelCache_Tools kelcache graphics foreign ""
    "inspects, checks, plays and converts animation caches"
    "The command kelcache works on PC2 point caches, NC multi-channel caches and
Alembic archives: it tells what they hold, finds damage and bad frames,
converts, cuts, joins and recovers them, and writes pages that play them in a
browser.")
  set(CPACK_DEBIAN_KELCACHE_TOOLS_PACKAGE_SHLIBDEPS ON)
  if(BUILD_SHARED_LIBS)
    set(CPACK_DEBIAN_KELCACHE_TOOLS_PACKAGE_DEPENDS "${runtime} (>= ${PROJECT_VERSION})")
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_CURRENT_BINARY_DIR})
  endif()
endif()
if(TARGET kelcache_python AND KELCACHE_PYTHON_DIR)
  list(APPEND CPACK_COMPONENTS_ALL KelCache_Python)
  math(EXPR next "${Python_VERSION_MINOR} + 1")
  debian_package(KelCache_Python python3-kelcache python no
    "python3 (>= 3.${Python_VERSION_MINOR}), python3 (<< 3.${next}), python3-numpy"
    "animation caches as NumPy arrays"
    "This Python package reads and writes PC2 point caches and NC multi-channel
caches and reads Alembic archives, as NumPy arrays; the verbs of the command
kelcache are its functions.")
  set(CPACK_DEBIAN_KELCACHE_PYTHON_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_KELCACHE_PYTHON_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/postinst ${PROJECT_SOURCE_DIR}/packaging/prerm)
endif()

include(CPack)
