# One of Debian's cross compilers: ZNORB_TARGET is what it puts before the names of its tools, as in s390x-linux-gnu.
# script/cross builds with this.
#
#   cmake --toolchain cmake/toolchains/debian.cmake -DZNORB_TARGET=s390x-linux-gnu ...

list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZNORB_TARGET)
set(CMAKE_SYSTEM_NAME Linux)
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR "${ZNORB_TARGET}")
set(CMAKE_C_COMPILER ${ZNORB_TARGET}-gcc)
set(CMAKE_CXX_COMPILER ${ZNORB_TARGET}-g++)
set(CMAKE_FIND_ROOT_PATH /usr/${ZNORB_TARGET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
