#include "common/sockets/IPClientSocket.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <utility>

namespace ORBCOMMON {

bool storeFirstAddress(const hostent& answer, sockaddr_in& address) {
    if (answer.h_length <= 0 || answer.h_addr_list == nullptr || answer.h_addr_list[0] == nullptr) {
        return false;
    }
    const std::size_t length = std::min(static_cast<std::size_t>(answer.h_length), sizeof(address.sin_addr));
    std::memcpy(&address.sin_addr, answer.h_addr_list[0], length);
    address.sin_family = static_cast<sa_family_t>(answer.h_addrtype);
    return true;
}

IPClientSocket::IPClientSocket(std::string host, std::uint16_t port) noexcept
    : m_host(std::move(host)), m_port(port) {}

bool IPClientSocket::findHost(sockaddr_in& address) const {
    if (std::isalpha(static_cast<unsigned char>(m_host[0])) != 0) {
        const hostent* answer = gethostbyname(m_host.c_str());
        return answer != nullptr && storeFirstAddress(*answer, address);
    }
    // What is no address becomes 255.255.255.255, untested on purpose: connecting to that fails.
    address.sin_addr.s_addr = inet_addr(m_host.c_str());
    address.sin_family = AF_INET;
    return true;
}

void IPClientSocket::connect() {
    close();
    sockaddr_in address{};
    if (!findHost(address)) {
        close();
        return;
    }
    address.sin_port = htons(m_port);
    adopt(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!isConnected() ||
        ::connect(descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == -1) {
        close();
    }
}

} // namespace ORBCOMMON
