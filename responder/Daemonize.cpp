#include "responder/Daemonize.h"

#include "responder/StandardDescriptors.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace ZNORBRESPONDER {

namespace {

constexpr pid_t initProcess = 1;
constexpr int lastClosedDescriptor = 255;

/// Both forks. True in the invoking process, false in the process that is to be the daemon.
bool forkTwice() {
    (void)std::signal(SIGTTOU, SIG_IGN);
    (void)std::signal(SIGTTIN, SIG_IGN);
    (void)std::signal(SIGTSTP, SIG_IGN);
    if (fork() > 0) {
        return true;
    }
    (void)setpgrp();
    (void)std::signal(SIGHUP, SIG_IGN);
    if (fork() > 0) {
        std::exit(0);
    }
    return false;
}

void detachDescriptors() {
    for (int descriptor = 0; descriptor <= lastClosedDescriptor; ++descriptor) {
        if (descriptor <= STDERR_FILENO) {
            pointToNull(descriptor);
        } else {
            (void)close(descriptor);
        }
    }
}

} // namespace

bool daemonize(bool ignoreChildren) {
    if (getppid() != initProcess && forkTwice()) {
        return true;
    }
    detachDescriptors();
    errno = 0;
    (void)umask(0);
    if (ignoreChildren) {
        (void)std::signal(SIGCHLD, SIG_IGN);
    }
    return false;
}

} // namespace ZNORBRESPONDER
