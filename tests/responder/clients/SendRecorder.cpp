#include "tests/responder/clients/SendRecorder.h"

#include <algorithm>
#include <cerrno>
#include <thread>

namespace ZNORBTEST {

SendRecorder::SendRecorder()
    : m_sends([this, thread = std::this_thread::get_id()](int descriptor, const void* bytes,
                                                          std::size_t length, int flags) {
          return std::this_thread::get_id() == thread ? send(descriptor, bytes, length, flags)
                                                      : ::send(descriptor, bytes, length, flags);
      }) {}

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
    return ::send(descriptor, bytes, taken, flags);
}

} // namespace ZNORBTEST
