#pragma once

#include <cstddef>

namespace ZNORBTEST {

/// Lets operator new fail while it lives: for the next `times` allocations of at least `size`
/// bytes, on whatever thread. One at a time.
class AllocationFailure {
public:
    explicit AllocationFailure(std::size_t size, int times = 1);
    ~AllocationFailure();
    AllocationFailure(const AllocationFailure&) = delete;
    AllocationFailure& operator=(const AllocationFailure&) = delete;

    /// For the static initialisation of a test file: in a copy of this program that is started with
    /// `variable` (see FailingStart.h), one allocation of exactly `size` bytes fails from here on.
    static bool failAtStart(std::size_t size, const char* variable);

    /// Whether all of them have failed.
    static bool hasHappened();

    /// False under the thread sanitizer, whose own operator new cannot be replaced: nothing fails there.
    static bool isPossible();
};

} // namespace ZNORBTEST
