#include "foundation/containers/Pair.h"

#include <gtest/gtest.h>

#include <string>

using Common::pair;

TEST(Pair, HoldsCopiesOfBothValues) {
    std::string key = "key";
    const pair<std::string, unsigned> entry(key, 7U);
    key = "changed";
    EXPECT_EQ(entry.first, "key");
    EXPECT_EQ(entry.second, 7U);
}

TEST(Pair, DefaultValuesAreZeroNullAndEmpty) {
    const pair<int*, unsigned> numbers;
    EXPECT_EQ(numbers.first, nullptr);
    EXPECT_EQ(numbers.second, 0U);
    const pair<std::string, bool> text;
    EXPECT_EQ(text.first, "");
    EXPECT_FALSE(text.second);
}

TEST(Pair, IsConvertibleWithAnEmptyText) {
    const pair<int, bool> result(1, true);
    const Common::Convertible& root = result;
    EXPECT_EQ(root.toString(), "");
}

TEST(Pair, CopiesAreIndependent) {
    const pair<std::string, std::string> original("a", "b");
    pair<std::string, std::string> copy = original;
    copy.second = "c";
    EXPECT_EQ(original.second, "b");
    copy = original;
    EXPECT_EQ(copy.second, "b");
}

TEST(Pair, TakesApartIntoItsTwoValues) {
    const auto [first, second] = pair<int, char>(3, 'x');
    EXPECT_EQ(first, 3);
    EXPECT_EQ(second, 'x');
}
