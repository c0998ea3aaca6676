#include "tests/support/ProcessEnd.h"

#include "tests/sandbox/Sandbox.h"

#include <sys/wait.h>

#include <cerrno>
#include <optional>
#include <ostream>

namespace ZNORBTEST {

ProcessEnd endFrom(int waitStatus) {
    return WIFSIGNALED(waitStatus) ? endedBy(WTERMSIG(waitStatus)) : exitedWith(WEXITSTATUS(waitStatus));
}

std::ostream& operator<<(std::ostream& stream, const ProcessEnd& end) {
    switch (end.kind) {
    case ProcessEnd::Kind::Exited:
        return stream << "exited with status " << end.number;
    case ProcessEnd::Kind::Signalled:
        return stream << "ended by signal " << end.number;
    case ProcessEnd::Kind::Running:
        break;
    }
    return stream << "still running";
}

ProcessEnd waitForEndOf(pid_t pid, Milliseconds bound) {
    ProcessEnd end;
    (void)waitUntil(bound, [pid, &end]() {
        int waitStatus = 0;
        const pid_t changed = waitpid(pid, &waitStatus, WNOHANG);
        if (changed == pid) {
            end = endFrom(waitStatus);
        }
        if (changed != -1) {
            return changed == pid;
        }
        const std::optional<int> orphan = endOfOrphan(pid); // it is no child of this process
        if (orphan.has_value()) {
            end = endFrom(*orphan);
        }
        return orphan.has_value();
    });
    return end;
}

bool hasNoChildren() {
    return waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
}

} // namespace ZNORBTEST
