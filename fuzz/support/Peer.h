#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace ZNORBFUZZ {

/// The other end of a connection, as a script of single characters has it.
///
/// Its receiving side, from the daemon's point of view, takes one character for each wait that does not find
/// it readable, and one for each receive:
///     T  the wait times out
///     F  the wait fails (EINTR)
///     R  the connection is reset (ECONNRESET)
///     C  the peer has closed its side: 0 bytes
///     A  as many bytes as are asked for
///     any other character: at most as many bytes as its code says; NUL is C
/// Behind the script it is A for ever; behind its bytes the connection is reset.
///
/// Its sending side takes one character for each send: E the send fails (EPIPE), A all is taken, any other
/// character at most as many bytes as its code says, and at least 1. Behind the script all is taken.
///
/// Copied before it is used, a peer plays the same part for a model.
class Peer {
public:
    Peer() = default;
    Peer(std::string receiving, std::string bytes, std::string sending = std::string());

    /// As `select`: 1 readable, 0 timed out, -1 failed.
    int await();

    /// As `recv` and `send`, errno included.
    ssize_t receive(char* buffer, std::size_t size);
    ssize_t take(const char* data, std::size_t size);

    /// Everything that was sent to it.
    [[nodiscard]] const std::string& taken() const { return m_taken; }

    /// Waits and receives so far.
    [[nodiscard]] unsigned waits() const { return m_waits; }
    [[nodiscard]] unsigned receives() const { return m_receives; }

private:
    [[nodiscard]] char next() const;

    std::string m_receiving;
    std::string m_bytes;
    std::string m_sending;
    std::string m_taken;
    std::size_t m_step = 0;
    std::size_t m_sendStep = 0;
    std::size_t m_position = 0;
    unsigned m_waits = 0;
    unsigned m_receives = 0;
};

} // namespace ZNORBFUZZ
