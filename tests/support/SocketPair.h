#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <string>

namespace ZNORBTEST {

/// Bytes that are in their places only if none before them is missing.
std::string pattern(std::size_t length);

/// Two connected ends in this process. The test plays the peer at the far end; the near end is for the code
/// under test, which may take it over. What the peer writes waits at the near end, so that a whole
/// conversation can be prepared before it is read, on one thread.
class SocketPair {
public:
    /// With SOCK_SEQPACKET one read at the near end gets one write of the peer's, never more.
    explicit SocketPair(int type = SOCK_STREAM);
    ~SocketPair();
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;

    [[nodiscard]] int near() const { return m_near; }
    [[nodiscard]] int far() const { return m_far; }

    /// The near end, which is the caller's from here on.
    int releaseNear();
    void closeNear();

    // The peer's acts.
    void write(const std::string& bytes) const;
    /// Says that nothing more will come; the connection stays.
    void finish() const;
    void closeFar();
    /// Ends the connection so that the near end reads what was written before and then fails with ECONNRESET.
    void resetFar();
    /// What has arrived at the peer.
    [[nodiscard]] std::string received() const;

private:
    int m_near = -1;
    int m_far = -1;
};

} // namespace ZNORBTEST
