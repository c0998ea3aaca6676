#pragma once

#include "tests/support/Waiting.h"

#include <sys/types.h>

#include <iosfwd>

namespace ZNORBTEST {

/// How a process ended, or that it has not; tests compare it and GoogleTest prints it in words.
struct ProcessEnd {
    enum class Kind { Running, Exited, Signalled };
    Kind kind = Kind::Running;
    int number = 0; ///< exit status or signal

    bool operator==(const ProcessEnd&) const = default;
};

constexpr ProcessEnd stillRunning() {
    return {};
}
constexpr ProcessEnd exitedWith(int status) {
    return {ProcessEnd::Kind::Exited, status};
}
constexpr ProcessEnd endedBy(int signal) {
    return {ProcessEnd::Kind::Signalled, signal};
}

/// From what waitpid() stores.
ProcessEnd endFrom(int waitStatus);

std::ostream& operator<<(std::ostream& stream, const ProcessEnd& end);

/// Waits for a process to end: a child of this process, or one of those that its sandbox's pid 1 inherited.
/// stillRunning() when it did not within the bound, or is no such process. A child's end can be had once.
ProcessEnd waitForEndOf(pid_t pid, Milliseconds bound = usualBound);

/// Whether this process has no child, running or ended.
bool hasNoChildren();

} // namespace ZNORBTEST
