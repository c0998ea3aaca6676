#include "tests/responder/clients/SendRecorder.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace ZNORBTEST {
namespace {

/// Each thread has its own, so that other threads send undisturbed.
thread_local SendRecorder* s_current = nullptr;

} // namespace

SendRecorder::SendRecorder() {
    s_current = this;
}

SendRecorder::~SendRecorder() {
    s_current = nullptr;
}

void SendRecorder::failCall(std::size_t number, int error) {
    m_failing = number;
    m_error = error;
}

void SendRecorder::shortenCall(std::size_t number, std::size_t length) {
    m_shortened = number;
    m_shortLength = length;
}

std::vector<std::size_t> SendRecorder::lengths() const {
    std::vector<std::size_t> result;
    for (const Call& call : m_calls) {
        result.push_back(call.length);
    }
    return result;
}

long SendRecorder::send(int descriptor, const void* bytes, std::size_t length, int flags) {
    const std::size_t number = m_calls.size();
    m_calls.push_back({length, flags});
    if (number == m_failing) {
        errno = m_error;
        return -1;
    }
    const std::size_t taken = number == m_shortened ? std::min(length, m_shortLength) : length;
    return sendto(descriptor, bytes, taken, flags, nullptr, 0);
}

} // namespace ZNORBTEST

extern "C" ssize_t send(int fd, const void* buf, size_t n, int flags) {
    ZNORBTEST::SendRecorder* const recorder = ZNORBTEST::s_current;
    return recorder != nullptr ? recorder->send(fd, buf, n, flags) : sendto(fd, buf, n, flags, nullptr, 0);
}
