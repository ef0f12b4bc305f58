install(TARGETS zfslib EXPORT zfslibTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${ZFSLIB_INCLUDE_DIR})
foreach(folder IN ITEMS platform zfstools executors)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/${folder} DESTINATION ${ZFSLIB_INCLUDE_DIR}
        FILES_MATCHING PATTERN "*.h" PATTERN "internal" EXCLUDE)
endforeach()

include(CMakePackageConfigHelpers)
set(ZFSLIB_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/zfslib)
install(EXPORT zfslibTargets NAMESPACE zfslib:: FILE zfslibTargets.cmake
    DESTINATION ${ZFSLIB_PACKAGE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/zfslibConfig.cmake.in
    ${PROJECT_BINARY_DIR}/zfslibConfig.cmake INSTALL_DESTINATION ${ZFSLIB_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zfslibConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
configure_file(${PROJECT_SOURCE_DIR}/cmake/zfslib.pc.in ${PROJECT_BINARY_DIR}/zfslib.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zfslibConfig.cmake ${PROJECT_BINARY_DIR}/zfslibConfigVersion.cmake
    DESTINATION ${ZFSLIB_PACKAGE_DIR})
install(FILES ${PROJECT_BINARY_DIR}/zfslib.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
