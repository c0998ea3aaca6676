#pragma once

#include <atomic>
#include <cstdint>

/// Between the campaign and the preloaded allocator: a file that both map.
namespace ZNORBFAULTS {

/// The processes and threads of a life whose allocations are counted apart.
enum class AllocationRole : std::uint32_t {
    Invoking,
    Intermediate,
    Main,
    Responder,
    Launch,
    Stop,
    Second,
    None
};
constexpr unsigned allocationRoles = 7;

struct AllocationControl {
    std::atomic<std::uint32_t> role;   ///< whose allocation is to fail; None: nobody's
    std::atomic<std::uint32_t> number; ///< which, from 1
    std::atomic<bool> forEver;         ///< and everybody's after it
    std::atomic<bool> hasFailed;
    std::atomic<std::uint32_t> counts[allocationRoles];
};

/// Names the file.
constexpr const char* allocationControlVariable = "ZNORB_ALLOCATION_CONTROL";

/// "stop" or "second" for these; else the process is the invoking one.
constexpr const char* allocationRoleVariable = "ZNORB_ALLOCATION_ROLE";

} // namespace ZNORBFAULTS
