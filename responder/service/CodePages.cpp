#include "responder/service/CodePages.h"

#include <sys/mman.h>

#include <cstdint>

extern "C" {
// From the linker: the executable's first byte, and the first one behind its code. Nothing between them is
// ever written, not even by the loader.
extern char __executable_start; // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern const char etext;
}

namespace ZNORBRESPONDER {

namespace {

constexpr std::uintptr_t pageSize = 4096; // of x86-64

} // namespace

void releaseCode() {
    // The last page may hold something else behind the code.
    const std::uintptr_t end = reinterpret_cast<std::uintptr_t>(&etext) / pageSize * pageSize;
    (void)madvise(&__executable_start, end - reinterpret_cast<std::uintptr_t>(&__executable_start),
                  MADV_DONTNEED);
}

} // namespace ZNORBRESPONDER
