/// The completion for bash, on its own and in a living shell.

#include "responder/Globals.h"
#include "tests/docs/SourceTree.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Descriptor.h"
#include "tests/support/Matchers.h"
#include "tests/support/ShellScript.h"
#include "tests/support/Skipping.h"
#include "tests/support/Waiting.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace {

using namespace ZNORBTEST;

const std::string completion = "packaging/completion/znorbresponder";

std::string knownWords() {
    std::string words;
    for (const ZNORBRESPONDER::CommandRow& row : ZNORBRESPONDER::commandTable) {
        words += row.name.empty() ? "" : " -" + row.name;
    }
    for (const ZNORBRESPONDER::FlagRow& row : ZNORBRESPONDER::flagTable) {
        words += " -" + row.name;
    }
    return words;
}

TEST(Completion, OffersTheDaemonsWordsOneCommandAndNoneTwiceAlsoWithEveryStrictSetting) {
    for (const std::string shell : {"bash ", "bash -euo pipefail "}) {
        const ProgramResult result =
            runProgram(shellScript("", shell + sourcePath("tests/docs/completion-test") + " " +
                                           sourcePath(completion) + knownWords()));
        EXPECT_EQ(result.end, exitedWith(0)) << shell << result.output << result.errors;
    }
}

/// A shell at a terminal of its own.
class InteractiveShell {
public:
    InteractiveShell() : m_terminal(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        if (grantpt(m_terminal.get()) != 0 || unlockpt(m_terminal.get()) != 0) {
            return;
        }
        const std::string name = ptsname(m_terminal.get());
        m_shell = fork();
        if (m_shell == 0) {
            (void)setsid();
            const int slave = open(name.c_str(), O_RDWR);
            for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
                (void)dup2(slave, descriptor);
            }
            (void)setenv("TERM", "dumb", 1);
            (void)setenv("INPUTRC", "/dev/null", 1);
            (void)execlp("bash", "bash", "--norc", "--noprofile", "-i", nullptr);
            _exit(127);
        }
    }
    ~InteractiveShell() {
        if (m_shell > 0) {
            (void)kill(m_shell, SIGKILL);
            (void)waitpid(m_shell, nullptr, 0);
        }
    }

    [[nodiscard]] bool hasTerminal() const { return m_shell > 0; }

    void type(const std::string& keys) const {
        EXPECT_EQ(write(m_terminal.get(), keys.data(), keys.size()), std::ssize(keys));
    }

    /// What it has shown, as soon as that holds the text; all that there is when it does not.
    std::string shownWith(const std::string& text) {
        (void)waitUntil([&]() {
            pollfd readable = {m_terminal.get(), POLLIN, 0};
            char bytes[1024];
            while (poll(&readable, 1, 0) == 1) {
                const ssize_t count = read(m_terminal.get(), bytes, sizeof bytes);
                if (count <= 0) {
                    return true;
                }
                m_shown.append(bytes, static_cast<std::size_t>(count));
            }
            return m_shown.find(text) != std::string::npos;
        });
        return m_shown;
    }

private:
    const Descriptor m_terminal;
    pid_t m_shell = -1;
    std::string m_shown;
};

TEST(Completion, FinishesAWordAtTheTabKey) {
    InteractiveShell shell;
    ZNORB_SKIP_IF(!shell.hasTerminal()) << "there are no pseudo-terminals here";
    shell.type("source " + sourcePath(completion) + "; echo rea''dy\n");
    ASSERT_THAT(shell.shownWith("ready\r\n"), HasSubstr("ready\r\n"));
    shell.type("znorbresponder -st\t-si\t");
    EXPECT_THAT(shell.shownWith("znorbresponder -stop -silent "), HasSubstr("znorbresponder -stop -silent "));
}

} // namespace
