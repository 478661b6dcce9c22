# What `cmake --install` puts where. The components KelCache_Shared and KelCache_Static, with
# KelCache_Development, are what building against one kind of the library takes; KelCache_Runtime is
# what running against the shared one does.
include(CMakePackageConfigHelpers)

# The public headers: the object, the host services and the three back-end interfaces.
set(include_dir ${CMAKE_INSTALL_INCLUDEDIR}/kelcache)
install(FILES cache/KelCache.h DESTINATION ${include_dir}/cache COMPONENT KelCache_Development)
install(FILES backends/AlembicInterface.h backends/CacheLeftover.h backends/CacheProgress.h
              backends/zuCacheFileInterface.h backends/zuPointCache2IO.h
        DESTINATION ${include_dir}/backends COMPONENT KelCache_Development)
install(DIRECTORY host/ DESTINATION ${include_dir}/host COMPONENT KelCache_Development
        FILES_MATCHING PATTERN "*.h" PATTERN "KelPropertyData.h" EXCLUDE)
install(FILES LICENSE README.md CHANGELOG.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT KelCache_Development)

# CMake's package: a file for each kind that is installed, found by the configuration.
set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/KelCache)
foreach(component KelCache_Shared KelCache_Static)
  string(REGEX REPLACE "^KelCache_S" "s" kind ${component})
  if(TARGET kelcache_${kind})
    install(TARGETS kelcache_${kind} EXPORT KelCache-${kind}
      ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${component}
      LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT KelCache_Runtime
      NAMELINK_COMPONENT ${component})
    install(EXPORT KelCache-${kind} NAMESPACE KelCache::
      DESTINATION ${config_dir} COMPONENT ${component})
  endif()
endforeach()
configure_package_config_file(cmake/KelCacheConfig.cmake.in KelCacheConfig.cmake
                              INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(KelCacheConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/KelCacheConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/KelCacheConfigVersion.cmake
              cmake/FindSerialHDF5.cmake
        DESTINATION ${config_dir} COMPONENT KelCache_Development)

# pkg-config's file, which says where it stands rather than where it was meant to.
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefix_from_pkgconfig
  ${CMAKE_INSTALL_PREFIX}/${pkgconfig_dir} ${CMAKE_INSTALL_PREFIX})
set(private_libraries -lpugixml -lmeshoptimizer)
if(KELCACHE_WITH_HDF5)
  get_filename_component(hdf5_name ${SerialHDF5_LIBRARY} NAME_WE)
  string(REGEX REPLACE "^lib" "-l" hdf5_name ${hdf5_name})
  list(APPEND private_libraries ${hdf5_name} -lz)
endif()
list(JOIN private_libraries " " private_libraries)
configure_file(cmake/kelcache.pc.in kelcache.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kelcache.pc
        DESTINATION ${pkgconfig_dir} COMPONENT KelCache_Development)
