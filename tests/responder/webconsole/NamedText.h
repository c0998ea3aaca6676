#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace ZNORBTEST {

/// A test's parameter whose text is too long, or too odd, to be part of the test's name.
struct NamedText {
    std::string name; ///< letters and digits
    std::string text;
};

/// How GoogleTest shows it.
inline void PrintTo(const NamedText& value, std::ostream* stream) {
    *stream << value.name;
}

/// For INSTANTIATE_TEST_SUITE_P.
inline std::string nameOf(const testing::TestParamInfo<NamedText>& info) {
    return info.param.name;
}

} // namespace ZNORBTEST
