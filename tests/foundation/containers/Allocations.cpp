#include "tests/foundation/containers/Allocations.h"

#include "tests/support/Sanitizers.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

thread_local long t_allocations = 0;
thread_local long t_deallocations = 0;
thread_local long t_allocationsUntilFailure = -1; // negative: none fails

} // namespace

#if !ZNORB_THREAD_SANITIZER

void* operator new(std::size_t size) {
    if (t_allocationsUntilFailure >= 0 && t_allocationsUntilFailure-- == 0) {
        throw std::bad_alloc();
    }
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++t_allocations;
    return memory;
}

void operator delete(void* memory) noexcept {
    if (memory != nullptr) {
        ++t_deallocations;
        std::free(memory);
    }
}

void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}

#endif

namespace ZNORBTEST {

bool allocationsAreObserved() {
    return !underThreadSanitizer;
}

void AllocationTest::SetUp() {
    if (!allocationsAreObserved()) {
        GTEST_SKIP() << "allocations cannot be observed under the thread sanitizer";
    }
}

AllocationWatch::AllocationWatch()
    : m_allocationsBefore(t_allocations), m_deallocationsBefore(t_deallocations) {}

long AllocationWatch::allocations() const {
    return t_allocations - m_allocationsBefore;
}

long AllocationWatch::outstanding() const {
    return allocations() - (t_deallocations - m_deallocationsBefore);
}

FailingAllocation::FailingAllocation(long succeeding) {
    t_allocationsUntilFailure = succeeding;
}

FailingAllocation::~FailingAllocation() {
    t_allocationsUntilFailure = -1;
}

} // namespace ZNORBTEST
