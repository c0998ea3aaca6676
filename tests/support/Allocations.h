#pragma once

#include "tests/support/Sanitizers.h"

#include <gtest/gtest.h>

#include <cstddef>

/// The tests' operator new and operator delete: linked into a program, they stand in for the library's,
/// count, and fail when a test wants it.
namespace ZNORBTEST {

/// The thread sanitizer's own cannot be replaced: nothing is counted and nothing fails.
inline constexpr bool allocationsAreObserved = !underThreadSanitizer;

/// Base of the tests that count allocations or make them fail: skips where they are not observed.
class AllocationTest : public testing::Test {
protected:
    void SetUp() override;
};

/// What the calling thread does with operator new and operator delete from here on.
class AllocationWatch {
public:
    AllocationWatch();

    /// Calls of operator new so far.
    [[nodiscard]] long allocations() const;

    /// Allocations that were not given back: 0 when nothing leaked.
    [[nodiscard]] long outstanding() const;

private:
    long m_allocationsBefore;
    long m_deallocationsBefore;
};

/// Of the allocations with a size in the range, on whatever thread, lets the next `succeeding` pass and the
/// one after them fail, once, while the object lives. One at a time.
class FailingAllocation {
public:
    explicit FailingAllocation(long succeeding, std::size_t atLeast = 0,
                               std::size_t atMost = static_cast<std::size_t>(-1));
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
    ~FailingAllocation();

    static bool hasHappened();
};

} // namespace ZNORBTEST
