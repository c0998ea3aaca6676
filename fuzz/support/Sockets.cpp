#include "fuzz/support/Sockets.h"

#include "fuzz/support/Require.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace ZNORBFUZZ {

namespace {

Sockets* s_current = nullptr;

Sockets& current() {
    require(s_current != nullptr, "a socket is used where none is expected");
    return *s_current;
}

} // namespace

Sockets::Sockets() {
    require(s_current == nullptr, "one Sockets at a time");
    s_current = this;
}

Sockets::~Sockets() {
    s_current = nullptr;
}

int Sockets::open(Peer* peer) {
    return takeSlot({State::Connected, AF_UNIX, false, peer});
}

unsigned Sockets::openCount() const {
    return static_cast<unsigned>(std::count_if(std::begin(m_slots), std::end(m_slots),
                                               [](const Slot& slot) { return slot.state != State::Closed; }));
}

Peer* Sockets::answer(std::uint32_t /*address*/, std::uint16_t /*port*/) {
    return nullptr;
}

int Sockets::awaitConnection() {
    return -1;
}

Peer* Sockets::connection() {
    return nullptr;
}

bool Sockets::isFake(int descriptor) {
    return descriptor >= s_first && descriptor < s_first + s_count;
}

Sockets::Slot& Sockets::slotOf(int descriptor) {
    require(isFake(descriptor), "a call on a descriptor that is no socket");
    Slot& slot = m_slots[descriptor - s_first];
    require(slot.state != State::Closed, "a call on a closed socket");
    return slot;
}

int Sockets::takeSlot(const Slot& slot) {
    for (int i = 0; i < s_count; ++i) {
        if (m_slots[i].state == State::Closed) {
            m_slots[i] = slot;
            return s_first + i;
        }
    }
    reportFinding("sockets are left open until there are none");
}

int Sockets::socket(int domain) {
    return takeSlot({State::Made, domain, false, nullptr});
}

int Sockets::connect(int descriptor, std::uint32_t address, std::uint16_t port) {
    Slot& slot = slotOf(descriptor);
    require(slot.state == State::Made && slot.domain == AF_INET, "connect on a new TCP socket");
    slot.peer = answer(address, port);
    if (slot.peer == nullptr) {
        errno = ECONNREFUSED;
        return -1;
    }
    slot.state = State::Connected;
    return 0;
}

int Sockets::bind(int descriptor, const std::string& path) {
    Slot& slot = slotOf(descriptor);
    require(slot.state == State::Made && slot.domain == AF_UNIX, "bind on a new local socket");
    requireEqual(path, "/var/run/znorb.socket", "the path that is bound");
    slot.state = State::Bound;
    return 0;
}

int Sockets::listen(int descriptor) {
    Slot& slot = slotOf(descriptor);
    require(slot.state == State::Bound, "listen on a bound socket");
    slot.state = State::Listening;
    return 0;
}

int Sockets::accept(int descriptor) {
    require(slotOf(descriptor).state == State::Listening, "accept on a listening socket");
    Peer* const peer = connection();
    if (peer == nullptr) {
        errno = ECONNABORTED;
        return -1;
    }
    return open(peer);
}

int Sockets::select(int descriptor, long seconds) {
    Slot& slot = slotOf(descriptor);
    m_waits.push_back(static_cast<unsigned>(seconds));
    return slot.state == State::Listening ? awaitConnection() : peerOf(descriptor).await();
}

Peer& Sockets::peerOf(int descriptor) {
    Slot& slot = slotOf(descriptor);
    require(slot.state == State::Connected && !slot.isShutDown, "bytes on a connection that stands");
    return *slot.peer;
}

int Sockets::shutdown(int descriptor) {
    slotOf(descriptor).isShutDown = true;
    return 0;
}

int Sockets::close(int descriptor) {
    Slot& slot = slotOf(descriptor);
    require(slot.isShutDown, "shut down before it is closed");
    slot.state = State::Closed;
    return 0;
}

} // namespace ZNORBFUZZ

using ZNORBFUZZ::require;

extern "C" int select(int nfds, fd_set* readfds, fd_set* writefds, fd_set* exceptfds, timeval* timeout) {
    require(readfds != nullptr && writefds == nullptr && exceptfds == nullptr, "a wait for reading only");
    require(timeout != nullptr && timeout->tv_usec == 0, "a wait of whole seconds");
    const int descriptor = nfds - 1;
    require(ZNORBFUZZ::Sockets::isFake(descriptor), "a wait on a socket");
    fd_set expected;
    FD_ZERO(&expected);
    FD_SET(descriptor, &expected);
    require(std::memcmp(readfds, &expected, sizeof expected) == 0, "a wait on one socket alone");
    const int result = ZNORBFUZZ::current().select(descriptor, timeout->tv_sec);
    if (result == 0) {
        FD_ZERO(readfds);
    }
    return result;
}

extern "C" ssize_t recv(int fd, void* buf, size_t n, int flags) {
    require(flags == 0 && n > 0, "a plain receive");
    return ZNORBFUZZ::current().peerOf(fd).receive(static_cast<char*>(buf), n);
}

extern "C" ssize_t send(int fd, const void* buf, size_t n, int flags) {
    require(flags == MSG_NOSIGNAL, "a send without a signal");
    return ZNORBFUZZ::current().peerOf(fd).take(static_cast<const char*>(buf), n);
}

extern "C" int socket(int domain, int type, int protocol) noexcept {
    require(type == (SOCK_STREAM | SOCK_CLOEXEC) && protocol == 0, "a stream socket, closed on exec");
    return ZNORBFUZZ::current().socket(domain);
}

extern "C" int connect(int fd, const sockaddr* addr, socklen_t len) {
    sockaddr_in address{};
    require(len == sizeof address, "an address of 16 bytes");
    std::memcpy(&address, addr, sizeof address);
    require(address.sin_family == AF_INET, "an IPv4 address");
    return ZNORBFUZZ::current().connect(fd, ntohl(address.sin_addr.s_addr), ntohs(address.sin_port));
}

extern "C" int bind(int fd, const sockaddr* addr, socklen_t len) noexcept {
    sockaddr_un address{};
    require(len == sizeof address, "an address of 110 bytes");
    std::memcpy(&address, addr, sizeof address);
    return ZNORBFUZZ::current().bind(fd, address.sun_path);
}

extern "C" int listen(int fd, int /*n*/) noexcept {
    return ZNORBFUZZ::current().listen(fd);
}

extern "C" int accept4(int fd, sockaddr* /*addr*/, socklen_t* /*addr_len*/, int flags) {
    require(flags == SOCK_CLOEXEC, "a connection that is closed on exec");
    return ZNORBFUZZ::current().accept(fd);
}

extern "C" int shutdown(int fd, int how) noexcept {
    require(how == SHUT_RDWR, "a shutdown of both directions");
    return ZNORBFUZZ::current().shutdown(fd);
}

extern "C" int close(int fd) {
    using ZNORBFUZZ::Sockets;
    const bool isOurs = Sockets::isFake(fd) || fd == Sockets::otherDescriptor;
    return isOurs ? ZNORBFUZZ::current().close(fd) : static_cast<int>(syscall(SYS_close, fd));
}

extern "C" int usleep(useconds_t useconds) {
    ZNORBFUZZ::current().sleep(useconds);
    return 0;
}
