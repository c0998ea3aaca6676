#pragma once

#include <csignal>

namespace ZNORBTEST {

/// Of the calling thread.
inline sigset_t currentMask() {
    sigset_t mask;
    (void)sigemptyset(&mask);
    (void)pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return mask;
}

/// Whether SIGTERM is in the mask.
inline bool isHeldBack(const sigset_t& mask) {
    return sigismember(&mask, SIGTERM) == 1;
}

} // namespace ZNORBTEST
