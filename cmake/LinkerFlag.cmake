# zfslib_linker_flag(FLAG VARIABLE): gives FLAG to the linker of the library if it knows it, and says
# so in VARIABLE. (CMake's own check_linker_flag came with 3.18.)
include(CheckCXXSourceCompiles)
function(zfslib_linker_flag flag variable)
    set(CMAKE_REQUIRED_LINK_OPTIONS "LINKER:${flag}")
    check_cxx_source_compiles("int main() { return 0; }" ${variable}
        FAIL_REGEX "[Uu]n(known|recognized|supported)|ignored")
    if(${variable})
        target_link_options(zfslib PRIVATE "LINKER:${flag}")
    endif()
endfunction()
