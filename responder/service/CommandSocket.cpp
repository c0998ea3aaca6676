#include "responder/service/CommandSocket.h"

#include "common/sockets/SocketWait.h"
#include "common/threads/ThreadHandle.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>

namespace ZNORBRESPONDER {

namespace {

constexpr unsigned failurePause = 100; // milliseconds

static_assert(sizeof(sockaddr_un) == 110 && sizeof(sockaddr_un::sun_path) == 108);

} // namespace

CommandSocket::~CommandSocket() {
    close();
}

bool CommandSocket::open() {
    m_descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    return m_descriptor != -1;
}

bool CommandSocket::bind(const char* path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (void)std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path);
    (void)unlink(path);
    return ::bind(m_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != -1;
}

bool CommandSocket::listen(int backlog) {
    return ::listen(m_descriptor, backlog) != -1;
}

int CommandSocket::accept(long seconds) {
    const ORBCOMMON::Readiness readiness = ORBCOMMON::waitUntilReadable(m_descriptor, seconds);
    if (readiness == ORBCOMMON::Readiness::TimedOut) {
        return -1;
    }
    int connection = -1;
    if (readiness == ORBCOMMON::Readiness::Readable) {
        connection = accept4(m_descriptor, nullptr, nullptr, SOCK_CLOEXEC);
    }
    if (connection == -1) {
        ORBCOMMON::sleepMilliseconds(failurePause);
    }
    return connection;
}

void CommandSocket::close() {
    if (m_descriptor != -1) {
        (void)shutdown(m_descriptor, SHUT_RDWR);
        (void)::close(m_descriptor);
        m_descriptor = -1;
    }
}

} // namespace ZNORBRESPONDER
