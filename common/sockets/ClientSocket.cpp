#include "common/sockets/ClientSocket.h"

#include <sys/socket.h>
#include <unistd.h>

namespace ORBCOMMON {

ClientSocket::ClientSocket(int descriptor) noexcept : m_descriptor(descriptor) {}

ClientSocket::~ClientSocket() {
    closeDescriptor();
}

void ClientSocket::close() {
    closeDescriptor();
}

/// Apart from close() because a destructor cannot reach an override.
void ClientSocket::closeDescriptor() noexcept {
    if (m_descriptor != -1) {
        (void)shutdown(m_descriptor, SHUT_RDWR);
        (void)::close(m_descriptor);
    }
    m_descriptor = -1;
}

} // namespace ORBCOMMON
