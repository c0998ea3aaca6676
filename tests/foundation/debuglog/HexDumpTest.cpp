#include "foundation/debuglog/HexDump.h"

#include "tests/support/Allocations.h"
#include "tests/support/Rows.h"

#include <cstdio>
#include <cstring>

using namespace Common;

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

/// Bytes at an offset and the row that they make.
struct DumpRow {
    const char* name;
    std::uint32_t offset;
    std::string bytes;
    std::string text;

    friend void PrintTo(const DumpRow& row, std::ostream* stream) { *stream << row.name; }
};

class HexDumpRow : public testing::TestWithParam<DumpRow> {};

TEST_P(HexDumpRow, HasOffsetDigitsAndCharacters) {
    EXPECT_EQ(rowOf(GetParam().offset, GetParam().bytes), GetParam().text);
}

std::string spaces(std::size_t count) {
    return std::string(count, ' ');
}

/// The digits of the letters, as far as the row has room for them.
std::string digits(std::size_t count) {
    return digitsOfLetters.substr(0, count);
}

const DumpRow dumpRows[] = {
    {"OfSixteenBytesIsFull", 0, letters, " 000  " + digitsOfLetters + letters},
    {"OfTwoBytesIsPadded", 0, "AB", " 000  41 42 " + spaces(42) + "AB"},
    {"OfOneByteIsPadded", 0x10, "Q", " 010  51 " + spaces(45) + "Q"},
    {"OfNoBytesIsTheOffsetAlone", 0, "", " 000  " + spaces(48)},
    {"TakesNoMoreThanSixteenBytes", 0, letters + "more", " 000  " + digitsOfLetters + letters},
    {"OffsetHasAtLeastThreeDigits", 0x20, letters, " 020  " + digitsOfLetters + letters},
    {"OffsetHasUpperCaseDigits", 0xABC, letters, " ABC  " + digitsOfLetters + letters},
    {"LastOffsetOfThreeDigits", 0xFF0, letters, " FF0  " + digitsOfLetters + letters},
    {"From0x1000TheCutTakesTheLastSpace", 0x1000, letters, " 1000  " + digits(47) + letters},
    {"LastOffsetOfFourDigits", 0xFFF0, letters, " FFF0  " + digits(47) + letters},
    {"From0x10000TheCutTakesTheLastDigit", 0x10000, letters, " 10000  " + digits(46) + letters},
    {"From0x100000TheCutTakesTheLastByte", 0x100000, letters, " 100000  " + digits(45) + letters},
    {"LargestOffsetKeepsTheColumn", 0xFFFFFFF0U, letters, " FFFFFFF0  " + digits(43) + letters},
    {"ShortRowBehind0x1000LosesNoByte", 0x1000, "AB", " 1000  41 42 " + spaces(41) + "AB"},
    {"FifteenBytesBehind0x10000LoseNoByte", 0x10000, letters.substr(0, 15),
     " 10000  " + digits(45) + " " + letters.substr(0, 15)},
    {"BytesThatDoNotPrintShowAsDots",
     0,
     {"\0\x1F\x7F\x80\xFF\n", 6},
     " 000  00 1F 7F 80 FF 0A " + spaces(30) + "......"},
    {"PercentSignShowsAsItself", 0, "%s", " 000  25 73 " + spaces(42) + "%s"},
};

INSTANTIATE_TEST_SUITE_P(HexDump, HexDumpRow, testing::ValuesIn(dumpRows), ZNORBTEST::rowName);

} // namespace

TEST(HexDump, HeaderNumbersTheColumns) {
    EXPECT_STREQ(hexDumpHeader, "      00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 0123456789ABCDEF");
    EXPECT_EQ(std::strlen(hexDumpHeader), 70U);
}

TEST(HexDump, RuleIsSixSpacesAndSixtyFourHyphens) {
    EXPECT_EQ(hexDumpRule, std::string(6, ' ') + std::string(64, '-'));
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

TEST(HexDump, EveryByteShowsItsDigitsAndItselfOrADot) {
    for (int value = 0; value < 256; ++value) {
        char digits[4];
        (void)std::snprintf(digits, sizeof(digits), "%02X ", static_cast<unsigned int>(value));
        const char shown = value >= 0x20 && value <= 0x7E ? static_cast<char>(value) : '.';
        const std::string row = rowOf(0, std::string(1, static_cast<char>(value)));
        EXPECT_EQ(row, std::string(" 000  ") + digits + std::string(45, ' ') + shown) << value;
    }
}

TEST_F(HexDumpAllocations, ARowHasNone) {
    char row[hexDumpRowCapacity];
    const ZNORBTEST::AllocationWatch watch;
    buildHexDumpRow(row, 0, letters.data(), letters.size());
    EXPECT_EQ(watch.allocations(), 0);
}
