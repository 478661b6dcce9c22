# How every target of this project is compiled, in one place.

add_library(kel_options INTERFACE)
target_compile_options(kel_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wnon-virtual-dtor
  -Wimplicit-fallthrough
  # A product and a sum in one rounding would give other values than on machines without that.
  -ffp-contract=off
  # GCC 12 sees overlaps in std::string's operator+ that are not there (its bug 105651).
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
  $<$<BOOL:${KELCACHE_WERROR}>:-Werror>)
if(KELCACHE_SANITIZE)
  add_compile_options(-fsanitize=${KELCACHE_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=${KELCACHE_SANITIZE})
endif()

# kel_library(NAME SOURCES...): a static library that sees the source tree's headers as
# "host/...", "backends/..." and "cache/...", and the installed ones the same way.
function(kel_library name)
  add_library(${name} STATIC ${ARGN})
  add_library(KelCache::${name} ALIAS ${name})
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/kelcache>)
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:kel_options>)
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  install(TARGETS ${name} EXPORT KelCacheTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
endfunction()
