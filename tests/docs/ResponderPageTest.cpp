/// znorbresponder.8 against the executable and against the constants that it is made of: neither can change
/// without the other.

#include "responder/Globals.h"
#include "responder/RuntimeNames.h"
#include "responder/commands/ExitStatus.h"
#include "tests/docs/ManualPage.h"
#include "tests/docs/ShownScript.h"
#include "tests/docs/SourceTree.h"
#include "tests/sandbox/Processes.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Matchers.h"
#include "tests/support/PlayedDaemon.h"
#include "tests/support/ProcessorTime.h"
#include "tests/support/Results.h"
#include "tests/support/ShellScript.h"
#include "tests/support/Skipping.h"

#include <unistd.h>

#include <csignal>
#include <functional>
#include <map>

namespace {

using namespace ZNORBTEST;

/// The words of the command line that a table has, in its order.
template <typename Table>
std::vector<std::string> namesIn(const Table& table) {
    std::vector<std::string> names;
    for (const auto& row : table) {
        if (!row.name.empty()) {
            names.push_back(row.name);
        }
    }
    return names;
}

const std::vector<std::string> commandNames = namesIn(ZNORBRESPONDER::commandTable);
const std::vector<std::string> flagNames = namesIn(ZNORBRESPONDER::flagTable);

std::vector<std::string> behind(const std::string& start, const std::vector<std::string>& texts) {
    std::vector<std::string> rests;
    for (const std::string& text : texts) {
        if (text.starts_with(start)) {
            rests.push_back(text.substr(start.size()));
        }
    }
    return rests;
}

class ResponderPage : public testing::Test {
protected:
    ProgramResult runAsOrdinaryUser() const {
        Launch launch = driver.launch({"-d"});
        launch.asOrdinaryUser = true;
        return runProgram(launch);
    }

    ProgramResult startTwice() {
        EXPECT_TRUE(driver.startServing());
        ProgramResult second = driver.run({"-d"});
        EXPECT_EQ(driver.quit(), exitedWith(255));
        return second;
    }

    ProgramResult stopTooSlowly() const {
        (void)unlink(ZNORBRESPONDER::commandSocketPath); // an earlier daemon's
        const PlayedDaemon daemon("0");
        return driver.run({"-stop"});
    }

    ProcessEnd terminate() {
        EXPECT_TRUE(driver.startServing());
        ProcessEnd end = driver.endBy(SIGTERM);
        (void)unlink(tableFile);
        return end;
    }

