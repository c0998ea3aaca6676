#include "foundation/streams/OutputStreamToConsole.h"
#include "tests/common/log/LoggerFixture.h"
#include "tests/support/Matchers.h"
#include "tests/support/Rows.h"
#include "tests/support/SetClock.h"
#include "tests/support/Words.h"

#include <cstdlib>
#include <limits>

namespace {

using namespace ORBCOMMON;
using namespace ZNORBTEST;

/// A call of the Logger and the message of its record.
using Call = Row<void (*)(), std::string>;

class LoggedMessage : public RecordedLogger, public testing::WithParamInterface<Call> {};

TEST_P(LoggedMessage, AndThenTheLineEndAreTheTwoWritesOfARecord) {
    GetParam().given();
    EXPECT_THAT(writes, ElementsAre(GetParam().expected, "\r\n"));
}

const std::string longestMessage(8191, 'm');
const std::string longText(100000, 't');

const Call calls[] = {
    {"WithoutArguments", [] { Logger::log("message"); }, "message"},
    {"LogFormats", [] { Logger::log("Entry: %2d, ID: %s", 3, "abc"); }, "Entry:  3, ID: abc"},
    {"LogAtFormats", [] { Logger::logAt(0, "Error. Code: %d", 104); }, "Error. Code: 104"},
    {"VlogFormatsAnArgumentList", [] { logList(0, "%s=%u", "length", 58U); }, "length=58"},
    {"WithALineFeedOfItsOwn", [] { Logger::log("line\n"); }, "line\n"},
    {"Empty", [] { Logger::log("%s", ""); }, ""},
    {"TextOfWriteLineIsNoFormat", [] { Logger::writeLine(0, "100%s %n %d %%"); }, "100%s %n %d %%"},
    {"ArgumentIsNoFormat", [] { Logger::log("%s", "%s %n"); }, "%s %n"},
    {"Of8191BytesIsWhole", [] { Logger::log("%s", longestMessage.c_str()); }, longestMessage},
    {"OfOneByteMoreIsCut", [] { Logger::log("%sx", longestMessage.c_str()); }, longestMessage},
    {"OfTwoBytesMoreIsCut", [] { Logger::log("%sxy", longestMessage.c_str()); }, longestMessage},
    {"OfAnyMoreIsCut", [] { Logger::log("%s%s", longestMessage.c_str(), longText.c_str()); }, longestMessage},
    {"WriteLineCutsNothing", [] { Logger::writeLine(0, longText.c_str()); }, longText},
};

INSTANTIATE_TEST_SUITE_P(Logger, LoggedMessage, testing::ValuesIn(calls), rowName);

TEST_F(RecordedLogger, VlogLooksAtTheLevel) {
    logList(1, "%s", "too verbose");
    EXPECT_THAT(writes, IsEmpty());
}

TEST_F(LoggerTest, ConsoleStreamPrintsExactlyTheMessageAndTheLineEnd) {
    Logger::addOutputStream(StreamPointer(new Common::OutputStreamToConsole));
    testing::internal::CaptureStdout();
    Logger::log("Press: q, then Enter to exit.");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Press: q, then Enter to exit.\r\n");
}

// The C locale has no bytes for the wide character, so the formatter gives up halfway.
TEST_F(RecordedLogger, MessageThatCannotBeFormattedIsStillATerminatedRecord) {
    const wchar_t unknown[] = {L'\x20AC', L'\0'};
    Logger::log("price: %ls", unknown);
    ASSERT_EQ(writes.size(), 2U);
    EXPECT_EQ(writes[0].substr(0, 7), "price: ");
    EXPECT_EQ(writes[1], "\r\n");
}

// --- Time stamps

TEST_F(RecordedLogger, StampedRecordIsFiveWritesWithTheLocalTime) {
    const SetClock clock(billionthSecond);
    Logger::setShowTimestamp(true);
    setZone("UTC");
    Logger::log("message");
    EXPECT_THAT(writes, ElementsAre("[", "Sun Sep  9 01:46:40 2001", "] ", "message", "\r\n"));
    writes.clear();
    setZone("XYZ-2");
    Logger::log("message");
    EXPECT_EQ(joined(writes), "[Sun Sep  9 03:46:40 2001] message\r\n");
}

TEST_F(RecordedLogger, StampIsThePresentTime) {
    Logger::setShowTimestamp(true);
    const std::time_t before = std::time(nullptr);
    Logger::log("message");
    const std::time_t after = std::time(nullptr);
    ASSERT_EQ(writes.size(), 5U);
    std::tm parts{};
    ASSERT_NE(strptime(writes[1].c_str(), "%a %b %d %H:%M:%S %Y", &parts), nullptr) << writes[1];
    parts.tm_isdst = -1;
    EXPECT_GE(std::mktime(&parts), before);
    EXPECT_LE(std::mktime(&parts), after);
}

TEST_F(LoggerTest, ClockIsReadOncePerRecordAndNotPerStream) {
    setZone("UTC");
    addRecorder("A");
    addRecorder("B");
    Logger::setShowTimestamp(true);
    const SetClock clock(billionthSecond, 1);
    Logger::log("x");
    EXPECT_EQ(clock.reads(), 1);
    EXPECT_THAT(writes, ElementsAre("A[", "ASun Sep  9 01:46:40 2001", "A] ", "Ax", "A\r\n", "B[",
                                    "BSun Sep  9 01:46:40 2001", "B] ", "Bx", "B\r\n"));
    Logger::log("y");
    EXPECT_EQ(writes[11], "ASun Sep  9 01:46:41 2001") << "and read anew for the next record";
}

TEST_F(RecordedLogger, ClockIsNotReadForARecordWithoutAStamp) {
    const SetClock clock(billionthSecond);
    Logger::log("message");
    Logger::hexDump(0, "AB", 2);
    EXPECT_EQ(clock.reads(), 0);
}

TEST_F(RecordedLogger, StampsCanBeTurnedOffAgain) {
    Logger::setShowTimestamp(true);
    Logger::setShowTimestamp(false);
    Logger::log("message");
    EXPECT_THAT(writes, ElementsAre("message", "\r\n"));
}

TEST_F(LoggerTest, EveryLineOfADumpIsStamped) {
    setZone("UTC");
    addRecorder();
    Logger::setShowTimestamp(true);
    const SetClock clock(billionthSecond, 1);
    Logger::hexDump(0, "A", 1);
    ASSERT_EQ(writes.size(), 15U);
    EXPECT_EQ(writes[1], "Sun Sep  9 01:46:40 2001");
    EXPECT_EQ(writes[6], "Sun Sep  9 01:46:41 2001");
    EXPECT_EQ(writes[11], "Sun Sep  9 01:46:42 2001");
}

TEST_F(RecordedLogger, TimeWithoutATextGivesAnEmptyStamp) {
    Logger::setShowTimestamp(true);
    const SetClock clock(std::time_t{1} << 55, 1);
    Logger::log("message");
    EXPECT_THAT(writes, ElementsAre("[", "", "] ", "message", "\r\n"));
}

TEST_F(LoggerTest, TimeTextHas24CharactersAndNoNewlineAndFollowsAChangedZone) {
    char text[ORBCOMMON::logTimeSize];
    ASSERT_EQ(setenv("TZ", "UTC", 1), 0);
    EXPECT_EQ(formatLogTime(0, text), 24U);
    EXPECT_STREQ(text, "Thu Jan  1 00:00:00 1970");
    ASSERT_EQ(setenv("TZ", "XYZ-5", 1), 0);
    EXPECT_EQ(formatLogTime(0, text), 24U);
    EXPECT_STREQ(text, "Thu Jan  1 05:00:00 1970");
}

TEST_F(LoggerTest, YearOfFiveDigitsHasNoTimeText) {
    setZone("UTC");
    char text[ORBCOMMON::logTimeSize];
    EXPECT_EQ(formatLogTime(253402300799, text), 24U);
    EXPECT_STREQ(text, "Fri Dec 31 23:59:59 9999");
    EXPECT_EQ(formatLogTime(253402300800, text), 0U);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(formatLogTime(std::numeric_limits<std::time_t>::max(), text), 0U);
    EXPECT_STREQ(text, "");
}

// --- Dumps

// The lines of a dump below the header and the rule, without their line ends.
Writes rowsOf(const Writes& writes) {
    Writes rows;
    for (std::size_t i = 4; i < writes.size(); i += 2) {
        rows.push_back(writes[i]);
    }
    return rows;
}

/// Bytes and the rows of their dump.
using Dump = Row<std::string, Writes>;

class LoggedDump : public RecordedLogger, public testing::WithParamInterface<Dump> {};

TEST_P(LoggedDump, IsHeaderRuleAndRowsInRecordsOfTheirOwn) {
    Logger::hexDump(0, GetParam().given.data(), static_cast<unsigned int>(GetParam().given.size()));
    Writes expected = {dumpHeader.substr(0, 71), "\r\n", dumpRule.substr(0, 71), "\r\n"};
    for (const std::string& row : GetParam().expected) {
        expected.insert(expected.end(), {row, "\r\n"});
    }
    EXPECT_EQ(writes, expected);
}

const std::string fullRow = " 000  30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 0123456789abcdef";

const Dump dumps[] = {
    {"OfNoBytes", "", {}},
    {"OfTwoBytes", "AB", {" 000  41 42 " + std::string(42, ' ') + "AB"}},
    {"OfSixteenBytes", "0123456789abcdef", {fullRow}},
    {"OfSeventeenBytes", "0123456789abcdefg", {fullRow, " 010  67 " + std::string(45, ' ') + "g"}},
    {"OfPercentSigns", "%s%n%d%%", {" 000  25 73 25 6E 25 64 25 25 " + std::string(24, ' ') + "%s%n%d%%"}},
};

INSTANTIATE_TEST_SUITE_P(Logger, LoggedDump, testing::ValuesIn(dumps), rowName);

TEST_F(RecordedLogger, DumpOfNoBytesNeedsNone) {
    Logger::hexDump(0, nullptr, 0);
    EXPECT_EQ(joined(writes), dumpHeader + dumpRule);
}

TEST_F(RecordedLogger, DumpShowsUnprintableBytesAsDots) {
    const std::string bytes = allBytes();
    Logger::hexDump(0, bytes.data(), 256);
    std::string characters;
    for (const std::string& row : rowsOf(writes)) {
        characters += row.substr(54);
    }
    EXPECT_EQ(characters, std::string(32, '.') + bytes.substr(0x20, 0x5f) + std::string(129, '.'));
}

TEST_F(RecordedLogger, DumpRowsFromOffset1000LoseTheirLastSpaceAndFrom10000TheirLastDigitToo) {
    const std::string bytes(0x10011, 'Z');
    Logger::hexDump(0, bytes.data(), 0x10011);
    const Writes rows = rowsOf(writes);
    ASSERT_EQ(rows.size(), 0x1002U);
    EXPECT_EQ(rows[0xff], " FF0  5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A ZZZZZZZZZZZZZZZZ");
    EXPECT_EQ(rows[0x100], " 1000  5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5AZZZZZZZZZZZZZZZZ");
    EXPECT_EQ(rows[0xfff], " FFF0  5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5AZZZZZZZZZZZZZZZZ");
    EXPECT_EQ(rows[0x1000], " 10000  5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5ZZZZZZZZZZZZZZZZ");
    EXPECT_EQ(rows[0x1001], " 10010  5A " + std::string(43, ' ') + "Z");
}

TEST_F(RecordedLogger, DumpOfEveryLengthIsRightByteForByte) {
    std::string bytes;
    for (unsigned int length = 0; length <= 100; ++length) {
        writes.clear();
        Logger::hexDump(0, bytes.data(), length);
        Writes expected;
        for (std::size_t offset = 0; offset < length; offset += 16) {
            expected.push_back(expectedRow(bytes, offset));
        }
        EXPECT_THAT(rowsOf(writes), ElementsAreArray(expected)) << length;
        bytes += static_cast<char>(length * 37 + 11);
    }
}

} // namespace
