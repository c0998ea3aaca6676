#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <optional>

namespace ZNORBTEST {

/// The ends of processes that the sandbox's pid 1 reaped, in memory that it shares with the runner: pid 1
/// is the parent of a daemon that was started as its child, so nobody else can collect that status.
///
/// One writer (pid 1); any process of the sandbox may look. The newest `capacity` ends are kept.
class OrphanRecord {
public:
    /// A record in a shared anonymous mapping, which children of the caller share; nullptr when there is
    /// no memory. Never unmapped: it lives as long as the processes.
    static OrphanRecord* createShared();

    void add(pid_t pid, int waitStatus);

    /// The wait status of the process, the latest if the number was used twice.
    std::optional<int> find(pid_t pid) const;

private:
    static constexpr std::size_t capacity = 4096;

    struct Entry {
        std::atomic<pid_t> pid;
        std::atomic<int> waitStatus;
    };

    std::atomic<std::size_t> m_count;
    Entry m_entries[capacity];
};

} // namespace ZNORBTEST
