#pragma once

#include <sys/wait.h>
#include <unistd.h>

namespace ZNORBTEST {

/// Runs the body in a child process, which ends without destroying anything that it has from this one.
/// Returns what the body returned; false when the child ends otherwise, at the latest after a minute.
template <typename Body>
bool inChildProcess(Body body) {
    const pid_t child = fork();
    if (child == 0) {
        (void)alarm(60);
        _exit(body() ? 0 : 1);
    }
    int status = -1;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace ZNORBTEST
