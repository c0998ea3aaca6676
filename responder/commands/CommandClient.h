#pragma once

/// The requests that the command line sends to a running daemon over its socket. Each call makes and
/// destroys a connection of its own, blocks the calling thread for up to 60 seconds, and logs nothing.
namespace ZNORBRESPONDER {

/// Asks the daemon to quit. True when it answered with at least one byte, which it does after its
/// clients were told to exit and before it has finished stopping. False at once when nobody listens,
/// false when no answer came.
bool sendQuit();

/// Asks the daemon to list its table in its log. Result as for `sendQuit`.
bool sendPrint();

} // namespace ZNORBRESPONDER
