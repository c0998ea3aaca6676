#pragma once

#include "tests/faults/Campaign.h"
#include "tests/faults/FailingAllocator.h"
#include "tests/faults/Life.h"

#include <string>
#include <vector>

namespace ZNORBFAULTS {

/// An allocation of a life that fails: the `number`-th of the role, alone or with all that follow.
struct AllocationFault {
    LifeKind life;
    AllocationRole role;
    unsigned number;
    bool forEver;
};

struct AllocationOutcome {
    AllocationFault fault;
    bool isInjected = false;
    std::string text; ///< as difference() has it
};

std::string describe(AllocationRole role);

/// Counts the allocations of a life of each kind, and plans to fail each of them; with `forEver` also each
/// of them together with all that come after. Empty, with a message, when they cannot be counted.
std::vector<AllocationFault> planAllocations(bool forEver, std::string& problem);

/// Runs a life for each, as runInjections() does.
std::vector<AllocationOutcome> runAllocations(const UsualLives& lives,
                                              const std::vector<AllocationFault>& plan);

} // namespace ZNORBFAULTS
