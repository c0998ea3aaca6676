#include "responder/commands/TerminationSignal.h"

#include "common/threads/SignalMask.h"
#include "responder/Globals.h"
#include "responder/commands/ExitStatus.h"

#include <unistd.h>

#include <atomic>
#include <csignal>

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

void releaseApplicationLock() {
    const sigset_t mask = ORBCOMMON::holdTermination();
    appLock.remove(true);
    (void)std::signal(SIGTERM, endProcess);
    ORBCOMMON::restoreSignalMask(mask);
}

} // namespace ZNORBRESPONDER
