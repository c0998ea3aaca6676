# Strict warnings as errors for every target, and the sanitizers of the asan and tsan presets.

add_library(znorb_options INTERFACE)
target_include_directories(znorb_options INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
target_compile_options(znorb_options INTERFACE
    -Wall -Wextra -Wpedantic -Werror
    -Wshadow -Wconversion -Wsign-conversion -Wcast-align -Wcast-qual -Wformat=2
    -Wundef -Wunused -Wdouble-promotion -Wmissing-declarations
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual>
    $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CXX_COMPILER_ID:GNU>>:-Wduplicated-cond -Wlogical-op -Wextra-semi>
    $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes -Wmissing-prototypes>)

set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)
target_link_libraries(znorb_options INTERFACE Threads::Threads)

if(ZNORB_SANITIZE)
    target_compile_options(znorb_options INTERFACE
        -fsanitize=${ZNORB_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(znorb_options INTERFACE -fsanitize=${ZNORB_SANITIZE})
endif()

# znorb_layer(<name> <lower layer>...): the library of the folder that calls it. The sources are
# globbed, so that a file in the tree is always a file in the build.
function(znorb_layer name)
    file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
    list(REMOVE_ITEM sources ${CMAKE_CURRENT_SOURCE_DIR}/main.cpp)
    add_library(${name} STATIC ${sources})
    target_link_libraries(${name} PUBLIC znorb_options ${ARGN})
endfunction()
