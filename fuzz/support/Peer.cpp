#include "fuzz/support/Peer.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace ZNORBFUZZ {

namespace {

/// The most that one character stands for.
std::size_t limitOf(char step, std::size_t size) {
    return step == 'A' ? size : static_cast<unsigned char>(step);
}

} // namespace

Peer::Peer(std::string receiving, std::string bytes, std::string sending)
    : m_receiving(std::move(receiving)), m_bytes(std::move(bytes)), m_sending(std::move(sending)) {}

char Peer::next() const {
    return m_step < m_receiving.size() ? m_receiving[m_step] : 'A';
}

int Peer::await() {
    ++m_waits;
    const char step = next();
    if (step != 'T' && step != 'F') {
        return 1;
    }
    ++m_step;
    errno = EINTR;
    return step == 'T' ? 0 : -1;
}

ssize_t Peer::receive(char* buffer, std::size_t size) {
    ++m_receives;
    const char step = next();
    ++m_step;
    if (step == 'C' || step == '\0') {
        return 0;
    }
    const std::size_t count = std::min({limitOf(step, size), size, m_bytes.size() - m_position});
    if (step == 'R' || count == 0) {
        errno = ECONNRESET;
        return -1;
    }
    std::copy_n(m_bytes.data() + m_position, count, buffer);
    m_position += count;
    return static_cast<ssize_t>(count);
}

ssize_t Peer::take(const char* data, std::size_t size) {
    const char step = m_sendStep < m_sending.size() ? m_sending[m_sendStep] : 'A';
    ++m_sendStep;
    if (step == 'E') {
        errno = EPIPE;
        return -1;
    }
    const std::size_t count = std::min(std::max<std::size_t>(limitOf(step, size), 1), size);
    m_taken.append(data, count);
    return static_cast<ssize_t>(count);
}

} // namespace ZNORBFUZZ
