#pragma once

#include <cstddef>
#include <vector>

namespace ZNORBTEST {

/// Watches and steers the calls of `send` in this program, which no peer can see one by one. Linked into a
/// program, it puts a `send` of its own before the C library's, which sends as it is told while no recorder
/// lives.
///
/// One recorder at a time, on the thread that sends.
class SendRecorder {
public:
    struct Call {
        std::size_t length; ///< bytes handed over
        int flags;
    };

    SendRecorder();
    ~SendRecorder();
    SendRecorder(const SendRecorder&) = delete;
    SendRecorder& operator=(const SendRecorder&) = delete;

    /// Lets the call with this number, the first being 0, fail with the error, sending nothing.
    void failCall(std::size_t number, int error);

    /// Lets the call with this number send at most `length` bytes.
    void shortenCall(std::size_t number, std::size_t length);

    /// The calls made since the recorder was made.
    [[nodiscard]] const std::vector<Call>& calls() const { return m_calls; }
    [[nodiscard]] std::vector<std::size_t> lengths() const;

    /// What `send` of this program does while this recorder lives; returns as `send` does.
    long send(int descriptor, const void* bytes, std::size_t length, int flags);

private:
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    std::vector<Call> m_calls;
    std::size_t m_failing = none;
    std::size_t m_shortened = none;
    std::size_t m_shortLength = 0;
    int m_error = 0;
};

} // namespace ZNORBTEST
