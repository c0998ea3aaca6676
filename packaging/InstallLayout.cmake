# Runs first at an installation: what lies where below the prefix. Below /usr, and below the root folder with its usr,
# as the package has it, and below any other as below /usr/local. The names have no slash in front and one behind, if
# they are not empty.
set(ZNORB_PREFIX "${CMAKE_INSTALL_PREFIX}/") # the root folder comes as an empty text
cmake_path(ABSOLUTE_PATH ZNORB_PREFIX NORMALIZE)
string(REGEX REPLACE "^/+|/+$" "" ZNORB_PREFIX "${ZNORB_PREFIX}")
if(ZNORB_PREFIX MATCHES "^(.*/)?usr$" OR ZNORB_PREFIX STREQUAL "")
    string(REGEX REPLACE "usr$" "" ZNORB_ROOT "${ZNORB_PREFIX}")
    set(ZNORB_USR ${ZNORB_ROOT}usr/)
    set(ZNORB_PKGCONFIG ${ZNORB_USR}share/pkgconfig)
else()
    set(ZNORB_ROOT ${ZNORB_PREFIX}/)
    set(ZNORB_USR ${ZNORB_ROOT})
    set(ZNORB_PKGCONFIG ${ZNORB_USR}lib/pkgconfig)
endif()
