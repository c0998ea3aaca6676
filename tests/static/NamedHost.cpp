#include "common/sockets/IPClientSocket.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>

/// Ends with 0 when a host is found by its name. Linked as the daemon is: the C library finds names by other
/// means in a static executable.
int main() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, 1) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        std::perror("no listening socket");
        return 1;
    }
    ORBCOMMON::IPClientSocket known("localhost", ntohs(address.sin_port));
    known.connect();
    (void)close(listener);
    if (!known.isConnected()) {
        (void)std::fprintf(stderr, "localhost is not found\n");
        return 1;
    }
    return 0;
}
