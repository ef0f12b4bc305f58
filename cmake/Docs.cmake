# The target `docs`: the API documentation in docs/html of the build folder. A public name without
# a comment is an error.
find_package(Doxygen QUIET)
if(NOT ZFSLIB_IS_TOP_LEVEL OR NOT DOXYGEN_FOUND)
    return()
endif()
configure_file(${PROJECT_SOURCE_DIR}/Doxyfile ${PROJECT_BINARY_DIR}/Doxyfile @ONLY)
add_custom_target(docs
    COMMAND Doxygen::doxygen ${PROJECT_BINARY_DIR}/Doxyfile
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    COMMENT "API documentation in ${PROJECT_BINARY_DIR}/docs/html"
    VERBATIM)
