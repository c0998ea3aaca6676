#include "tests/support/LocalConnection.h"

#include "tests/support/Addresses.h"

#include <poll.h>
#include <sys/socket.h>

namespace ZNORBTEST {
namespace {

/// Connected, or none. Connecting on this machine does not block while there is a queue.
template <typename Address>
Descriptor connectedTo(int family, const Address& address) {
    Descriptor descriptor(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connectTo(descriptor.get(), address) != 0) {
        descriptor.reset();
    }
    return descriptor;
}

} // namespace

LocalConnection LocalConnection::toPort(std::uint16_t port) {
    return LocalConnection(connectedTo(AF_INET, addressOf(port)));
}

LocalConnection LocalConnection::toPath(const std::string& path) {
    return LocalConnection(connectedTo(AF_UNIX, addressOf(path)));
}

bool LocalConnection::send(const std::string& bytes) const {
    return ::send(m_descriptor.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

void LocalConnection::finishSending() const {
    (void)shutdown(m_descriptor.get(), SHUT_WR);
}

std::string LocalConnection::receiveUntilClosed(Milliseconds bound) {
    const std::chrono::steady_clock::time_point end = std::chrono::steady_clock::now() + bound;
    std::string received;
    while (m_descriptor.isOpen()) {
        const Milliseconds left =
            std::chrono::duration_cast<Milliseconds>(end - std::chrono::steady_clock::now());
        pollfd wanted = {m_descriptor.get(), POLLIN, 0};
        if (left.count() <= 0 || poll(&wanted, 1, static_cast<int>(left.count())) == 0) {
            break;
        }
        char buffer[4096];
        const ssize_t length = recv(m_descriptor.get(), buffer, sizeof buffer, 0);
        if (length <= 0) {
            m_closed = true;
            break;
        }
        received.append(buffer, static_cast<std::size_t>(length));
    }
    return received;
}

std::optional<std::string> askDaemon(const std::string& request, Milliseconds bound) {
    LocalConnection connection = LocalConnection::toPath(socketPath);
    if (!connection.isConnected() || !connection.send(request)) {
        return std::nullopt;
    }
    const std::string reply = connection.receiveUntilClosed(bound);
    return reply.empty() ? std::nullopt : std::optional<std::string>(reply);
}

} // namespace ZNORBTEST
