#include "foundation/streams/OutputStreamToConsole.h"

#include "tests/support/Descriptor.h"
#include "tests/support/Files.h"
#include "tests/support/Rows.h"
#include "tests/support/TemporaryFolder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

using namespace Common;
using namespace ZNORBTEST;

namespace {

/// Standard output goes to a file while it lives.
class CapturedOutput {
public:
    CapturedOutput() : m_path(m_folder / "output") {
        writeFile(m_path, "");
        (void)std::fflush(stdout);
        m_saved.reset(dup(STDOUT_FILENO));
        redirectTo(m_path);
    }
    ~CapturedOutput() {
        (void)std::fflush(stdout);
        std::clearerr(stdout);
        (void)dup2(m_saved.get(), STDOUT_FILENO);
    }

    static void redirectTo(const std::string& path) {
        (void)dup2(Descriptor(open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC)).get(), STDOUT_FILENO);
    }

    /// What has reached the file; the C library's buffer is not flushed for it.
    [[nodiscard]] std::string text() const { return readFile(m_path); }

private:
    TemporaryFolder m_folder;
    std::string m_path;
    Descriptor m_saved;
};

struct Write {
    const char* data;
    unsigned int length;
};

/// Writes to the stream and what the console has got as soon as they are done.
using Output = Row<std::vector<Write>, std::string>;

class OutputToConsole : public testing::TestWithParam<Output> {};

TEST_P(OutputToConsole, IsTheTextAtOnce) {
    OutputStreamToConsole stream;
    const CapturedOutput output;
    for (const Write& write : GetParam().given) {
        stream.write(write.data, write.length);
    }
    EXPECT_EQ(output.text(), GetParam().expected);
}

const Output outputs[] = {
    {"TheTextsOfSeveralWrites", {{"Press: q, then Enter", 20}, {"\r\n", 2}}, "Press: q, then Enter\r\n"},
    {"TheWholeTextEvenIfTheLengthIsSmaller", {{"whole text", 5}, {"!", 0}}, "whole text!"},
    {"UpToTheNulEvenIfTheLengthIsLarger", {{"ab\0cd", 5}}, "ab"},
    {"NothingOfAnEmptyText", {{"", 3}}, ""},
    {"NoFormat", {{"100% %s %n", 10}}, "100% %s %n"},
    {"WithoutALineEnd", {{"no line end", 11}}, "no line end"},
};

INSTANTIATE_TEST_SUITE_P(OutputStreamToConsole, OutputToConsole, testing::ValuesIn(outputs), rowName);

} // namespace

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
