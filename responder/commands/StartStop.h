#pragma once

#include <csignal>

/// The sequences behind `-d` and `-stop`. Three processes play a part in a start: the invoking one, which
/// prints and exits; the intermediate child of the double fork, which exits at once; and the daemon.
///
/// The daemon's life: lock created and held, responder thread started, main blocked on `mainExitBarrier`;
/// after "QUIT" the thread comes to its end, the lock is removed, the process ends.
namespace ZNORBRESPONDER {

/// `-d`. Returns the exit status: 2, with a message, when another instance holds the lock's name, and -1
/// (255) at the daemon's orderly end. Does not return in the invoking process of a successful start, which
/// exits with 0.
int startDaemon();

/// `-stop`. Returns the exit status: -1 (255) when the daemon has stopped (printed) or could not be asked
/// (nothing printed); with a message, 2 when none runs and 3 when it holds the lock for longer than five
/// seconds after it was asked.
int stopDaemon();

/// Sends the process to the background: true in the daemon, which must `set` `ORBFrontProcessBarrier` when
/// it is ready. The invoking process takes `callersMask` again, waits for that without a limit, prints the
/// start message and exits with 0; it never returns.
bool startInBackground(const sigset_t& callersMask);

} // namespace ZNORBRESPONDER
