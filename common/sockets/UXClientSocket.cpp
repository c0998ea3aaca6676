#include "common/sockets/UXClientSocket.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstdio>
#include <utility>

namespace ORBCOMMON {

namespace {

void storePath(const std::string& path, sockaddr_un& address) {
    // The path itself is the format, on purpose: paths must not hold "%".
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    (void)std::snprintf(address.sun_path, sizeof(address.sun_path), path.c_str());
#pragma GCC diagnostic pop
}

} // namespace

UXClientSocket::UXClientSocket(std::string path) noexcept : m_path(std::move(path)) {}

UXClientSocket::UXClientSocket(int descriptor, std::string path) noexcept
    : ClientSocket(descriptor), m_path(std::move(path)) {}

void UXClientSocket::connect() {
    close();
    adopt(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!isConnected()) {
        close();
        return;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    storePath(m_path, address);
    if (::connect(descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == -1) {
        close();
    }
}

} // namespace ORBCOMMON
