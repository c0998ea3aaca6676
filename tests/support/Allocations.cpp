#include "tests/support/Allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

thread_local long t_allocations = 0;
thread_local long t_deallocations = 0;

constinit std::atomic<long> s_succeeding = -1; ///< before the one that fails; negative: none fails
constinit std::atomic<std::size_t> s_atLeast = 0;
constinit std::atomic<std::size_t> s_atMost = 0;

} // namespace

#if !ZNORB_THREAD_SANITIZER

// All forms of which the code makes use, so that no sanitizer's own form meets memory of these.

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (s_succeeding >= 0 && size >= s_atLeast && size <= s_atMost && s_succeeding.fetch_sub(1) == 0) {
        return nullptr;
    }
    ++t_allocations;
    return std::malloc(size == 0 ? 1 : size);
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
    t_deallocations += memory != nullptr ? 1 : 0;
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}

void operator delete[](void* memory) noexcept {
    operator delete(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
    operator delete(memory);
}

#endif

namespace ZNORBTEST {

void AllocationTest::SetUp() {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be made to fail here";
}

AllocationWatch::AllocationWatch()
    : m_allocationsBefore(t_allocations), m_deallocationsBefore(t_deallocations) {}

long AllocationWatch::allocations() const {
    return t_allocations - m_allocationsBefore;
}

long AllocationWatch::outstanding() const {
    return allocations() - (t_deallocations - m_deallocationsBefore);
}

FailingAllocation::FailingAllocation(long succeeding, std::size_t atLeast, std::size_t atMost) {
    s_atLeast = atLeast;
    s_atMost = atMost;
    s_succeeding = succeeding;
}

FailingAllocation::~FailingAllocation() {
    s_succeeding = -1;
}

bool FailingAllocation::hasHappened() {
    return s_succeeding < 0;
}

} // namespace ZNORBTEST
