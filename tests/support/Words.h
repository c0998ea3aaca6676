#pragma once

#include <string>
#include <vector>

namespace ZNORBTEST {

/// The parts of a text that end with the separator, without it; what is behind the last one is no part.
std::vector<std::string> partsOf(const std::string& text, const std::string& separator);

/// The words of a "/proc/<pid>/cmdline" or "environ".
inline std::vector<std::string> wordsOf(const std::string& text) {
    return partsOf(text, {'\0'});
}

/// Bytes that are in their places only if none before them is missing.
std::string pattern(std::size_t length);

/// Every byte there is, NUL, newlines and carriage returns among them.
std::string allBytes();

} // namespace ZNORBTEST
