#include "foundation/containers/Less.h"

#include "tests/support/Rows.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

/// Two texts and whether the first is less than the second.
using Comparison = ZNORBTEST::Row<std::pair<std::string, std::string>, bool>;

class LessText : public testing::TestWithParam<Comparison> {};

TEST_P(LessText, ComparesByteByByte) {
    const auto& [left, right] = GetParam().given;
    EXPECT_EQ(Common::less<std::string>()(left, right), GetParam().expected);
}

const Comparison comparisons[] = {
    {"SmallerLastByte", {"abc", "abd"}, true},
    {"GreaterLastByte", {"abd", "abc"}, false},
    {"UpperCaseBeforeLowerCase", {"B", "a"}, true},
    {"UnsignedBytesAbove127", {"\x7f", "\x80"}, true},
    {"LargestByteIsNotNegative", {"\xff", "a"}, false},
    {"ShorterWhenTheRestIsEqual", {"ab", "abc"}, true},
    {"LongerWhenTheRestIsEqual", {"abc", "ab"}, false},
    {"EmptyBeforeAnyOther", {"", "a"}, true},
    {"FirstDifferenceCountsMoreThanALongerLength", {"abc", "b"}, true},
    {"FirstDifferenceCountsMoreThanAShorterLength", {"b", "abc"}, false},
    {"EqualTexts", {"abc", "abc"}, false},
    {"EmptyTexts", {"", ""}, false},
    {"DifferenceBehindAZeroByte", {{"a\0b", 3}, {"a\0c", 3}}, true},
    {"ZeroByteAsTheDifference", {"a", {"a\0", 2}}, true},
};

INSTANTIATE_TEST_SUITE_P(Less, LessText, testing::ValuesIn(comparisons), ZNORBTEST::rowName);

} // namespace

TEST(Less, ComparesNumbersByValue) {
    EXPECT_TRUE(Common::less<int>()(-1, 1));
    EXPECT_FALSE(Common::less<int>()(1, 1));
    EXPECT_FALSE(Common::less<int>()(2, 1));
}
