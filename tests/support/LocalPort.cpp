#include "tests/support/LocalPort.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace ZNORBTEST {

LocalPort::LocalPort(bool listens)
    : m_descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      m_number(bindToLocalPort(m_descriptor)) {
    EXPECT_TRUE(m_number != 0 && (!listens || listen(m_descriptor, 5) == 0)) << std::strerror(errno);
}

LocalPort::~LocalPort() {
    stopListening();
}

int LocalPort::acceptOne() const {
    const int accepted = accept4(m_descriptor, nullptr, nullptr, SOCK_CLOEXEC);
    const timeval bound = {20, 0};
    (void)setsockopt(accepted, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound);
    return accepted;
}

void LocalPort::stopListening() {
    if (m_descriptor != -1) {
        (void)close(std::exchange(m_descriptor, -1));
    }
}

std::uint16_t bindToLocalPort(int descriptor) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    const bool isBound = bind(descriptor, reinterpret_cast<const sockaddr*>(&address), length) == 0 &&
                         getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0;
    return isBound ? ntohs(address.sin_port) : 0;
}

} // namespace ZNORBTEST
