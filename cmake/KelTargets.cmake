# How every target of this project is compiled, in one place.

add_library(kel_options INTERFACE)
target_compile_features(kel_options INTERFACE cxx_std_20)
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

# The headers of the source tree, as "host/...", "backends/..." and "cache/...".
add_library(kel_headers INTERFACE)
target_include_directories(kel_headers INTERFACE ${PROJECT_SOURCE_DIR})

# kel_library(NAME SOURCES...): a part of the library, as objects for either kind of it and as a static
# library of its own, for what looks inside.
function(kel_library name)
  add_library(${name} STATIC ${ARGN})
  target_link_libraries(${name} PUBLIC kel_headers PRIVATE kel_options)
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  # The library's functions are not replaced one by one from outside, so those may be inlined that are
  # exported.
  target_compile_options(${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-semantic-interposition>)
endfunction()
