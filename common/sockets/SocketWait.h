#pragma once

/// Waiting for a descriptor to become readable.
namespace ORBCOMMON {

enum class Readiness {
    Readable, ///< a read will not block: bytes, an incoming connection, or the peer has closed
    TimedOut, ///< nothing arrived in time
    Failed    ///< `select` failed (a signal included), or the descriptor cannot be waited on
};

/// Waits once, for at most `seconds`, until `descriptor` is readable. The descriptor stays the caller's. One
/// below 0, or too large for a `select` set, is Failed at once. An interrupted wait is Failed too and is not
/// resumed: for a client's socket that is the end of the conversation, for a listener an idle second.
[[nodiscard]] Readiness waitUntilReadable(int descriptor, long seconds);

} // namespace ORBCOMMON
