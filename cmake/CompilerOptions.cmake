# Strict warnings for every target (errors in the presets), and the sanitizers of the asan and tsan presets.

include(CheckCompilerFlag)
include(CheckLinkerFlag)

add_library(znorb_options INTERFACE)
target_include_directories(znorb_options INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
target_compile_options(znorb_options INTERFACE
    -Wall -Wextra -Wpedantic
    -Wshadow -Wconversion -Wsign-conversion -Wcast-align -Wcast-qual -Wformat=2
    -Wundef -Wunused -Wdouble-promotion -Wmissing-declarations
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual>
    $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CXX_COMPILER_ID:GNU>>:-Wduplicated-cond -Wlogical-op -Wextra-semi>
    $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes -Wmissing-prototypes>)

# Where the usual types have 32 bits, a file's number on a large disk does not fit, nor does the time after 2038.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    target_compile_definitions(znorb_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)
target_link_libraries(znorb_options INTERFACE Threads::Threads)

if(ZNORB_SANITIZE)
    target_compile_options(znorb_options INTERFACE
        -fsanitize=${ZNORB_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(znorb_options INTERFACE -fsanitize=${ZNORB_SANITIZE})
endif()

# What the compiler and the linker can do against a defect that we have not found: checked library calls,
# guarded stacks, tables that are read-only after the start, constants that cannot be executed. Not in a build for the
# debugger, or of no type: they are not optimised.
set(optimised $<NOT:$<OR:$<CONFIG:Debug>,$<STREQUAL:$<CONFIG>,>>>)
string(FIND "${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_RELEASE}" _FORTIFY_SOURCE place) # a distribution may want more
string(REPLACE -1 "" fortified ${place})
add_library(znorb_hardening INTERFACE)
target_compile_options(znorb_hardening INTERFACE $<${optimised}:
    $<$<NOT:$<BOOL:${fortified}>>:-D_FORTIFY_SOURCE=2> -fstack-protector-strong -ffunction-sections -fdata-sections>)
target_link_options(znorb_hardening INTERFACE $<${optimised}:
    LINKER:-z,relro,-z,now,-z,noexecstack LINKER:-z,separate-code
    LINKER:--gc-sections LINKER:--as-needed>)
foreach(flag -fstack-clash-protection -fcf-protection -mbranch-protection=standard) # where the processor has them
    string(MAKE_C_IDENTIFIER "ZNORB_HAS${flag}" has)
    check_compiler_flag(CXX "-Werror ${flag}" ${has})
    if(${has})
        target_compile_options(znorb_hardening INTERFACE $<${optimised}:${flag}>)
    endif()
endforeach()

# Programs that are installed are optimised as a whole when they are linked, which drops a tenth of them. The libraries
# keep their usual code as well: the tests link that, and need not wait for it.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(znorb_hardening INTERFACE $<${optimised}:-flto -ffat-lto-objects>)
    set(ZNORB_WHOLE_PROGRAM $<${optimised}:-flto=auto>)
    set(ZNORB_USUAL_CODE $<${optimised}:-fno-lto>)
endif()

# The counters live in mapped files, so that they survive fork, _exit and SIGKILL; many
# processes and threads share them.
if(ZNORB_COVERAGE)
    target_compile_options(znorb_options INTERFACE
        -fprofile-instr-generate -fprofile-update=atomic -fcoverage-mapping -mllvm -runtime-counter-relocation)
    target_link_options(znorb_options INTERFACE -fprofile-instr-generate)
endif()

# libFuzzer's instrumentation of everything; only the targets of fuzz/ link its main.
if(ZNORB_FUZZ)
    target_compile_options(znorb_options INTERFACE -fsanitize=fuzzer-no-link)
    target_link_options(znorb_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# Not every C library brings what a static executable begins with that can be loaded anywhere. It is probed with the
# linker's warnings on: without them this is none, and the executable ends at its first step.
if(ZNORB_STATIC)
    set(CMAKE_REQUIRED_FLAGS -fPIE)
    check_linker_flag(CXX -static-pie ZNORB_HAS_STATIC_PIE)
    unset(CMAKE_REQUIRED_FLAGS)
    if(NOT ZNORB_HAS_STATIC_PIE)
        message(STATUS "This C library has no rcrt1.o: static executables are loaded at a fixed address")
    endif()
endif()
set(ZNORB_STATIC_PIE $<IF:$<BOOL:${ZNORB_HAS_STATIC_PIE}>,-static-pie,-static>)

# znorb_position_independent(<executable>): loaded at an address that nobody can foretell; with ZNORB_STATIC
# without shared libraries as well, whose page tables every fork would copy.
function(znorb_position_independent name)
    target_compile_options(${name} PRIVATE -fPIE)
    target_link_options(${name} PRIVATE ${ZNORB_WHOLE_PROGRAM}
        $<IF:$<BOOL:${ZNORB_STATIC}>,${ZNORB_STATIC_PIE},-pie>)
    # The linker warns that a static gethostbyname may want shared libraries when it runs. It wants them only for the
    # sources of names that nsswitch.conf adds to files and DNS.
    if(ZNORB_STATIC AND ZNORB_LINKER_CAN_BE_SILENT)
        target_link_options(${name} PRIVATE LINKER:--no-warnings)
    endif()
endfunction()
check_linker_flag(CXX LINKER:--no-warnings ZNORB_LINKER_CAN_BE_SILENT)

# znorb_layer(<name> <lower layer>...): the library of the folder that calls it. The sources are
# globbed, so that a file in the tree is always a file in the build.
function(znorb_layer name)
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
    list(REMOVE_ITEM sources ${CMAKE_CURRENT_SOURCE_DIR}/main.cpp)
    add_library(${name} STATIC ${sources})
    target_compile_options(${name} PRIVATE -fPIE)
    target_link_libraries(${name} PUBLIC znorb_options ${ARGN} PRIVATE znorb_hardening)
endfunction()
