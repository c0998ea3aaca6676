#include "responder/commands/Daemonize.h"

#include "responder/commands/StandardDescriptors.h"

#include <sys/stat.h>
#include <sys/syscall.h>
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

/// Not every C library has a function of this system call.
#ifdef CLOSE_RANGE_CLOEXEC
constexpr int closeOnExec = CLOSE_RANGE_CLOEXEC;
constexpr auto closeRange = close_range;
#else
constexpr int closeOnExec = 1 << 2;
long closeRange(unsigned first, unsigned last, int flags) {
    return syscall(SYS_close_range, first, last, flags);
}
#endif

void detachDescriptors() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        pointToNull(descriptor);
    }
    if (closeRange(STDERR_FILENO + 1, lastClosedDescriptor, 0) == 0) {
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
    (void)closeRange(lastClosedDescriptor + 1, ~0U, closeOnExec);
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
