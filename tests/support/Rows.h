#pragma once

#include <ostream>
#include <string>

namespace ZNORBTEST {

/// A row of a table: what is given, and what must come of it.
template <typename Given, typename Expected>
struct Row {
    const char* name; ///< letters and digits: the name of the row's test
    Given given;
    Expected expected;
};

/// How GoogleTest shows it.
template <typename Given, typename Expected>
void PrintTo(const Row<Given, Expected>& row, std::ostream* stream) {
    *stream << row.name;
}

/// A test's parameter whose text is too long, or too odd, to be part of the test's name.
struct NamedText {
    const char* name; ///< letters and digits
    std::string text;

    friend void PrintTo(const NamedText& value, std::ostream* stream) { *stream << value.name; }
};

/// For INSTANTIATE_TEST_SUITE_P over rows with a name.
inline constexpr auto rowName = [](const auto& info) { return std::string(info.param.name); };

} // namespace ZNORBTEST
