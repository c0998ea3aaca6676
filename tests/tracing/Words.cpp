#include "tests/tracing/Words.h"

namespace ZNORBTRACING {

std::vector<std::string> splitAt(char separator, const std::string& text) {
    std::vector<std::string> parts(1);
    for (const char character : text) {
        if (character == separator) {
            parts.emplace_back();
        } else {
            parts.back() += character;
        }
    }
    return parts;
}

std::string joined(const std::vector<std::string>& parts, const std::string& separator) {
    std::string text;
    for (const std::string& part : parts) {
        text += (text.empty() ? "" : separator) + part;
    }
    return text;
}

} // namespace ZNORBTRACING
