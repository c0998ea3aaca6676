#pragma once

namespace ZNORBSCHEDULES {

/// What programs that were started apart have in common. A daemon's own processes and threads also share
/// memory.
enum Object : unsigned {
    Lock = 1U << 0U,  ///< its name and its count
    Table = 1U << 1U, ///< its name and what is in it
    Socket = 1U << 2U,
    Processes = 1U << 3U, ///< who there is
    Signals = 1U << 4U
};
inline constexpr unsigned objectCount = 5;
inline constexpr unsigned everything = (1U << objectCount) - 1;

/// The objects that a step looks at, and those that it changes.
struct Access {
    unsigned reads = 0;
    unsigned writes = 0;

    bool isNone() const { return (reads | writes) == 0; }
};

} // namespace ZNORBSCHEDULES
