#include "tests/responder/AllocationFailure.h"

#include "tests/support/FailingStart.h"
#include "tests/support/Sanitizers.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

constinit std::atomic<std::size_t> s_smallest = 0;
constinit std::atomic<int> s_failuresLeft = 0;

/// Of a static initialisation, which runs on one thread.
constinit std::size_t s_sizeAtStart = 0;
constinit int s_succeedingAtStart = -1;

[[maybe_unused]] bool failsAtStart(std::size_t size) {
    return size == s_sizeAtStart && s_succeedingAtStart >= 0 && s_succeedingAtStart-- == 0;
}

} // namespace

#if !ZNORB_THREAD_SANITIZER

// All forms of which the code makes use, so that no sanitizer's own form meets memory of these.

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    const bool fails = s_failuresLeft > 0 && size >= s_smallest && s_failuresLeft.fetch_sub(1) > 0;
    return fails || failsAtStart(size) ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* operator new(std::size_t size) {
    void* const memory = operator new(size, std::nothrow);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return operator new(size, std::nothrow);
}

void* operator new[](std::size_t size) {
    return operator new(size);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

void operator delete[](void* memory) noexcept {
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

#endif

namespace ZNORBTEST {

AllocationFailure::AllocationFailure(std::size_t size, int times) {
    s_smallest = size;
    s_failuresLeft = times;
}

bool AllocationFailure::failAtStart(std::size_t size, const char* variable) {
    s_succeedingAtStart = allocationsBeforeFailure(variable);
    s_sizeAtStart = s_succeedingAtStart >= 0 ? size : 0;
    return s_succeedingAtStart >= 0;
}

AllocationFailure::~AllocationFailure() {
    s_failuresLeft = 0;
}

bool AllocationFailure::hasHappened() {
    return s_failuresLeft <= 0;
}

bool AllocationFailure::isPossible() {
    return !underThreadSanitizer;
}

} // namespace ZNORBTEST
