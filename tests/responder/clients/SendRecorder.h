#pragma once

#include "tests/support/StandIns.h"

#include <sys/socket.h>

#include <cstddef>
#include <vector>

namespace ZNORBTEST {

/// Watches and steers the calls of `send` on the thread that makes it, which no peer can see one by one.
/// Other threads send undisturbed.
class SendRecorder {
public:
    struct Call {
        std::size_t length; ///< bytes handed over
        int flags;
    };

    SendRecorder();

    /// Lets the call with this number, the first being 0, fail with the error, sending nothing.
    void failCall(std::size_t number, int error);

    /// Lets the call with this number send at most `length` bytes.
    void shortenCall(std::size_t number, std::size_t length);

    /// The calls made since the recorder was made.
    [[nodiscard]] const std::vector<Call>& calls() const { return m_calls; }
    [[nodiscard]] std::vector<std::size_t> lengths() const;

private:
    long send(int descriptor, const void* bytes, std::size_t length, int flags);

    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    std::vector<Call> m_calls;
    std::size_t m_failing = none;
    std::size_t m_shortened = none;
    std::size_t m_shortLength = 0;
    int m_error = 0;
    const InPlaceOf<::send> m_sends;
};

} // namespace ZNORBTEST
