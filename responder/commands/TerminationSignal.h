#pragma once

/// SIGTERM ends the daemon at any moment with status 10 and with the lock's name gone.
///
/// The handler runs on whichever thread the signal meets, usually main, and may meet it anywhere, so it
/// relies on async-signal-safe calls only; of two signals that meet both threads, one ends the process. What
/// it cannot stand is to meet `appLock` half changed: the main thread holds SIGTERM back while it creates or
/// removes the lock, and the responder's thread, which could take the signal in its stead, does not exist
/// yet at the first of these moments and holds SIGTERM back itself at the second.
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
