#pragma once

#include <compare>
#include <string>

namespace ZNORBMOMENTS {

/// A place between two steps of one thread: right before one of its system calls, or right behind it. Calls
/// are counted by their kind, so that one more wait in one life than in another moves no other place.
struct Boundary {
    std::string role;
    long call = -1;          ///< the system call's number
    unsigned occurrence = 0; ///< of this call on this thread, from 1
    bool isBefore = false;

    auto operator<=>(const Boundary&) const = default;
};

/// As in "main, before unlink 2".
std::string describe(const Boundary& boundary);

} // namespace ZNORBMOMENTS
