#include "tests/support/ListeningPeer.h"

#include "tests/support/Addresses.h"
#include "tests/support/LocalPort.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace ZNORBTEST {
namespace {

/// Whether nothing of what was sent is on its way any more.
bool hasArrived(int connection) {
    int left = 0;
    return ioctl(connection, SIOCOUTQ, &left) == 0 && left == 0;
}

} // namespace

ListeningPeer::ListeningPeer(PeerScript script)
    : m_script(std::move(script)), m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    m_port = bindToLocalPort(m_listener.get());
    EXPECT_NE(m_port, 0) << std::strerror(errno);
    listenAndStart();
}

ListeningPeer::ListeningPeer(PeerScript script, const std::string& path)
    : m_script(std::move(script)), m_path(path), m_listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    EXPECT_TRUE(path.size() < sizeof(sockaddr_un::sun_path) && bindTo(m_listener.get(), addressOf(path)) == 0)
        << path << ": " << std::strerror(errno);
    listenAndStart();
}

void ListeningPeer::listenAndStart() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0) << std::strerror(errno);
    m_isStopping.reset(ends[0]);
    m_stop.reset(ends[1]);
    EXPECT_EQ(listen(m_listener.get(), 16), 0) << std::strerror(errno);
    m_thread = std::thread([this]() { serveAll(); });
}

ListeningPeer::~ListeningPeer() {
    m_stop.reset();
    m_thread.join();
    if (!m_path.empty()) {
        (void)unlink(m_path.c_str());
    }
}

std::vector<std::string> ListeningPeer::received() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_received;
}

bool ListeningPeer::waitForServed(std::size_t count, Milliseconds bound) const {
    return waitUntil(bound, [this, count]() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_served >= count;
    });
}

/// Waits for the descriptor; false when the thread has to end.
bool ListeningPeer::isReadable(int descriptor) const {
    pollfd wanted[] = {{descriptor, POLLIN, 0}, {m_isStopping.get(), POLLIN, 0}};
    // EINVAL: a test has just taken all descriptors away.
    while (poll(wanted, 2, -1) < 0 && (errno == EINTR || errno == EINVAL)) {
        std::this_thread::yield();
    }
    return wanted[1].revents == 0;
}

bool ListeningPeer::isStopped() const {
    pollfd wanted = {m_isStopping.get(), POLLIN, 0};
    return poll(&wanted, 1, 0) > 0;
}

void ListeningPeer::serveAll() {
    while (isReadable(m_listener.get())) {
        const Descriptor connection(accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (connection.isOpen()) {
            serve(connection.get());
        }
    }
}

void ListeningPeer::serve(int connection) {
    const int on = 1;
    (void)setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on); // no TCP: no matter
    std::size_t number = 0;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        number = m_received.size();
        m_received.emplace_back();
    }
    bool goesOn = true;
    while (goesOn && received()[number].size() < m_script.receiveFirst) {
        goesOn = receive(connection);
    }
    for (const std::string& piece : m_script.pieces) {
        goesOn = goesOn && sendPiece(connection, piece) && rest();
    }
    noteServed();
    while (goesOn && m_script.repeatLast) {
        goesOn = sendPiece(connection, m_script.pieces.back()) && rest();
    }
    if (m_script.finishSending) {
        (void)shutdown(connection, SHUT_WR);
    }
    while (goesOn && m_script.holdOpen) {
        goesOn = receive(connection);
    }
    if (m_script.reset) {
        const linger atOnce = {1, 0};
        (void)setsockopt(connection, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    }
}

void ListeningPeer::noteServed() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    ++m_served;
}

/// Waits for the script's pause; false when the thread has to end.
bool ListeningPeer::rest() const {
    pollfd wanted = {m_isStopping.get(), POLLIN, 0};
    return poll(&wanted, 1, static_cast<int>(m_script.pause.count())) == 0;
}

/// Adds what arrives to the latest record; false when nothing more will.
bool ListeningPeer::receive(int connection) {
    if (!isReadable(connection)) {
        return false;
    }
    char buffer[4096];
    const ssize_t length = recv(connection, buffer, sizeof buffer, 0);
    if (length <= 0) {
        return false;
    }
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_received.back().append(buffer, static_cast<std::size_t>(length));
    return true;
}

bool ListeningPeer::sendPiece(int connection, const std::string& piece) const {
    std::size_t sent = 0;
    while (sent < piece.size()) {
        const ssize_t length =
            send(connection, piece.data() + sent, piece.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (length < 0 && errno != EAGAIN) {
            return false;
        }
        sent += length > 0 ? static_cast<std::size_t>(length) : 0;
        if (length < 0 &&
            !waitUntil([this, connection]() { return hasArrived(connection) || isStopped(); })) {
            return false;
        }
        if (isStopped()) {
            return false;
        }
    }
    return waitUntil([this, connection]() { return hasArrived(connection) || isStopped(); });
}

} // namespace ZNORBTEST
