#include "common/threads/SignalMask.h"

#include <pthread.h>

namespace ORBCOMMON {

sigset_t holdTermination() {
    sigset_t termination;
    sigset_t previous{};
    (void)sigemptyset(&termination);
    (void)sigaddset(&termination, SIGTERM);
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

} // namespace ORBCOMMON
