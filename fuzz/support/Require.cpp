#include "fuzz/support/Require.h"

#include <cstdio>
#include <cstdlib>

namespace ZNORBFUZZ {

std::string describe(std::string_view value) {
    std::string text = std::to_string(value.size()) + " bytes \"";
    for (const char character : value) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x20 && byte <= 0x7E && byte != '\\' && byte != '"') {
            text += character;
        } else {
            char escaped[5] = {};
            (void)std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
            text += escaped;
        }
    }
    return text + '"';
}

std::string describe(const std::string& value) {
    return describe(std::string_view(value));
}

std::string describe(const char* value) {
    return describe(std::string_view(value));
}

std::string describe(const std::vector<std::string>& values) {
    std::string text = std::to_string(values.size()) + " texts";
    for (const std::string& value : values) {
        text += "\n    " + describe(value);
    }
    return text;
}

std::string describe(const std::vector<unsigned>& values) {
    std::string text = std::to_string(values.size()) + " numbers";
    for (const unsigned value : values) {
        text += ' ' + std::to_string(value);
    }
    return text;
}

std::string describe(bool value) {
    return value ? "true" : "false";
}

std::string describe(int value) {
    return std::to_string(value);
}

std::string describe(unsigned value) {
    return std::to_string(value);
}

std::string describe(unsigned long value) {
    return std::to_string(value);
}

void reportFinding(const std::string& finding) {
    (void)std::fprintf(stderr, "finding: %s\n", finding.c_str());
    std::abort();
}

} // namespace ZNORBFUZZ
