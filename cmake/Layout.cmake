# The order of the static executable's parts: a profile that script/layout makes from a measurement, for one compiler
# and one C library. With others the build goes without it, which costs time and memory only.

option(ZNORB_LAYOUT "Order the static executable's parts as cmake/layout.ld has them" ON)
set(ZNORB_LAYOUT_FILE ${CMAKE_CURRENT_LIST_DIR}/layout.ld)

# What a profile is made for: the names of the C library's and the compiler's own parts.
file(WRITE ${CMAKE_BINARY_DIR}/CMakeFiles/libc.c "#include <features.h>\n__GLIBC__.__GLIBC_MINOR__\n")
execute_process(COMMAND ${CMAKE_C_COMPILER} -E -P ${CMAKE_BINARY_DIR}/CMakeFiles/libc.c
    OUTPUT_VARIABLE libc OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
string(REPLACE " " "" libc "${libc}")
string(REGEX MATCH "^[0-9]+" compiler "${CMAKE_CXX_COMPILER_VERSION}")
set(ZNORB_LAYOUT_BASE "${CMAKE_CXX_COMPILER_ID} ${compiler}, C library ${libc}, ${CMAKE_SYSTEM_PROCESSOR}"
    CACHE INTERNAL "What a profile of this build would be made for")

# znorb_layout(<executable>): orders its parts, and sets ZNORB_HAS_LAYOUT to whether they are.
function(znorb_layout name)
    set(ZNORB_HAS_LAYOUT OFF CACHE INTERNAL "Whether the executable's parts are in an order")
    if(NOT ZNORB_LAYOUT OR NOT ZNORB_STATIC)
        return()
    endif()
    file(STRINGS ${ZNORB_LAYOUT_FILE} base REGEX "^/\\* Made for: " LIMIT_COUNT 1)
    string(REPLACE "/* Made for: " "" base "${base}")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${ZNORB_LAYOUT_FILE})
    if(NOT base STREQUAL ZNORB_LAYOUT_BASE)
        message(STATUS "${name} is built without the layout, which was made for ${base}; this is ${ZNORB_LAYOUT_BASE}")
        return()
    endif()
    set(ZNORB_HAS_LAYOUT ON CACHE INTERNAL "Whether the executable's parts are in an order")
    target_link_options(${name} PRIVATE LINKER:-T,${ZNORB_LAYOUT_FILE})
    set_target_properties(${name} PROPERTIES LINK_DEPENDS ${ZNORB_LAYOUT_FILE})
endfunction()
