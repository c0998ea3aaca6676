#pragma once

#include "common/sockets/ClientSocket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstdint>
#include <string>

/// What the tests of the sockets connect to: each accepts connections once it listens.
namespace ZNORBTEST {

inline void startListening(const ORBCOMMON::ClientSocket& listener) {
    EXPECT_EQ(listen(listener.descriptor(), 5), 0);
}

/// The next connection, which goes to the caller, or -1 when nobody is queued.
inline int acceptOne(const ORBCOMMON::ClientSocket& listener) {
    return accept4(listener.descriptor(), nullptr, nullptr, SOCK_CLOEXEC);
}

/// On 127.0.0.1, at a port of the kernel's choice.
class Port {
public:
    Port() : listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        EXPECT_EQ(bind(listener.descriptor(), reinterpret_cast<const sockaddr*>(&address), length), 0);
        EXPECT_EQ(getsockname(listener.descriptor(), reinterpret_cast<sockaddr*>(&address), &length), 0);
        m_number = ntohs(address.sin_port);
    }

    [[nodiscard]] std::uint16_t number() const { return m_number; }

    ORBCOMMON::ClientSocket listener;

private:
    std::uint16_t m_number = 0;
};

/// On a path; the file stays.
class Path {
public:
    explicit Path(const std::string& path)
        : listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        EXPECT_LT(path.size(), sizeof(address.sun_path));
        (void)path.copy(address.sun_path, sizeof(address.sun_path));
        EXPECT_EQ(bind(listener.descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
                  0);
    }

    ORBCOMMON::ClientSocket listener;
};

} // namespace ZNORBTEST
