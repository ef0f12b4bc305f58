# What `cmake --install` gives: the library, its public headers, what find_package and pkg-config
# need, the documents, and zfsinspect with its man page and shell completions. A project that takes
# this one in by add_subdirectory installs nothing of it unless it says so.
option(ZFSLIB_INSTALL "Install the library and what else is built" ${ZFSLIB_IS_TOP_LEVEL})
if(NOT ZFSLIB_INSTALL)
    return()
endif()

install(TARGETS zfslib EXPORT zfslibTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
foreach(folder IN ITEMS platform zfstools executors restore)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/${folder} DESTINATION ${ZFSLIB_INCLUDE_DIR}
        FILES_MATCHING PATTERN "*.h" PATTERN "internal" EXCLUDE)
endforeach()

include(CMakePackageConfigHelpers)
set(ZFSLIB_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/zfslib)
install(EXPORT zfslibTargets NAMESPACE zfslib:: FILE zfslibTargets.cmake
    DESTINATION ${ZFSLIB_PACKAGE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/zfslibConfig.cmake.in
    ${PROJECT_BINARY_DIR}/zfslibConfig.cmake
    INSTALL_DESTINATION ${ZFSLIB_PACKAGE_DIR}
    NO_SET_AND_CHECK_MACRO
    NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zfslibConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zfslibConfig.cmake ${PROJECT_BINARY_DIR}/zfslibConfigVersion.cmake
    DESTINATION ${ZFSLIB_PACKAGE_DIR})

# The prefix is told from where zfslib.pc lies, so that the tree can be moved and `--prefix` given
# to `cmake --install`.
set(ZFSLIB_PKGCONFIG_DIR ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH ZFSLIB_PREFIX_FROM_PKGCONFIG ${ZFSLIB_PKGCONFIG_DIR} ${CMAKE_INSTALL_PREFIX})
foreach(kind IN ITEMS LIB INCLUDE)
    set(folder ${CMAKE_INSTALL_LIBDIR})
    if(kind STREQUAL INCLUDE)
        set(folder ${ZFSLIB_INCLUDE_DIR})
    endif()
    if(NOT IS_ABSOLUTE ${folder})
        set(folder "\${prefix}/${folder}")
    endif()
    set(ZFSLIB_PC_${kind}DIR ${folder})
endforeach()
set(ZFSLIB_PC_PRIVATE_LIBS ${CMAKE_THREAD_LIBS_INIT})
configure_file(${PROJECT_SOURCE_DIR}/cmake/zfslib.pc.in ${PROJECT_BINARY_DIR}/zfslib.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zfslib.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${CMAKE_INSTALL_DOCDIR}
    FILES_MATCHING PATTERN "*.md")

if(ZFSLIB_IS_TOP_LEVEL)
    add_custom_target(uninstall
        COMMAND ${CMAKE_COMMAND} -P ${PROJECT_SOURCE_DIR}/cmake/Uninstall.cmake
        WORKING_DIRECTORY ${PROJECT_BINARY_DIR}
        VERBATIM)
endif()

if(TARGET zfsinspect)
    # It finds the library next to it, wherever the tree lies.
    file(RELATIVE_PATH ZFSLIB_LIB_FROM_BIN ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(zfsinspect PROPERTIES INSTALL_RPATH "$ORIGIN/${ZFSLIB_LIB_FROM_BIN}")
    install(TARGETS zfsinspect RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(FILES ${PROJECT_SOURCE_DIR}/inspect/zfsinspect.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    install(FILES ${PROJECT_BINARY_DIR}/inspect/completion/zfsinspect.bash RENAME zfsinspect
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    install(FILES ${PROJECT_BINARY_DIR}/inspect/completion/_zfsinspect
        DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
endif()
