/// znorb-clean.8 and znorb-wait.8 against the tools.

#include "tests/docs/ManualPage.h"
#include "tests/docs/ShownScript.h"
#include "tests/docs/SourceTree.h"
#include "tests/support/Files.h"
#include "tests/support/ListeningPeer.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Matchers.h"
#include "tests/support/PlayedDaemon.h"
#include "tests/support/ShellScript.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <regex>

namespace {

using namespace ZNORBTEST;

const std::string toolDirectory = ZNORB_PROGRAM_DIRECTORY;

/// The page's messages as expressions; "%s" stands for text.
std::regex expressionOf(const std::string& message) {
    static const std::regex special(R"([.()\[\]*+?{}|^$\\])");
    std::string text = std::regex_replace(message, special, "\\$&");
    for (auto at = text.find("%s"); at != std::string::npos; at = text.find("%s")) {
        text.replace(at, 2, ".+");
    }
    return std::regex(text);
}

class ToolPage : public testing::Test {
protected:
    ToolPage(std::string tool, const std::string& page) : m_tool(std::move(tool)), m_page(page) {}

    /// Runs the tool and notes what it says and returns.
    ProcessEnd run(const std::vector<std::string>& arguments, bool asOrdinaryUser = false) {
        Launch launch = {.program = toolDirectory + "/" + m_tool,
                         .arguments = arguments,
                         .asOrdinaryUser = asOrdinaryUser};
        if (asOrdinaryUser) { // who may not look into the build folder
            launch.program = m_driver.directory() + "/" + m_tool;
            copyProgram(toolDirectory + "/" + m_tool, launch.program);
        }
        return noted(launch);
    }

    ProcessEnd noted(const Launch& launch) {
        const ProgramResult result = runProgram(launch);
        EXPECT_EQ(result.end.kind, ProcessEnd::Kind::Exited);
        (void)m_statuses.insert(result.end.number);
        for (const std::string& line : linesOf(result.output + result.errors)) {
            if (!line.starts_with("usage: ")) {
                note(line);
            }
        }
        return result.end;
    }

    /// With so few descriptors that it can open /proc and nothing in it.
    ProcessEnd runBlind(int descriptors) {
        Launch launch;
        launch.program = "/bin/sh";
        launch.arguments = {"-c",
                            "exec 3<&- 4<&-; ulimit -n $0; exec \"$@\"",
                            std::to_string(descriptors),
                            toolDirectory + "/" + m_tool,
                            "-e",
                            m_driver.program()};
        return noted(launch);
    }

    ProcessEnd runOnOurs(std::vector<std::string> arguments = {}) {
        arguments.insert(arguments.begin(), {"-e", m_driver.program()});
        return run(arguments);
    }

    void note(const std::string& line) {
        ASSERT_TRUE(line.starts_with(m_tool + ": ")) << line;
        bool isKnown = false;
        for (const std::string& message : m_page.items("DIAGNOSTICS")) {
            if (std::regex_match(line.substr(m_tool.size() + 2), expressionOf(message))) {
                (void)m_seen.insert(message);
                isKnown = true;
            }
        }
        EXPECT_TRUE(isKnown) << "not on the page: " << line;
    }

    /// The options as they stand on the page and as the usage text has them.
    void expectTheOptionsOfTheUsage() {
        const Launch launch = {.program = toolDirectory + "/" + m_tool, .arguments = {"-?"}};
        std::string synopsis = "usage: " + m_tool;
        for (const std::string& line : m_page.section("SYNOPSIS")) {
            std::smatch option;
            if (std::regex_match(line, option, std::regex(R"(\.Op Fl (\w)(?: Ar (\w+))?)"))) {
                synopsis +=
                    " [-" + option[1].str() + (option[2].length() > 0 ? " " + option[2].str() : "") + "]";
            } else if (std::regex_match(line, option, std::regex(R"(\.Op Ar (\w+))"))) {
                synopsis += " [" + option[1].str() + "]";
            }
        }
        EXPECT_THAT(linesOf(runProgram(launch).errors), Contains(synopsis));
    }

    void expectEachListedToBeSeen() const {
        const std::vector<std::string> items = m_page.items("DIAGNOSTICS");
        EXPECT_EQ(m_seen, std::set<std::string>(items.begin(), items.end()));
        EXPECT_EQ(m_statuses, m_page.statuses());
    }

    void startAndEndBy(int number) {
        ASSERT_TRUE(m_driver.startServing());
        ASSERT_NE(m_driver.endBy(number), stillRunning());
    }

