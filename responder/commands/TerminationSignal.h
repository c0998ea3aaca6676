#pragma once

/// SIGTERM ends the daemon at any moment with status 10 and with the lock's name gone.
///
/// The handler runs on whichever thread the signal meets, usually main, and may interrupt it anywhere: so it
/// relies on async-signal-safe calls only. When one signal meets each thread, the handler that came first
/// ends the process.
///
/// It must never find `appLock` half changed. So the main thread holds SIGTERM back while it creates or
/// removes the lock. The responder's thread cannot take the signal in its stead: at the first of these
/// moments it does not exist yet, at the second it holds SIGTERM back itself.
namespace ZNORBRESPONDER {

/// Posts the lock's count back if it is held, unlinks its name and ends the process with status 10,
/// running no destructor: main may be waiting on an event that exit would destroy.
void ExitSignalHandler(int signalNumber);

/// Installs `ExitSignalHandler` for SIGTERM.
void installTerminationHandler();

/// The lock's orderly end: removes `appLock` by force. From here on a SIGTERM still ends the process with
/// status 10, but touches the lock no more: the name may already be the next daemon's, and the object
/// goes with the process.
void releaseApplicationLock();

} // namespace ZNORBRESPONDER
