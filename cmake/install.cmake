# What `cmake --install` lays down: libraries, headers, the CMake package and the pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS vnlib vnlib_static EXPORT vnlibTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
                NAMELINK_COMPONENT development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        COMPONENT development FILES_MATCHING PATTERN "*.h")
install(EXPORT vnlibTargets NAMESPACE vnlib:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vnlib
        COMPONENT development)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/vnlibConfig.cmake.in
  ${PROJECT_BINARY_DIR}/vnlibConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vnlib)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vnlibConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vnlibConfig.cmake ${PROJECT_BINARY_DIR}/vnlibConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vnlib COMPONENT development)

configure_file(${CMAKE_CURRENT_LIST_DIR}/vnlib.pc.in ${PROJECT_BINARY_DIR}/vnlib.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vnlib.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)
