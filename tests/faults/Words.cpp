#include "tests/faults/Words.h"

namespace ZNORBFAULTS {

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

} // namespace ZNORBFAULTS