    const std::string m_tool;
    const ManualPage m_page;
    std::set<int> m_statuses;
    std::set<std::string> m_seen;
    DaemonDriver m_driver;
};

class CleanPage : public ToolPage {
protected:
    CleanPage() : ToolPage("znorb-clean", "znorb-clean.8") {}
};

TEST_F(CleanPage, HasTheOptionsOfTheUsage) {
    expectTheOptionsOfTheUsage();
}

TEST_F(CleanPage, HasEveryMessageAndStatusThatIsSeenAndEachIsSeen) {
    startAndEndBy(SIGKILL);
    EXPECT_EQ(runOnOurs({"-n"}), exitedWith(0));
    EXPECT_EQ(runOnOurs(), exitedWith(0));
    EXPECT_EQ(runOnOurs(), exitedWith(0)); // nothing to do and nothing to say

    ASSERT_TRUE(m_driver.startServing());
    EXPECT_EQ(runOnOurs(), exitedWith(2)); // a responder runs
    EXPECT_EQ(runBlind(5), exitedWith(1));
    {
        const Onlooker lock(daemonLock);
        EXPECT_EQ(run({"-e", "/no/such/program"}), exitedWith(2)); // we use the lock
    }
    EXPECT_EQ(m_driver.quit(), exitedWith(255));
    {
        (void)unlink("/var/run/znorb.socket");
        const ListeningPeer somebody({}, "/var/run/znorb.socket");
        EXPECT_EQ(runOnOurs(), exitedWith(2));
    }
    // A folder cannot be unlinked.
    EXPECT_EQ(runProgram(shellScript("", "mkdir /dev/shm/znorb.shvars")).end, exitedWith(0));
    EXPECT_EQ(runOnOurs(), exitedWith(1));
    EXPECT_EQ(rmdir("/dev/shm/znorb.shvars"), 0);

    Descriptor turn(open("/run/znorb-clean.lock", O_RDWR | O_CLOEXEC));
    EXPECT_EQ(flock(turn.get(), LOCK_EX), 0);
    EXPECT_EQ(runOnOurs(), exitedWith(1));
    turn.reset();
    EXPECT_EQ(run({}, true), exitedWith(1));
    EXPECT_EQ(run({"too", "many"}), exitedWith(1));

    expectEachListedToBeSeen();
}

class WaitPage : public ToolPage {
protected:
    WaitPage() : ToolPage("znorb-wait", "znorb-wait.8") {}
};

TEST_F(WaitPage, HasTheOptionsOfTheUsage) {
    expectTheOptionsOfTheUsage();
}

TEST_F(WaitPage, HasEveryMessageAndStatusThatIsSeenAndEachIsSeen) {
    EXPECT_EQ(runOnOurs(), exitedWith(2));
    ASSERT_TRUE(m_driver.startServing());
    EXPECT_EQ(runOnOurs(), exitedWith(0));
    EXPECT_EQ(runOnOurs({std::to_string(m_driver.daemon())}), exitedWith(0));
    EXPECT_EQ(runOnOurs({""}), exitedWith(2));
    EXPECT_EQ(runOnOurs({"nobody"}), exitedWith(1));
    EXPECT_EQ(runBlind(4), exitedWith(4));
    EXPECT_EQ(run({}, true), exitedWith(1));
    EXPECT_EQ(run({"too", "many"}), exitedWith(1));

    // Test mode that cannot listen, and waits for its keys all the same.
    EXPECT_EQ(m_driver.quit(), exitedWith(255));
    EXPECT_EQ(runProgram(shellScript("", "cd /var/run; rm znorb.socket; mkdir znorb.socket")).end,
              exitedWith(0));
    const std::unique_ptr<ChildProcess> tester = m_driver.startTestConsole();
    ASSERT_TRUE(tester->waitForOutput("Unified responder stopped\r\n"));
    EXPECT_EQ(runOnOurs({"-t", "0", std::to_string(tester->pid())}), exitedWith(3));
    EXPECT_EQ(rmdir("/var/run/znorb.socket"), 0);

    expectEachListedToBeSeen();
}

TEST_F(WaitPage, GivesAStartThatWorksOverWhatEachEndLeavesBehind) {
    ASSERT_THAT(m_page.displays("EXAMPLES"), ElementsAre(startLine));
    for (const int number : {SIGTERM, SIGKILL}) {
        startAndEndBy(number);
        const ProgramResult result = runShownScript(m_driver, startLine);
        EXPECT_EQ(result.end, exitedWith(0)) << result.errors;
        EXPECT_EQ(askDaemon("PRINT"), "0");
        EXPECT_EQ(m_driver.run({"-stop"}).output, "The ZN Orbisan daemon has stopped.\n");
    }
}

TEST(StartLine, IsTheSameWhereverItIsShown) {
    for (const char* page : {"znorb-clean.8", "znorb-wait.8", "znorbresponder.8"}) {
        EXPECT_THAT(ManualPage(page).displays("EXAMPLES"), Contains(startLine)) << page;
    }
    for (const char* document : {"README.md", "docs/OPERATING.md", "docs/TROUBLESHOOTING.md"}) {
        EXPECT_THAT(readSource(document), HasSubstr(std::string("\n    ") + startLine)) << document;
    }
}

} // namespace
