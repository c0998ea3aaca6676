#include "tests/support/LocalPort.h"

#include "tests/support/Addresses.h"

#include <gtest/gtest.h>
#include <sys/time.h>

#include <cerrno>
#include <cstring>

namespace ZNORBTEST {

LocalPort::LocalPort(bool listens)
    : m_descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      m_number(bindToLocalPort(m_descriptor.get())) {
    EXPECT_TRUE(m_number != 0 && (!listens || listen(m_descriptor.get(), 5) == 0)) << std::strerror(errno);
}

int LocalPort::acceptOne() const {
    const int accepted = accept4(m_descriptor.get(), nullptr, nullptr, SOCK_CLOEXEC);
    const timeval bound = {20, 0};
    (void)setsockopt(accepted, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound);
    return accepted;
}

std::uint16_t bindToLocalPort(int descriptor) {
    sockaddr_in address = addressOf(std::uint16_t{0});
    socklen_t length = sizeof address;
    const bool isBound = bindTo(descriptor, address) == 0 &&
                         getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0;
    return isBound ? ntohs(address.sin_port) : 0;
}

} // namespace ZNORBTEST
