include(CMakePackageConfigHelpers)

# The public headers: the object, the host services and the three back-end interfaces.
install(FILES cache/KelCache.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kelcache/cache)
install(FILES backends/AlembicInterface.h backends/CacheLeftover.h backends/CacheProgress.h backends/zuCacheFileInterface.h
              backends/zuPointCache2IO.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kelcache/backends)
install(DIRECTORY host/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kelcache/host
        FILES_MATCHING PATTERN "*.h" PATTERN "KelPropertyData.h" EXCLUDE)
install(FILES LICENSE README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/KelCache)
install(EXPORT KelCacheTargets NAMESPACE KelCache:: DESTINATION ${config_dir})
configure_package_config_file(cmake/KelCacheConfig.cmake.in KelCacheConfig.cmake
                              INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(KelCacheConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/KelCacheConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/KelCacheConfigVersion.cmake
              cmake/FindSerialHDF5.cmake
        DESTINATION ${config_dir})
