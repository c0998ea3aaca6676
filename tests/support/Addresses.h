#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstdint>
#include <string>

namespace ZNORBTEST {

/// Of a port of this machine's own network.
inline sockaddr_in addressOf(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/// Of a path, which is cut where it is too long.
inline sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (void)path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

/// 0 when it is done, else -1, as the system call's.
template <typename Address>
int bindTo(int descriptor, const Address& address) {
    return bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

template <typename Address>
int connectTo(int descriptor, const Address& address) {
    return connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

} // namespace ZNORBTEST
