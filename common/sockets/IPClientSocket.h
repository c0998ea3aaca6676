#pragma once

#include "common/sockets/ClientSocket.h"

#include <cstdint>
#include <string>

struct hostent;
struct sockaddr_in;

namespace ORBCOMMON {

/// The client end of a TCP connection over IPv4. Ownership and threads are those of ClientSocket; in addition
/// connect() with a host name uses the C library's one shared resolver result, so two threads must not
/// resolve at the same time.
class IPClientSocket : public ClientSocket {
public:
    /// Not connected. `host` is a name, when it begins with a letter, or else a dotted IPv4 address; `port`
    /// is in host byte order.
    IPClientSocket(std::string host, std::uint16_t port) noexcept;

    /// Closes the present connection, if any, and connects to the host's first address. Success is told by
    /// isConnected(): it is false when the name does not resolve, the socket cannot be created or the
    /// connection is refused. Blocks as long as the system's own connection time-out. The socket is not
    /// passed on to programs that this process executes.
    void connect();

private:
    [[nodiscard]] bool findHost(sockaddr_in& address) const;

    std::string m_host;
    std::uint16_t m_port;
};

/// Takes the family and the first address of a resolver's answer over into `address` and returns true. Of an
/// address longer than an IPv4 one (IPv6) only the first 4 bytes are taken, so that it cannot overrun the
/// field. False, with `address` untouched, when the answer holds no address.
[[nodiscard]] bool storeFirstAddress(const hostent& answer, sockaddr_in& address);

} // namespace ORBCOMMON
