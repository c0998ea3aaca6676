#include "foundation/containers/Less.h"

#include <gtest/gtest.h>

#include <string>

namespace {

bool isLess(const std::string& left, const std::string& right) {
    return Common::less<std::string>()(left, right);
}

} // namespace

TEST(Less, ComparesStringsByteByByte) {
    EXPECT_TRUE(isLess("abc", "abd"));
    EXPECT_FALSE(isLess("abd", "abc"));
    EXPECT_TRUE(isLess("B", "a"));
}

TEST(Less, TakesBytesAsUnsignedCharacters) {
    EXPECT_TRUE(isLess("\x7f", "\x80"));
    EXPECT_FALSE(isLess("\xff", "a"));
}

TEST(Less, ShorterStringIsLessWhenTheRestIsEqual) {
    EXPECT_TRUE(isLess("ab", "abc"));
    EXPECT_FALSE(isLess("abc", "ab"));
    EXPECT_TRUE(isLess("", "a"));
}

TEST(Less, FirstDifferenceCountsMoreThanTheLength) {
    EXPECT_TRUE(isLess("abc", "b"));
    EXPECT_FALSE(isLess("b", "abc"));
}

TEST(Less, EqualStringsAreNotLess) {
    EXPECT_FALSE(isLess("abc", "abc"));
    EXPECT_FALSE(isLess("", ""));
}

TEST(Less, ComparesBehindZeroBytes) {
    EXPECT_TRUE(isLess(std::string("a\0b", 3), std::string("a\0c", 3)));
    EXPECT_TRUE(isLess(std::string("a"), std::string("a\0", 2)));
}

TEST(Less, ComparesNumbersByValue) {
    EXPECT_TRUE(Common::less<int>()(-1, 1));
    EXPECT_FALSE(Common::less<int>()(1, 1));
    EXPECT_FALSE(Common::less<int>()(2, 1));
}
