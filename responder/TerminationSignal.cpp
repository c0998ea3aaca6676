#include "responder/TerminationSignal.h"

#include "responder/ExitStatus.h"
#include "responder/Globals.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>

namespace ZNORBRESPONDER {

namespace {

/// Set by the handler that came first.
constinit std::atomic_flag isEnding = ATOMIC_FLAG_INIT;

void endProcess(int /*signalNumber*/) {
    _exit(terminatedStatus);
}

} // namespace

// Allowed in here: async-signal-safe calls, lock-free atomics and reading appLock. No allocation, no lock, no
// log.
void ExitSignalHandler(int /*signalNumber*/) {
    while (isEnding.test_and_set()) {
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
