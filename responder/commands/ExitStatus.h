#pragma once

/// The exit statuses of the process.
namespace ZNORBRESPONDER {

/// The invoking process of a successful `-d`.
inline constexpr int startedStatus = 0;

inline constexpr int notRootStatus = 1;

/// `-d` while another instance holds the lock's name; `-stop` while none does.
inline constexpr int refusedStatus = 2;

/// `-stop`: the daemon held its lock for too long.
inline constexpr int stopTimedOutStatus = 3;

/// Ended by SIGTERM.
inline constexpr int terminatedStatus = 10;

/// Every other end, 255 as seen from outside. Deliberate, odd as it is: a successful `-stop`, the end of
/// `-test` and the daemon's orderly end share it with a rejected command line.
inline constexpr int otherEndStatus = -1;

} // namespace ZNORBRESPONDER
