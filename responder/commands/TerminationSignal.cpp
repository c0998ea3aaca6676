#include "responder/commands/TerminationSignal.h"

#include "responder/Globals.h"
#include "responder/commands/ExitStatus.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>

namespace ZNORBRESPONDER {

namespace {

/// The process whose handler came first; 0 before. A copy that a fork makes meanwhile is another process.
constinit std::atomic<pid_t> endingProcess = 0;
static_assert(std::atomic<pid_t>::is_always_lock_free);

void endProcess(int /*signalNumber*/) {
    _exit(terminatedStatus);
}

} // namespace

// Allowed in here: async-signal-safe calls, lock-free atomics and reading appLock. No allocation, no lock, no
// log.
void ExitSignalHandler(int /*signalNumber*/) {
    const pid_t self = getpid();
    while (endingProcess.exchange(self) == self) {
        (void)pause(); // another SIGTERM met the other thread first, which is ending the process
    }
    appLock.abandon();
    _exit(terminatedStatus);
}

void installTerminationHandler() {
    (void)std::signal(SIGTERM, ExitSignalHandler);
}

sigset_t holdTermination() {
    sigset_t termination;
    sigset_t previous;
    (void)sigemptyset(&termination);
    (void)sigaddset(&termination, SIGTERM);
    (void)sigemptyset(&previous);
    (void)pthread_sigmask(SIG_BLOCK, &termination, &previous);
    return previous;
}

void restoreSignalMask(const sigset_t& mask) {
    (void)pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

void clearSignalMask() {
    sigset_t none;
    (void)sigemptyset(&none);
    restoreSignalMask(none);
}

void releaseApplicationLock() {
    const sigset_t mask = holdTermination();
    appLock.remove(true);
    (void)std::signal(SIGTERM, endProcess);
    restoreSignalMask(mask);
}

} // namespace ZNORBRESPONDER
