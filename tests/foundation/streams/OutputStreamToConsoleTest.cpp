#include "foundation/streams/OutputStreamToConsole.h"

#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

using Common::OutputStream;
using Common::OutputStreamToConsole;
using ZNORBTEST::readFile;
using ZNORBTEST::TemporaryFolder;
using ZNORBTEST::writeFile;

namespace {

/// Standard output goes to a file while it lives.
class CapturedOutput {
public:
    CapturedOutput() : m_path(m_folder / "output") {
        writeFile(m_path, "");
        (void)std::fflush(stdout);
        m_saved = dup(STDOUT_FILENO);
        redirectTo(m_path);
    }
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;
    ~CapturedOutput() {
        (void)std::fflush(stdout);
        std::clearerr(stdout);
        (void)dup2(m_saved, STDOUT_FILENO);
        (void)close(m_saved);
    }

    static void redirectTo(const std::string& path) {
        const int descriptor = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        (void)dup2(descriptor, STDOUT_FILENO);
        (void)close(descriptor);
    }

    /// What has reached the file; the C library's buffer is not flushed for it.
    [[nodiscard]] std::string text() const { return readFile(m_path); }

private:
    TemporaryFolder m_folder;
    std::string m_path;
    int m_saved = -1;
};

} // namespace

TEST(OutputStreamToConsole, PrintsTheText) {
    OutputStreamToConsole stream;
    const CapturedOutput output;
    stream.write("Press: q, then Enter to exit.", 29);
    stream.write("\r\n", 2);
    EXPECT_EQ(output.text(), "Press: q, then Enter to exit.\r\n");
}

TEST(OutputStreamToConsole, PrintsTheWholeTextEvenIfTheLengthIsSmaller) {
    OutputStreamToConsole stream;
    const CapturedOutput output;
    stream.write("whole text", 5);
    stream.write("!", 0);
    EXPECT_EQ(output.text(), "whole text!");
}

TEST(OutputStreamToConsole, StopsAtTheNulEvenIfTheLengthIsLarger) {
    OutputStreamToConsole stream;
    const CapturedOutput output;
    stream.write("ab\0cd", 5);
    EXPECT_EQ(output.text(), "ab");
}

TEST(OutputStreamToConsole, PrintsNothingForAnEmptyText) {
    OutputStreamToConsole stream;
    const CapturedOutput output;
    stream.write("", 3);
    EXPECT_EQ(output.text(), "");
}

TEST(OutputStreamToConsole, DoesNotTakeTheTextForAFormat) {
    OutputStreamToConsole stream;
    const CapturedOutput output;
    stream.write("100% %s %n", 10);
    EXPECT_EQ(output.text(), "100% %s %n");
}

TEST(OutputStreamToConsole, EveryWriteIsOutAtOnce) {
    OutputStreamToConsole stream;
    const CapturedOutput output;
    stream.write("no line end", 11);
    EXPECT_EQ(output.text(), "no line end");
}

TEST(OutputStreamToConsole, AConsoleThatTakesNothingIsNotNoticed) {
    OutputStreamToConsole stream;
    const CapturedOutput output;
    CapturedOutput::redirectTo("/dev/full");
    stream.write("lost", 4);
    EXPECT_EQ(output.text(), "");
}

TEST(OutputStreamToConsole, HasNoState) {
    EXPECT_EQ(sizeof(OutputStreamToConsole), sizeof(OutputStream));
}
