#include "tests/common/log/WithoutLoggerMutex.h"

#include "foundation/synchronization/RecursiveProcessMutex.h"
#include "tests/support/FailingStart.h"
#include "tests/support/Sanitizers.h"

#include <cstddef>
#include <cstdlib>
#include <new>

#if !ZNORB_THREAD_SANITIZER && !ZNORB_ADDRESS_SANITIZER

namespace {

constexpr std::size_t mutexSize = sizeof(Common::Synchronization::RecursiveProcessMutex);

/// How many allocations of that size succeed before one fails; negative: none fails.
constinit int succeeding = -1;

/// The library's static initialisation comes after this one.
[[maybe_unused]] const bool isFailing = [] {
    succeeding = ZNORBTEST::allocationsBeforeFailure(ZNORBTEST::withoutLoggerMutex);
    return succeeding >= 0;
}();

bool isToFail(std::size_t size) {
    return succeeding >= 0 && size == mutexSize && succeeding-- == 0;
}

} // namespace

void* operator new(std::size_t size) {
    void* const memory = isToFail(size) ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

#endif
