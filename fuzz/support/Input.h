#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace ZNORBFUZZ {

/// The fuzzer's bytes, taken from the front. What is taken beyond their end is zero or empty.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : m_left(reinterpret_cast<const char*>(data), size) {}

    [[nodiscard]] bool isEmpty() const { return m_left.empty(); }

    std::uint8_t byte() {
        const std::string_view taken = take(1);
        return taken.empty() ? 0 : static_cast<std::uint8_t>(taken.front());
    }

    /// Two and four bytes, the lowest first.
    std::uint16_t word() {
        const unsigned low = byte();
        return static_cast<std::uint16_t>(low | static_cast<unsigned>(byte()) << 8U);
    }
    std::uint32_t doubleWord() {
        const std::uint32_t low = word();
        return low | static_cast<std::uint32_t>(word()) << 16U;
    }

    /// As many bytes as there are, at most `count`.
    std::string_view take(std::size_t count) {
        const std::string_view taken = m_left.substr(0, count);
        m_left.remove_prefix(taken.size());
        return taken;
    }

    /// Everything up to the next line feed, which is dropped, or to the end.
    std::string line() {
        const std::string_view taken = take(std::min(m_left.find('\n'), m_left.size()));
        (void)take(1);
        return std::string(taken);
    }

    std::string rest() { return std::string(take(m_left.size())); }

private:
    std::string_view m_left;
};

/// The text with its first "^" and the number in front of it replaced by that many "x", at most 10,000: so
/// short inputs reach the limits of long buffers.
std::string withRun(const std::string& text);

} // namespace ZNORBFUZZ
