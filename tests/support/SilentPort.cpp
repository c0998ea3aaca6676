#include "tests/support/SilentPort.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace ZNORBTEST {

SilentPort::SilentPort(bool listens) : m_descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    const bool isBound = bind(m_descriptor, reinterpret_cast<const sockaddr*>(&address), length) == 0 &&
                         getsockname(m_descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0;
    EXPECT_TRUE(isBound && (!listens || listen(m_descriptor, 1) == 0)) << std::strerror(errno);
    m_number = ntohs(address.sin_port);
}

SilentPort::~SilentPort() {
    if (m_descriptor != -1) {
        (void)close(m_descriptor);
    }
}

} // namespace ZNORBTEST
