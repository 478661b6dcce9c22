# Read by cpack before it makes the packages.

# Each package has a summary of its own; CPack would put the project's before it.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")

# What the shared library itself needs. CPack would find it too, but gives such a package scripts that
# call ldconfig, for which there are triggers.
if(DEFINED CPACK_KELCACHE_LIBRARY)
  set(scratch ${CPACK_PACKAGE_DIRECTORY}/shlibdeps)
  file(WRITE ${scratch}/debian/control "Source: kelcache\n\nPackage: kelcache\nArchitecture: any\n")
  execute_process(COMMAND dpkg-shlibdeps -O ${CPACK_KELCACHE_LIBRARY}
    WORKING_DIRECTORY ${scratch} OUTPUT_VARIABLE needed OUTPUT_STRIP_TRAILING_WHITESPACE
    COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX REPLACE "^shlibs:Depends=" "" CPACK_DEBIAN_KELCACHE_RUNTIME_PACKAGE_DEPENDS "${needed}")
endif()
