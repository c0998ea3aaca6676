#pragma once

#include "tests/support/Descriptor.h"
#include "tests/support/Words.h"

#include <sys/socket.h>

#include <string>

namespace ZNORBTEST {

/// Two connected ends in this process. The test plays the peer at the far end; the near end is for the code
/// under test, which may take it over. What the peer writes waits at the near end, so that a whole
/// conversation can be prepared before it is read, on one thread.
class SocketPair {
public:
    /// With SOCK_SEQPACKET one read at the near end gets one write of the peer's, never more.
    explicit SocketPair(int type = SOCK_STREAM);

    [[nodiscard]] int near() const { return m_near.get(); }
    [[nodiscard]] int far() const { return m_far.get(); }

    /// The near end, which is the caller's from here on.
    int releaseNear() { return m_near.release(); }
    void closeNear() { m_near.reset(); }

    // The peer's acts.
    void write(const std::string& bytes) const;
    /// Says that nothing more will come; the connection stays.
    void finish() const;
    void closeFar() { m_far.reset(); }
    /// Ends the connection so that the near end reads what was written before and then fails with ECONNRESET.
    void resetFar();
    /// What has arrived at the peer.
    [[nodiscard]] std::string received() const;

private:
    Descriptor m_near;
    Descriptor m_far;
};

} // namespace ZNORBTEST
