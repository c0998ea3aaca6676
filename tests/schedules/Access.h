#pragma once

#include <set>
#include <string>

namespace ZNORBSCHEDULES {

/// What threads may have in common, by name. Beside those below: "memory of" a process, "barrier of" a `-d`
/// and "connection of" a requester.
using Objects = std::set<std::string>;

inline constexpr char lockName[] = "lock";
inline constexpr char lockCount[] = "lock's count";
inline constexpr char sharedTable[] = "table";       ///< its name and what is in it
inline constexpr char listener[] = "socket";         ///< its name, and who is last in its queue
inline constexpr char queuesHead[] = "queue's head"; ///< who is accepted next
inline constexpr char processList[] = "processes";   ///< who there is
inline constexpr char pendingSignals[] = "signals";
inline constexpr char sleepersClock[] = "clock";
inline constexpr char nextInQueue[] = "next";           ///< the head, and whose connection that is
inline constexpr char ownConnection[] = "connection";   ///< the one that the call is made on
inline constexpr char allConnections[] = "connections"; ///< all there are

/// The objects that a step may look at, and those that it may change.
struct Access {
    Objects reads{};
    Objects writes{};

    bool isNone() const { return reads.empty() && writes.empty(); }
    void add(const Access& other) {
        reads.insert(other.reads.begin(), other.reads.end());
        writes.insert(other.writes.begin(), other.writes.end());
    }
};

/// Two steps of different threads are independent, and come to the same in either order, unless one of them
/// may change what the other one looks at or changes.
bool areIndependent(const Access& one, const Access& other);

} // namespace ZNORBSCHEDULES
