#include "tests/support/LocalConnection.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <utility>

namespace ZNORBTEST {
namespace {

/// The connected descriptor, or -1. Connecting on this machine does not block while there is a queue.
int connectTo(int family, const void* address, socklen_t length) {
    const int descriptor = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor != -1 && connect(descriptor, static_cast<const sockaddr*>(address), length) != 0) {
        (void)close(descriptor);
        return -1;
    }
    return descriptor;
}

} // namespace

LocalConnection LocalConnection::toPort(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return LocalConnection(connectTo(AF_INET, &address, sizeof address));
}

LocalConnection LocalConnection::toPath(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return LocalConnection(-1);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return LocalConnection(connectTo(AF_UNIX, &address, sizeof address));
}

LocalConnection::LocalConnection(LocalConnection&& other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1)), m_closed(other.m_closed) {}

LocalConnection::~LocalConnection() {
    if (m_descriptor != -1) {
        (void)close(m_descriptor);
    }
}

bool LocalConnection::send(const std::string& bytes) const {
    return ::send(m_descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

void LocalConnection::finishSending() const {
    (void)shutdown(m_descriptor, SHUT_WR);
}

std::string LocalConnection::receiveUntilClosed(Milliseconds bound) {
    const std::chrono::steady_clock::time_point end = std::chrono::steady_clock::now() + bound;
    std::string received;
    while (m_descriptor != -1) {
        const Milliseconds left =
            std::chrono::duration_cast<Milliseconds>(end - std::chrono::steady_clock::now());
        pollfd wanted = {m_descriptor, POLLIN, 0};
        if (left.count() <= 0 || poll(&wanted, 1, static_cast<int>(left.count())) == 0) {
            break;
        }
        char buffer[4096];
        const ssize_t length = recv(m_descriptor, buffer, sizeof buffer, 0);
        if (length <= 0) {
            m_closed = true;
            break;
        }
        received.append(buffer, static_cast<std::size_t>(length));
    }
    return received;
}

std::optional<std::string> askDaemon(const std::string& request, Milliseconds bound) {
    LocalConnection connection = LocalConnection::toPath("/var/run/znorb.socket");
    if (!connection.isConnected() || !connection.send(request)) {
        return std::nullopt;
    }
    const std::string reply = connection.receiveUntilClosed(bound);
    return reply.empty() ? std::nullopt : std::optional<std::string>(reply);
}

} // namespace ZNORBTEST
