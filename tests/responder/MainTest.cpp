/// `main` of the real executable where it cannot even read its command line.

#include "tests/support/DaemonDriver.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/TemporaryFolder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using namespace ZNORBTEST;

class Main : public testing::Test {
protected:
    /// Executes the program with these words, the program's own name not among them by itself, and this
    /// much memory for data. What it writes goes into `written`.
    ProcessEnd endOf(std::vector<std::string> words, rlim_t bytes) {
        const std::vector<char*> arguments = argumentsOf(words);
        const std::string file = m_folder / "written";
        const std::string program = m_driver.program();
        const ProcessEnd end = endOfForked([&]() {
            const int output = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            (void)dup2(output, STDOUT_FILENO);
            (void)dup2(output, STDERR_FILENO);
            const rlimit limit = {bytes, bytes};
            (void)setrlimit(RLIMIT_DATA, &limit);
            (void)execv(program.c_str(), arguments.data());
            return notExecuted;
        });
        written = readFile(file);
        return end;
    }

    static constexpr int notExecuted = 127;
    std::string written;

private:
    TemporaryFolder m_folder;
    DaemonDriver m_driver;
};

TEST_F(Main, EndsQuietlyWith255WithoutAnyWordNotEvenItsName) {
    EXPECT_EQ(endOf({}, RLIM_INFINITY), exitedWith(255));
    EXPECT_EQ(written, "");
}

TEST_F(Main, EndsQuietlyWith255WithoutMemoryForItsWords) {
    ZNORB_SKIP_IF(underSanitizer) << "the sanitizers need memory of their own";
    constexpr std::size_t count = 100000;
    constexpr rlim_t lessThanTheyTake = 2U << 20;
    std::vector<std::string> words(count, "-silent");
    words[0] = "znorbresponder";
    words[1] = "-stop";
    EXPECT_EQ(endOf(words, RLIM_INFINITY), exitedWith(2));
    EXPECT_EQ(written, "The ZN Orbisan daemon is not running.\n");
    EXPECT_EQ(endOf(words, lessThanTheyTake), exitedWith(255));
    EXPECT_EQ(written, "");
}

} // namespace
