# What `cmake --install` puts in place of libDiskRecordings, in the components library and development.
include(CMakePackageConfigHelpers)
include(${PROJECT_SOURCE_DIR}/cmake/PkgConfigPlaces.cmake)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/DiskRecordings)
install(TARGETS DiskRecordings EXPORT DiskRecordingsSharedTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)
install(DIRECTORY include/recordings DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(EXPORT DiskRecordingsSharedTargets NAMESPACE DiskRecordings::
        DESTINATION ${package_directory} COMPONENT development)
if(TARGET DiskRecordingsStatic)
  install(TARGETS DiskRecordingsStatic EXPORT DiskRecordingsStaticTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  install(EXPORT DiskRecordingsStaticTargets NAMESPACE DiskRecordings::
          DESTINATION ${package_directory} COMPONENT development)
endif()
configure_package_config_file(DiskRecordingsConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/DiskRecordingsConfig.cmake
  INSTALL_DESTINATION ${package_directory} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/DiskRecordingsConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/DiskRecordingsConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/DiskRecordingsConfigVersion.cmake
  DESTINATION ${package_directory} COMPONENT development)

configure_file(diskrecordings.pc.in diskrecordings.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/diskrecordings.pc
        DESTINATION ${pkgconfig_directory} COMPONENT development)
