#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The properties that a target asserts. One that does not hold is printed and ends the process, which is a
/// finding: libFuzzer keeps the input.
namespace ZNORBFUZZ {

/// The value as a report shows it: texts with everything but printable ASCII escaped.
std::string describe(std::string_view value);
std::string describe(const std::string& value);
std::string describe(const char* value);
std::string describe(const std::vector<std::string>& values);
std::string describe(const std::vector<unsigned>& values);
std::string describe(bool value);
std::string describe(int value);
std::string describe(unsigned value);
std::string describe(unsigned long value);

[[noreturn]] void reportFinding(const std::string& finding);

inline void require(bool holds, const char* property) {
    if (!holds) {
        reportFinding(property);
    }
}

template <typename Actual, typename Expected>
void requireEqual(const Actual& actual, const Expected& expected, const char* what) {
    if (!(actual == expected)) {
        reportFinding(std::string(what) + "\n  is       " + describe(actual) + "\n  expected " +
                      describe(expected));
    }
}

} // namespace ZNORBFUZZ
