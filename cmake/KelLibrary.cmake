# The library as programs link it, made of the objects of its parts: KelCache::kelcache-shared,
# KelCache::kelcache-static, and KelCache::kelcache, which is one of them.

foreach(part kel_host kel_io kel_pc2 kel_nc kel_alembic kel_cache)
  list(APPEND objects $<TARGET_OBJECTS:${part}>)
  get_target_property(linked ${part} LINK_LIBRARIES)
  list(APPEND dependencies ${linked})
endforeach()
list(REMOVE_DUPLICATES dependencies)
list(FILTER dependencies EXCLUDE REGEX "^kel_")

function(kel_product kind type)
  add_library(kelcache_${kind} ${type} ${objects})
  add_library(KelCache::kelcache-${kind} ALIAS kelcache_${kind})
  target_include_directories(kelcache_${kind} INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/kelcache>)
  target_compile_features(kelcache_${kind} INTERFACE cxx_std_17)
  target_link_libraries(kelcache_${kind} PRIVATE ${dependencies})
  set_target_properties(kelcache_${kind} PROPERTIES
    OUTPUT_NAME kelcache EXPORT_NAME kelcache-${kind} LINKER_LANGUAGE CXX)
endfunction()

set(kind static)
if(BUILD_SHARED_LIBS)
  set(kind shared)
endif()
if(kind STREQUAL static OR KELCACHE_BUILD_BOTH)
  kel_product(static STATIC)
endif()
if(kind STREQUAL shared OR KELCACHE_BUILD_BOTH)
  kel_product(shared SHARED)
  # Before 1.0 every minor version may break binary compatibility: docs/compatibility.md.
  set(abi_version ${PROJECT_VERSION_MAJOR})
  if(PROJECT_VERSION_MAJOR EQUAL 0)
    set(abi_version 0.${PROJECT_VERSION_MINOR})
  endif()
  set_target_properties(kelcache_shared PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${abi_version}
    LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/exports.map)
  target_link_options(kelcache_shared PRIVATE
    LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map LINKER:-Bsymbolic-functions)
  if(NOT KELCACHE_SANITIZE)
    target_link_options(kelcache_shared PRIVATE LINKER:--no-undefined)
  endif()
endif()
add_library(KelCache::kelcache ALIAS kelcache_${kind})
