#include "fuzz/support/Input.h"

namespace ZNORBFUZZ {

std::string withRun(const std::string& text) {
    constexpr std::size_t longest = 10'000;
    const std::size_t mark = text.find('^');
    if (mark == std::string::npos) {
        return text;
    }
    std::size_t start = mark;
    while (start > 0 && text[start - 1] >= '0' && text[start - 1] <= '9') {
        --start;
    }
    std::size_t length = 0;
    for (std::size_t i = start; i < mark; ++i) {
        length = std::min(length * 10 + static_cast<std::size_t>(text[i] - '0'), longest);
    }
    return text.substr(0, start) + std::string(length, 'x') + text.substr(mark + 1);
}

} // namespace ZNORBFUZZ
