#include "foundation/streams/InputStreamFromConsole.h"

#include "tests/foundation/containers/Allocations.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

using Common::InputStream;
using Common::InputStreamFromConsole;
using ZNORBTEST::TemporaryFolder;
using ZNORBTEST::writeFile;

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

    std::string nextLine() {
        std::string out = "unchanged";
        m_stream.getLine(out);
        return out;
    }

    std::string nextCharacter() {
        std::string out = "unchanged";
        m_stream.getCharacter(out);
        return out;
    }

    std::string everything() {
        std::string out = "unchanged";
        m_stream.getAll(out);
        return out;
    }

    TemporaryFolder m_folder;
    InputStreamFromConsole m_stream;
};

} // namespace

TEST_F(InputStreamFromConsoleTest, IsAlwaysOpen) {
    EXPECT_TRUE(m_stream.isOpen());
    inputIs("");
    EXPECT_EQ(nextCharacter(), "\xFF");
    EXPECT_TRUE(m_stream.isOpen());
}

TEST_F(InputStreamFromConsoleTest, OnlyKnowsTheEndOnceAReadHasMetIt) {
    inputIs("a");
    EXPECT_FALSE(m_stream.isEof());
    EXPECT_EQ(nextCharacter(), "a");
    EXPECT_FALSE(m_stream.isEof());
    (void)nextCharacter();
    EXPECT_TRUE(m_stream.isEof());
}

TEST_F(InputStreamFromConsoleTest, CharactersAreBytesOfAnyValue) {
    inputIs(std::string("\0\xFF\n", 3));
    EXPECT_EQ(nextCharacter(), std::string(1, '\0'));
    EXPECT_EQ(nextCharacter(), "\xFF");
    EXPECT_EQ(nextCharacter(), "\n");
    EXPECT_FALSE(m_stream.isEof());
}

TEST_F(InputStreamFromConsoleTest, TheCharacterAtTheEndIs0xFF) {
    inputIs("");
    EXPECT_EQ(nextCharacter(), "\xFF");
    EXPECT_EQ(nextCharacter(), "\xFF");
}

TEST_F(InputStreamFromConsoleTest, LinesEndAtLineFeedsAndDropEveryCarriageReturn) {
    inputIs("a\rb\r\n\n\rc\n");
    EXPECT_EQ(nextLine(), "ab");
    EXPECT_EQ(nextLine(), "");
    EXPECT_EQ(nextLine(), "c");
}

TEST_F(InputStreamFromConsoleTest, ALineThatTheEndCutsShortHasThe0xFFOfTheFailedRead) {
    inputIs("a\nbc");
    EXPECT_EQ(nextLine(), "a");
    EXPECT_EQ(nextLine(), "bc\xFF");
    EXPECT_TRUE(m_stream.isEof());
    EXPECT_EQ(nextLine(), "unchanged");
}

TEST_F(InputStreamFromConsoleTest, TheReadThatMeetsTheEndBehindTheLastLineEmptiesItsString) {
    inputIs("a\n");
    EXPECT_EQ(nextLine(), "a");
    EXPECT_FALSE(m_stream.isEof());
    EXPECT_EQ(nextLine(), "");
    EXPECT_TRUE(m_stream.isEof());
    EXPECT_EQ(nextLine(), "unchanged");
}

TEST_F(InputStreamFromConsoleTest, ALineBeyondTheMemoryEndsEarlyAndTheNextReadGoesOn) {
    if (!ZNORBTEST::allocationsAreObserved()) {
        GTEST_SKIP() << "allocations cannot be made to fail";
    }
    inputIs("x" + std::string(100000, 'l') + "\nnext");
    EXPECT_EQ(nextCharacter(), "x"); // stdio has its own buffer from here on
    std::string out;
    {
        const ZNORBTEST::FailingAllocation fault(3);
        m_stream.getLine(out);
    }
    EXPECT_LT(out.size(), 100000U);
    EXPECT_EQ(out, std::string(out.size(), 'l'));
    EXPECT_GT(out.size(), 0U);
    EXPECT_EQ(nextLine(), std::string(99999 - out.size(), 'l')) << "without the one that found no room";
    EXPECT_EQ(nextLine(), "next\xFF");
}

TEST_F(InputStreamFromConsoleTest, A0xFFInALineDoesNotEndIt) {
    inputIs("a\xFF"
            "b\n");
    EXPECT_EQ(nextLine(), "a\xFF"
                          "b");
}

TEST_F(InputStreamFromConsoleTest, LinesOfAPipeAreReadTheSameWay) {
    pipedInputIs("p\r\nq");
    EXPECT_EQ(nextLine(), "p");
    EXPECT_EQ(nextLine(), "q\xFF");
}

TEST_F(InputStreamFromConsoleTest, GetAllGivesWhatRemainsOfAFileAndDoesNotMeetItsEnd) {
    inputIs(std::string("a\nb\0c\n", 6));
    EXPECT_EQ(nextLine(), "a");
    EXPECT_EQ(everything(), std::string("b\0c\n", 4));
    EXPECT_FALSE(m_stream.isEof());
    EXPECT_EQ(everything(), "");
}

TEST_F(InputStreamFromConsoleTest, GetAllOfAPipeReadsUntilItsWritersAreGone) {
    pipedInputIs("x\nrest");
    EXPECT_EQ(nextCharacter(), "x");
    EXPECT_EQ(everything(), "\nrest");
    EXPECT_TRUE(m_stream.isEof());
}

TEST_F(InputStreamFromConsoleTest, GetAllAtTheEndLeavesItsStringUnchanged) {
    inputIs("");
    (void)nextCharacter();
    EXPECT_EQ(everything(), "unchanged");
}

TEST_F(InputStreamFromConsoleTest, AnInputThatCannotBeReadEndsEveryReadAtOnce) {
    redirectTo(m_folder.path());
    EXPECT_EQ(nextLine(), "");
    EXPECT_EQ(nextCharacter(), "\xFF");
    EXPECT_EQ(everything(), "");
    EXPECT_FALSE(m_stream.isEof());
}

TEST_F(InputStreamFromConsoleTest, AReadErrorInALineEndsItLikeTheEndOfTheInput) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], "ab", 2), 2);
    redirectTo("/proc/self/fd/" + std::to_string(ends[0]));
    ASSERT_EQ(fcntl(STDIN_FILENO, F_SETFL, O_NONBLOCK), 0); // nothing more to read is an error now
    EXPECT_EQ(nextLine(), "ab\xFF");
    EXPECT_FALSE(m_stream.isEof());
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
    EXPECT_EQ(nextCharacter(), "a");
    InputStreamFromConsole other;
    std::string out;
    other.getCharacter(out);
    EXPECT_EQ(out, "b");
}
