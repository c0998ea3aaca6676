#include "responder/TerminationSignal.h"

#include "responder/Globals.h"

#include <pthread.h>
#include <unistd.h>

namespace ZNORBRESPONDER {

namespace {

constexpr int terminatedStatus = 10;

void endProcess(int /*signalNumber*/) {
    _exit(terminatedStatus);
}

} // namespace

// Allowed in here: async-signal-safe calls and reading appLock. No allocation, no lock, no log.
void ExitSignalHandler(int /*signalNumber*/) {
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
