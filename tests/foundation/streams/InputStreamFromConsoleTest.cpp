#include "foundation/streams/InputStreamFromConsole.h"

#include "tests/foundation/streams/Reads.h"
#include "tests/support/Allocations.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

using namespace Common;
using namespace ZNORBTEST;

namespace {

/// The process's standard input is what a test makes it, and "/dev/null" afterwards.
class InputStreamFromConsoleTest : public testing::Test {
protected:
    void TearDown() override { redirectTo("/dev/null"); }

    static void redirectTo(const std::string& path) {
        ASSERT_NE(std::freopen(path.c_str(), "rb", stdin), nullptr);
    }

    void inputIs(const std::string& content) {
        writeFile(m_folder / "input", content);
        redirectTo(m_folder / "input");
    }

    /// Standard input becomes a pipe that holds the content and has no writer any more.
    static void pipedInputIs(const std::string& content) {
        int ends[2] = {-1, -1};
        ASSERT_EQ(pipe(ends), 0);
        ASSERT_EQ(write(ends[1], content.data(), content.size()), static_cast<ssize_t>(content.size()));
        redirectTo("/proc/self/fd/" + std::to_string(ends[0]));
        ASSERT_EQ(close(ends[0]), 0);
        ASSERT_EQ(close(ends[1]), 0);
    }

    TemporaryFolder m_folder;
    InputStreamFromConsole m_stream;
};

class ReadsOfTheConsole : public InputStreamFromConsoleTest, public testing::WithParamInterface<Reading> {};

TEST_P(ReadsOfTheConsole, GiveTheirParts) {
    EXPECT_TRUE(m_stream.isOpen());
    inputIs(GetParam().given);
    expectReads(m_stream, GetParam().expected);
    EXPECT_TRUE(m_stream.isOpen()) << "always";
}

const Reading readings[] = {
    {"EndIsKnownOnceItIsMet", "a", {notAtEnd, character("a"), notAtEnd, character("\xFF"), atEnd}},
    {"CharactersAreBytesOfAnyValue",
     {"\0\xFF\n", 3},
     {character({'\0'}), character("\xFF"), character("\n"), notAtEnd}},
    {"CharacterAtTheEndIs0xFF", "", {character("\xFF"), character("\xFF")}},
    {"LinesEndAtLineFeedsAndDropEveryCarriageReturn", "a\rb\r\n\n\rc\n", {line("ab"), line(""), line("c")}},
    {"LineCutShortByTheEndHasTheReads0xFF", "a\nbc", {line("a"), line("bc\xFF"), atEnd, line(unchanged)}},
    {"ReadThatMeetsTheEndEmptiesItsString", "a\n", {line("a"), notAtEnd, line(""), atEnd, line(unchanged)}},
    {"A0xFFInALineDoesNotEndIt", "a\xFF-b\n", {line("a\xFF-b")}},
    {"AllGivesTheRestAndMeetsNoEnd", {"a\nb\0c\n", 6}, {line("a"), all({"b\0c\n", 4}), notAtEnd, all("")}},
    {"AllAtTheEndLeavesItsStringUnchanged", "", {character("\xFF"), all(unchanged)}},
};

INSTANTIATE_TEST_SUITE_P(InputStreamFromConsole, ReadsOfTheConsole, testing::ValuesIn(readings), rowName);

} // namespace

TEST_F(InputStreamFromConsoleTest, ALineBeyondTheMemoryEndsEarlyAndTheNextReadGoesOn) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be made to fail here";
    inputIs("x" + std::string(100000, 'l') + "\nnext");
    EXPECT_EQ(characterOf(m_stream), "x"); // stdio has its own buffer from here on
    std::string out;
    {
        const FailingAllocation fault(3);
        m_stream.getLine(out);
    }
    EXPECT_LT(out.size(), 100000U);
    EXPECT_EQ(out, std::string(out.size(), 'l'));
    EXPECT_GT(out.size(), 0U);
    EXPECT_EQ(lineOf(m_stream), std::string(99999 - out.size(), 'l')) << "without the one that found no room";
    EXPECT_EQ(lineOf(m_stream), "next\xFF");
}

TEST_F(InputStreamFromConsoleTest, LinesOfAPipeAreReadTheSameWay) {
    pipedInputIs("p\r\nq");
    expectReads(m_stream, {line("p"), line("q\xFF")});
}

TEST_F(InputStreamFromConsoleTest, GetAllOfAPipeReadsNothing) {
    pipedInputIs("x\nrest");
    expectReads(m_stream, {all(""), character("x"), all(""), notAtEnd, line(""), line("rest\xFF"), atEnd});
}

TEST_F(InputStreamFromConsoleTest, AnInputThatCannotBeReadEndsEveryReadAtOnce) {
    redirectTo(m_folder.path());
    expectReads(m_stream, {line(""), character("\xFF"), all(""), notAtEnd});
}

TEST_F(InputStreamFromConsoleTest, AReadErrorInALineEndsItLikeTheEndOfTheInput) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], "ab", 2), 2);
    redirectTo("/proc/self/fd/" + std::to_string(ends[0]));
    ASSERT_EQ(fcntl(STDIN_FILENO, F_SETFL, O_NONBLOCK), 0); // nothing more to read is an error now
    expectReads(m_stream, {line("ab\xFF"), notAtEnd});
    EXPECT_EQ(close(ends[0]), 0);
    EXPECT_EQ(close(ends[1]), 0);
}

TEST_F(InputStreamFromConsoleTest, ReadTakesEverythingUntilTheLineReaderIsSet) {
    std::string out;
    inputIs("a\nb");
    m_stream.read(out);
    EXPECT_EQ(out, "a\nb");
    inputIs("a\nb");
    m_stream.setReader(InputStream::readLine).read(out);
    EXPECT_EQ(out, "a");
}

TEST_F(InputStreamFromConsoleTest, AllObjectsReadTheOneStandardInput) {
    inputIs("ab");
    EXPECT_EQ(characterOf(m_stream), "a");
    InputStreamFromConsole other;
    EXPECT_EQ(characterOf(other), "b");
}
