#pragma once

#include <gtest/gtest.h>

namespace ZNORBTEST {

/// False under the thread sanitizer, whose own operator new cannot be replaced.
bool allocationsAreObserved();

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

/// Lets the calling thread's next `succeeding` allocations pass and the one after them throw
/// std::bad_alloc, once, while the object lives.
class FailingAllocation {
public:
    explicit FailingAllocation(long succeeding);
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
    ~FailingAllocation();
};

} // namespace ZNORBTEST
