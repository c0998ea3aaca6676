#include "responder/commands/Daemonize.h"

#include "responder/commands/StandardDescriptors.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace ZNORBRESPONDER {

namespace {

constexpr pid_t initProcess = 1;
constexpr int lastClosedDescriptor = 255;

/// The second fork. Returns in the process that is to be the daemon only.
void forkAgain() {
    (void)setpgrp();
    (void)std::signal(SIGHUP, SIG_IGN);
    if (fork() > 0) {
        std::exit(0);
    }
}

/// Both forks. True in the invoking process, false in the process that is to be the daemon.
bool forkTwice() {
    (void)std::signal(SIGTTOU, SIG_IGN);
    (void)std::signal(SIGTTIN, SIG_IGN);
    (void)std::signal(SIGTSTP, SIG_IGN);
    if (fork() > 0) {
        return true;
    }
    forkAgain();
    return false;
}

void detachDescriptors() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        pointToNull(descriptor);
    }
    if (close_range(STDERR_FILENO + 1, lastClosedDescriptor, 0) == 0) {
        return;
    }
    // The kernel lacks the call.
    for (int descriptor = STDERR_FILENO + 1; descriptor <= lastClosedDescriptor; ++descriptor) {
        (void)close(descriptor);
    }
}

/// The daemon keeps what the starter had open above the last closed descriptor, on purpose; the clients do
/// not get it, except on a kernel before 5.11.
void keepRestFromClients() {
    (void)close_range(lastClosedDescriptor + 1, ~0U, CLOSE_RANGE_CLOEXEC);
}

} // namespace

bool daemonize(bool ignoreChildren) {
    if (getppid() != initProcess && forkTwice()) {
        return true;
    }
    detachDescriptors();
    keepRestFromClients();
    errno = 0;
    (void)umask(0);
    if (ignoreChildren) {
        (void)std::signal(SIGCHLD, SIG_IGN);
    }
    return false;
}

} // namespace ZNORBRESPONDER