    ManualPage page{"znorbresponder.8"};
    DaemonDriver driver;
};

TEST_F(ResponderPage, DescribesEveryCommandAndEveryFlagAndNoOther) {
    const std::vector<std::vector<std::string>> lists = page.lists("DESCRIPTION");
    ASSERT_EQ(lists.size(), 2U);
    EXPECT_THAT(behind("Fl ", lists[0]), ElementsAreArray(commandNames));
    EXPECT_THAT(behind("Fl ", lists[1]), ElementsAreArray(flagNames));
}

TEST_F(ResponderPage, GivesEachCommandWithEveryFlagInTheSynopsis) {
    std::vector<std::string> expected;
    for (const std::string& command : commandNames) {
        expected.emplace_back(".Nm");
        expected.push_back(".Fl " + command);
        for (const std::string& flag : flagNames) {
            expected.push_back(".Op Fl " + flag);
        }
    }
    EXPECT_THAT(page.section("SYNOPSIS"), ElementsAreArray(expected));
}

/// The texts that a call in the sources prints.
std::vector<std::string> messagesIn(const std::string& call) {
    std::vector<std::string> messages;
    for (const char* folder : {"responder", "common", "foundation"}) {
        for (const std::string& file : filesBelow(folder)) {
            // Their threads never run, so that nobody ever reads what they would log.
            if (file.find("WBXResponderMonitor") != std::string::npos ||
                file.find("ConfigurationMonitor") != std::string::npos) {
                continue;
            }
            const std::vector<std::string> more = matches(readSource(file), call + R"#("([^"]*)")#");
            messages.insert(messages.end(), more.begin(), more.end());
        }
    }
    return messages;
}

std::vector<std::string> logMessages() {
    std::vector<std::string> messages = messagesIn(R"((?:Logger::)log\()");
    const std::vector<std::string> errors = messagesIn(R"((?:Logger::)logAt\([A-Za-z]+, )");
    messages.insert(messages.end(), errors.begin(), errors.end());
    return messages;
}

TEST_F(ResponderPage, HasEveryMessageOfTheSourcesUnderItsStreamAndNoOther) {
    const std::vector<std::vector<std::string>> lists = page.lists("DIAGNOSTICS");
    ASSERT_EQ(lists.size(), 3U);
    EXPECT_THAT(lists[0], UnorderedElementsAreArray(messagesIn(R"(tellUser\(STDOUT_FILENO,\s+)")));
    EXPECT_THAT(lists[1], UnorderedElementsAreArray(messagesIn(R"(tellUser\(STDERR_FILENO,\s+)")));
    EXPECT_THAT(lists[2], UnorderedElementsAreArray(logMessages()));
}

TEST_F(ResponderPage, HasEveryMessageAsTheExecutableHasIt) {
    const std::string executable = readFile(driver.program());
    for (const std::string& message : page.items("DIAGNOSTICS")) {
        EXPECT_TRUE(executable.find(message + '\0') != std::string::npos) << message;
    }
}

/// Without the strokes that make letters bold and underlined on a printer.
std::string withoutOverstrikes(const std::string& text) {
    std::string plain;
    for (const char character : text) {
        if (character == '\b') {
            plain.pop_back();
        } else {
            plain += character;
        }
    }
    return plain;
}

TEST_F(ResponderPage, ShowsEveryMessageAsItIsWhenItIsRead) {
    const ProgramResult result = runProgram(
        shellScript("", "mandoc -T ascii -O width=200 " + sourcePath("packaging/man/znorbresponder.8")));
    ZNORB_SKIP_IF(result.end == exitedWith(127)) << "mandoc is not installed";
    const std::string shown = withoutOverstrikes(result.output);
    for (const std::string& message : page.items("DIAGNOSTICS")) {
        EXPECT_THAT(shown, HasSubstr(message));
    }
}

/// The status that the page names below each message.
std::map<std::string, int> statusesOfMessages(const ManualPage& page) {
    std::map<std::string, int> statuses;
    std::string message;
    for (const std::string& line : page.section("DIAGNOSTICS")) {
        if (line.starts_with(".It ")) {
            message = line.substr(4);
        } else if (line.starts_with("Status ")) {
            statuses[message] = std::stoi(line.substr(7));
        }
    }
    return statuses;
}

TEST_F(ResponderPage, SaysWithWhichStatusEachErrorComes) {
    const std::vector<ProgramResult> results = {runAsOrdinaryUser(), startTwice(), driver.run({"-stop"}),
                                                stopTooSlowly()};
    std::map<std::string, int> observed;
    for (const ProgramResult& result : results) {
        ASSERT_THAT(result.errors, Not(IsEmpty()));
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.end.kind, ProcessEnd::Kind::Exited);
        observed[result.errors.substr(0, result.errors.size() - 1)] = result.end.number;
    }
    EXPECT_EQ(statusesOfMessages(page), observed);
    EXPECT_EQ(page.lists("DIAGNOSTICS")[1].size(), observed.size());
}

TEST_F(ResponderPage, ListsEveryExitStatusAndEachIsObserved) {
    const std::set<int> constants = exitStatuses();
    EXPECT_EQ(page.statuses(), constants);

    std::set<int> observed;
    const auto note = [&observed](const ProcessEnd& end) {
        EXPECT_EQ(end.kind, ProcessEnd::Kind::Exited);
        (void)observed.insert(end.number);
    };
    note(runAsOrdinaryUser().end);
    note(startTwice().end);
    note(driver.startResult().end); // the first of the two
    note(stopTooSlowly().end);
    note(terminate());
    note(driver.run({}).end);
    EXPECT_EQ(observed, constants);
}

TEST_F(ResponderPage, NamesTheDaemonsFiles) {
    const std::vector<std::string> files = behind("Pa ", page.items("FILES"));
    const std::string lock = ZNORBRESPONDER::applicationLockName;
    const std::vector<std::string> expected = {
        driver.program(), ZNORBRESPONDER::commandSocketPath, "/dev/shm/sem." + lock.substr(1),
        std::string("/dev/shm") + ZNORBRESPONDER::sharedVariablesName, ZNORBRESPONDER::consoleRoot};
    EXPECT_THAT(files, ElementsAreArray(expected));
    EXPECT_THAT(page.items("ENVIRONMENT"),
                ElementsAre(std::string("Ev ") + ZNORBRESPONDER::htmlPathVariable));
}

/// The words of the page for what an end leaves behind and what the next start does about it.
std::string nextStart(DaemonDriver& driver) {
    if (!driver.start()) {
        return driver.startResult().end == exitedWith(2) ? "is refused" : "unknown";
    }
    const bool isServing = waitUntil(
        [&driver]() { return askDaemon("PRINT") == "0" || processesRunning(driver.program()).empty(); });
    EXPECT_TRUE(isServing);
    return processesRunning(driver.program()).empty() ? "fails" : "succeeds";
}

TEST_F(ResponderPage, TellsWhatEachEndLeavesBehind) {
    const std::map<std::string, std::function<void(const DaemonDriver&)>> ends = {
        {"Fl stop", [](const DaemonDriver& it) { EXPECT_EQ(it.run({"-stop"}).end, exitedWith(255)); }},
        {"Dv SIGTERM", [](const DaemonDriver& it) { EXPECT_EQ(kill(it.daemon(), SIGTERM), 0); }},
        {"SIGKILL, a crash", [](const DaemonDriver& it) { EXPECT_EQ(kill(it.daemon(), SIGKILL), 0); }}};
    std::vector<std::string> rows = page.items("RECOVERY");
    rows.erase(rows.begin()); // the heading
    ASSERT_EQ(rows.size(), ends.size());
    for (const std::string& row : rows) {
        const std::string name = row.substr(0, row.find(" Ta "));
        ASSERT_TRUE(ends.count(name) == 1) << name;
        ASSERT_TRUE(driver.startServing()) << name;
        ends.at(name)(driver);
        EXPECT_NE(driver.waitForDaemon(), stillRunning()) << name;
        std::string observed = name + (exists(lockFile) ? " Ta stays" : " Ta gone");
        observed += exists(tableFile) ? " Ta stays" : " Ta gone";
        EXPECT_EQ(observed + " Ta " + nextStart(driver), row);
        (void)askDaemon("QUIT");
        EXPECT_TRUE(waitUntil([this]() { return processesRunning(driver.program()).empty(); }));
        (void)unlink(lockFile);
        (void)unlink(tableFile);
    }
}

TEST_F(ResponderPage, GivesACommandThatMakesTheNextStartSucceed) {
    ASSERT_TRUE(driver.startServing());
    ASSERT_EQ(driver.endBy(SIGKILL), endedBy(SIGKILL));
    ASSERT_EQ(runProgram(shellScript(driver.directory(), page.display("RECOVERY"))).end, exitedWith(0));
    EXPECT_TRUE(driver.startServing());
}

class StopScript : public ResponderPage {
protected:
    void SetUp() override {
        const std::vector<std::string> displays = page.displays("EXAMPLES");
        ASSERT_EQ(displays.size(), 2U);
        EXPECT_EQ(displays[0], startLine);
        m_script = displays[1];
    }

    ProgramResult runIt() const { return runShownScript(driver, m_script); }

private:
    std::string m_script;
};

TEST_F(StopScript, StopsTheDaemonAndGoesOn) {
    ASSERT_TRUE(driver.startServing());
    for (const char* moment : {"while it runs", "when none runs"}) {
        EXPECT_EQ(runIt().end, exitedWith(0)) << moment;
        EXPECT_EQ(driver.waitForDaemon(), exitedWith(255)) << moment;
    }
}

TEST_F(StopScript, RemovesTheLockOfADeadDaemonThatDoesNotAnswer) {
    ASSERT_TRUE(driver.startServing());
    ASSERT_EQ(driver.endBy(SIGKILL), endedBy(SIGKILL));
    EXPECT_THAT(runIt(), resultIs(exitedWith(0), HasSubstr("removed the stale lock"), _));
    EXPECT_FALSE(exists(lockFile));
}

TEST_F(StopScript, FailsWhenTheDaemonDoesNotLetGoOfItsLock) {
    const PlayedDaemon daemon("0");
    EXPECT_THAT(runIt(), resultIs(exitedWith(2), _, HasSubstr("nothing was removed")));
    EXPECT_TRUE(exists(lockFile));
}

TEST_F(StopScript, FailsWhenALivingDaemonDoesNotAnswer) {
    ASSERT_TRUE(driver.startServing());
    ASSERT_EQ(unlink(ZNORBRESPONDER::commandSocketPath), 0); // nobody gets through to it
    EXPECT_THAT(runIt(), resultIs(exitedWith(2), _, HasSubstr("a responder runs")));
    EXPECT_EQ(driver.endBy(SIGTERM), exitedWith(10));
}

TEST_F(ResponderPage, GivesACommandForTestModeWithoutATerminal) {
    const ChildProcess shell(shellScript(driver.directory(), page.display("Test mode")));
    ASSERT_TRUE(shell.waitForOutput("Unified responder waiting for connections\r\n"));
    ASSERT_TRUE(waitUntil([]() { return askDaemon("PRINT") == "0"; }));
    const std::vector<pid_t> testers = processesRunning(driver.program());
    ASSERT_EQ(testers.size(), 1U);
    EXPECT_TRUE(watchProcessor(testers[0], Milliseconds(500)).isWaiting());
    for (const pid_t child : childrenOf(shell.pid())) {
        (void)kill(child, SIGKILL);
    }
}

TEST_F(ResponderPage, TellsThatTestModeIsBusyAtTheEndOfItsInput) {
    const ChildProcess tester(driver.launch({"-test"})); // its input is /dev/null
    ASSERT_TRUE(tester.waitForOutput("Unified responder waiting for connections\r\n"));
    EXPECT_FALSE(watchProcessor(tester.pid(), Milliseconds(500)).isWaiting());
}

TEST_F(ResponderPage, TellsThatTestModeOutlivesAQuitFromTheSocket) {
    const std::unique_ptr<ChildProcess> console = driver.startServingConsole();
    ASSERT_EQ(askDaemon("QUIT"), "0");
    ASSERT_TRUE(console->waitForOutput("Unified responder stopped\r\n"));
    EXPECT_EQ(console->waitForEnd(Milliseconds(300)), stillRunning());
    ASSERT_TRUE(console->writeInput("q\n"));
    EXPECT_EQ(console->waitForEnd(), exitedWith(255));
}

TEST_F(ResponderPage, TellsThatTestModeIsEndedBySignalsAndLeavesTheTable) {
    for (const int number : {SIGTERM, SIGINT}) {
        const std::unique_ptr<ChildProcess> console = driver.startServingConsole();
        ASSERT_EQ(kill(console->pid(), number), 0);
        EXPECT_EQ(console->waitForEnd(), endedBy(number));
        EXPECT_TRUE(exists(tableFile));
        (void)unlink(tableFile);
    }
}

TEST_F(ResponderPage, TellsThatADaemonOfTheTerminalIgnoresAHangUpAndLeavesItsLockOnAnInterrupt) {
    ASSERT_TRUE(driver.startServing());
    ASSERT_EQ(kill(driver.daemon(), SIGHUP), 0);
    EXPECT_EQ(askDaemon("PRINT"), "0");
    EXPECT_EQ(driver.endBy(SIGINT), endedBy(SIGINT));
    EXPECT_TRUE(exists(lockFile));
    EXPECT_TRUE(exists(tableFile));
}

} // namespace
