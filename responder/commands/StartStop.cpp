#include "responder/commands/StartStop.h"

#include "common/processes/ProcessRunner.h"
#include "common/threads/SignalMask.h"
#include "responder/Globals.h"
#include "responder/RuntimeNames.h"
#include "responder/commands/CommandClient.h"
#include "responder/commands/Daemonize.h"
#include "responder/commands/ExitStatus.h"
#include "responder/commands/TerminationSignal.h"
#include "responder/commands/UserMessage.h"
#include "responder/service/ResponderThread.h"

#include <malloc.h>
#include <unistd.h>

#include <cstdlib>

namespace ZNORBRESPONDER {

namespace {

constexpr unsigned stopPollMicroseconds = 100'000;
constexpr unsigned stopLimitMicroseconds = 5'000'000;

constexpr unsigned namePollMicroseconds = 1'000;
constexpr unsigned namePollLimitMicroseconds = 200'000;

/// Makes starting a client cheaper, for which the process is copied: one arena of memory for all threads, in
/// C libraries that would make several, and a fork without the C library's locks. Both are allowed because
/// main only waits while the responder's thread lives: it neither allocates nor writes.
void prepareForLaunches() {
#ifdef M_ARENA_MAX
    (void)mallopt(M_ARENA_MAX, 1);
#endif
    ORBCOMMON::forkWithoutLocks();
}

bool isAnotherInstanceActive() {
    if (!appLock.openExisting()) {
        return false;
    }
    appLock.close();
    return true;
}

/// Waits until nobody holds the lock. False when the daemon still does after fifty sleeps.
bool awaitLockRelease() {
    for (unsigned waited = 0; appLock.isHeld();) {
        (void)usleep(stopPollMicroseconds);
        waited += stopPollMicroseconds;
        if (waited == stopLimitMicroseconds) {
            return false;
        }
    }
    return true;
}

/// The daemon lets go of the lock a moment before it removes its name. Waits for the name as well, within a
/// bound, so that a start right after this stop is not refused.
void awaitNameRemoval() {
    for (unsigned waited = 0; waited < namePollLimitMicroseconds; waited += namePollMicroseconds) {
        ORBCOMMON::GlobalLock probe(applicationLockName);
        if (!probe.openExisting()) {
            return;
        }
        (void)usleep(namePollMicroseconds);
    }
}

/// What the invoking process does: waits until the daemon is ready, tells the user and ends.
[[noreturn]] void endInvoker(const sigset_t& callersMask) {
    ORBCOMMON::restoreSignalMask(callersMask);
    ORBFrontProcessBarrier.setOwner(true);
    (void)ORBFrontProcessBarrier.wait();
    tellUser(STDOUT_FILENO, "The ZN Orbisan daemon has started.");
    std::exit(startedStatus);
}

} // namespace

bool startInBackground(const sigset_t& callersMask) {
    ORBFrontProcessBarrier.setOwner(false);
    if (daemonize(false)) {
        endInvoker(callersMask);
    }
    return true;
}

int startDaemon() {
    if (isAnotherInstanceActive()) {
        tellUser(STDERR_FILENO,
                 "Error: Only one instance of the ZN Orbisan daemon can be active at one time.");
        return refusedStatus;
    }
    // From its first moment the daemon holds SIGTERM back until its handler stands and the lock is whole.
    const sigset_t callersMask = ORBCOMMON::holdTermination();
    (void)startInBackground(callersMask);
    installTerminationHandler();
    (void)appLock.create(true); // ignored: a daemon that raced past the probe runs without the name
    ORBCOMMON::clearSignalMask();

    prepareForLaunches();
    ResponderThread responder;
    responder.start();
    (void)ORBFrontProcessBarrier.set();
    responder.awaitEnd();
    releaseApplicationLock();
    return otherEndStatus;
}

int stopDaemon() {
    if (!appLock.openExisting()) {
        tellUser(STDERR_FILENO, "The ZN Orbisan daemon is not running.");
        return refusedStatus;
    }
    if (!sendQuit()) {
        return otherEndStatus;
    }
    if (!awaitLockRelease()) {
        tellUser(STDERR_FILENO, "The ZN Orbisan daemon did not respond to the stop command in time.");
        return stopTimedOutStatus;
    }
    awaitNameRemoval();
    tellUser(STDOUT_FILENO, "The ZN Orbisan daemon has stopped.");
    return otherEndStatus;
}

} // namespace ZNORBRESPONDER
