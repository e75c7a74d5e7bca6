# What `cmake --install` puts in place, in three components: library, development and programs.
include(CMakePackageConfigHelpers)

set(headers_directory ${CMAKE_INSTALL_INCLUDEDIR}/disk_access)
set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/DiskAccess)

install(TARGETS DiskAccess EXPORT DiskAccessSharedTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)
install(DIRECTORY include/ DESTINATION ${headers_directory} COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/comm_middle/include/comm_list
        DESTINATION ${headers_directory} COMPONENT development)

# find_package(DiskAccess): one file of targets for each way to link, so that what only one of them needs is only
# looked for when it is used.
install(EXPORT DiskAccessSharedTargets NAMESPACE DiskAccess::
        DESTINATION ${package_directory} COMPONENT development)
if(DISKACCESS_BUILD_STATIC)
  install(TARGETS DiskAccessStatic EXPORT DiskAccessStaticTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  install(EXPORT DiskAccessStaticTargets NAMESPACE DiskAccess::
          DESTINATION ${package_directory} COMPONENT development)
endif()
configure_package_config_file(DiskAccessConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/DiskAccessConfig.cmake
  INSTALL_DESTINATION ${package_directory} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/DiskAccessConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/DiskAccessConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/DiskAccessConfigVersion.cmake
  DESTINATION ${package_directory} COMPONENT development)

# pkg-config
include(${PROJECT_SOURCE_DIR}/cmake/PkgConfigPlaces.cmake)
# What static programs are linked with besides: libcrypto, and what that needs where the C library is older than 2.34.
# Naming libcrypto's own file instead would make pkg-config ask for it even where the shared library is linked.
set(pkgconfig_libs_private "")
if(DISKACCESS_WITH_AES)
  set(pkgconfig_libs_private "-lcrypto -ldl -pthread")
endif()
configure_file(diskaccess.pc.in diskaccess.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/diskaccess.pc DESTINATION ${pkgconfig_directory} COMPONENT development)
