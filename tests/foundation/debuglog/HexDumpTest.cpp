#include "foundation/debuglog/HexDump.h"

#include "tests/foundation/containers/Allocations.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

using Common::buildHexDumpRow;
using Common::hexDumpHeader;
using Common::hexDumpRowCapacity;
using Common::hexDumpRule;

namespace {

using HexDumpAllocations = ZNORBTEST::AllocationTest;

const std::string letters = "ABCDEFGHIJKLMNOP";
const std::string digitsOfLetters = "41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F 50 ";

std::string rowOf(std::uint32_t offset, const std::string& bytes) {
    struct {
        char row[hexDumpRowCapacity];
        char behind;
    } target;
    std::memset(&target, '#', sizeof(target));
    buildHexDumpRow(target.row, offset, bytes.data(), bytes.size());
    EXPECT_EQ(target.behind, '#');
    EXPECT_NE(std::memchr(target.row, '\0', sizeof(target.row)), nullptr);
    return target.row;
}

} // namespace

TEST(HexDump, HeaderNumbersTheColumns) {
    EXPECT_STREQ(hexDumpHeader, "      00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 0123456789ABCDEF");
    EXPECT_EQ(std::strlen(hexDumpHeader), 70U);
}

TEST(HexDump, RuleIsSixSpacesAndSixtyFourHyphens) {
    EXPECT_EQ(hexDumpRule, std::string(6, ' ') + std::string(64, '-'));
}

TEST(HexDump, AFullRowHasOffsetDigitsAndCharacters) {
    EXPECT_EQ(rowOf(0, letters), " 000  " + digitsOfLetters + letters);
    EXPECT_EQ(rowOf(0, letters).size(), 70U);
}

TEST(HexDump, AShortRowIsPaddedToTheColumnOfTheCharacters) {
    EXPECT_EQ(rowOf(0, "AB"), " 000  41 42 " + std::string(42, ' ') + "AB");
    EXPECT_EQ(rowOf(0x10, "Q"), " 010  51 " + std::string(45, ' ') + "Q");
}

TEST(HexDump, EveryNumberOfBytesPutsTheCharactersIntoColumn54) {
    for (std::size_t count = 1; count <= 16; ++count) {
        const std::string row = rowOf(0, letters.substr(0, count));
        EXPECT_EQ(row.size(), 54 + count);
        EXPECT_EQ(row.substr(54), letters.substr(0, count));
        EXPECT_EQ(row.substr(0, 6 + 3 * count), " 000  " + digitsOfLetters.substr(0, 3 * count));
        EXPECT_EQ(row.find_first_not_of(' ', 6 + 3 * count), 54U);
    }
}

TEST(HexDump, ARowOfNoBytesIsTheOffsetAlone) {
    EXPECT_EQ(rowOf(0, ""), " 000  " + std::string(48, ' '));
}

TEST(HexDump, ARowTakesNoMoreThanSixteenBytes) {
    EXPECT_EQ(rowOf(0, letters + "more"), rowOf(0, letters));
}

TEST(HexDump, OffsetsHaveAtLeastThreeUpperCaseDigits) {
    EXPECT_EQ(rowOf(0x20, letters), " 020  " + digitsOfLetters + letters);
    EXPECT_EQ(rowOf(0xABC, letters), " ABC  " + digitsOfLetters + letters);
    EXPECT_EQ(rowOf(0xFF0, letters), " FF0  " + digitsOfLetters + letters);
}

TEST(HexDump, FromOffset0x1000TheCutTakesTheLastSpace) {
    EXPECT_EQ(rowOf(0x1000, letters), " 1000  " + digitsOfLetters.substr(0, 47) + letters);
    EXPECT_EQ(rowOf(0xFFF0, letters), " FFF0  " + digitsOfLetters.substr(0, 47) + letters);
}

TEST(HexDump, FromOffset0x10000TheCutTakesTheLastDigitOfTheSixteenthByte) {
    EXPECT_EQ(rowOf(0x10000, letters), " 10000  " + digitsOfLetters.substr(0, 46) + letters);
    EXPECT_EQ(rowOf(0x10000, letters).substr(50, 8), "4F 5ABCD");
}

TEST(HexDump, FromOffset0x100000TheCutTakesTheWholeSixteenthByte) {
    EXPECT_EQ(rowOf(0x100000, letters), " 100000  " + digitsOfLetters.substr(0, 45) + letters);
}

TEST(HexDump, TheLargestOffsetKeepsTheColumnToo) {
    EXPECT_EQ(rowOf(0xFFFFFFF0U, letters), " FFFFFFF0  " + digitsOfLetters.substr(0, 43) + letters);
}

TEST(HexDump, AShortRowBehindOffset0x1000LosesNoByte) {
    EXPECT_EQ(rowOf(0x1000, "AB"), " 1000  41 42 " + std::string(41, ' ') + "AB");
    EXPECT_EQ(rowOf(0x10000, letters.substr(0, 15)),
              " 10000  " + digitsOfLetters.substr(0, 45) + " " + letters.substr(0, 15));
}

TEST(HexDump, BytesThatDoNotPrintShowAsDots) {
    EXPECT_EQ(rowOf(0, std::string("\0\x1F\x7F\x80\xFF\n", 6)),
              " 000  00 1F 7F 80 FF 0A " + std::string(30, ' ') + "......");
}

TEST(HexDump, EveryByteShowsItsDigitsAndItselfOrADot) {
    for (int value = 0; value < 256; ++value) {
        char digits[4];
        (void)std::snprintf(digits, sizeof(digits), "%02X ", static_cast<unsigned int>(value));
        const char shown = value >= 0x20 && value <= 0x7E ? static_cast<char>(value) : '.';
        const std::string row = rowOf(0, std::string(1, static_cast<char>(value)));
        EXPECT_EQ(row, std::string(" 000  ") + digits + std::string(45, ' ') + shown) << value;
    }
}

TEST(HexDump, APercentSignShowsAsItself) {
    EXPECT_EQ(rowOf(0, "%s"), " 000  25 73 " + std::string(42, ' ') + "%s");
}

TEST_F(HexDumpAllocations, ARowHasNone) {
    char row[hexDumpRowCapacity];
    const ZNORBTEST::AllocationWatch watch;
    buildHexDumpRow(row, 0, letters.data(), letters.size());
    EXPECT_EQ(watch.allocations(), 0);
}
