#include "tests/support/SocketPair.h"

#include <gtest/gtest.h>

namespace ZNORBTEST {

SocketPair::SocketPair(int type) {
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends) != 0) {
        ADD_FAILURE() << "no pair of sockets";
    }
    m_near.reset(ends[0]);
    m_far.reset(ends[1]);
}

void SocketPair::write(const std::string& bytes) const {
    // Never blocks: what does not fit is a mistake of the test's.
    EXPECT_EQ(sendto(far(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT, nullptr, 0),
              static_cast<ssize_t>(bytes.size()));
}

void SocketPair::finish() const {
    EXPECT_EQ(shutdown(far(), SHUT_WR), 0);
}

void SocketPair::resetFar() {
    // A byte that the peer has not read when it closes is what makes the end a reset.
    (void)sendto(near(), "x", 1, MSG_NOSIGNAL | MSG_DONTWAIT, nullptr, 0);
    closeFar();
}

std::string SocketPair::received() const {
    std::string bytes;
    char buffer[8192];
    for (;;) {
        const ssize_t count = recvfrom(far(), buffer, sizeof buffer, MSG_DONTWAIT, nullptr, nullptr);
        if (count <= 0) {
            return bytes;
        }
        bytes.append(buffer, static_cast<std::size_t>(count));
    }
}

} // namespace ZNORBTEST
