/// docs/TROUBLESHOOTING.md, symptom by symptom on a real daemon: it comes from the cause, and the cure cures
/// it.

#include "tests/docs/SourceTree.h"
#include "tests/docs/TroubleshootingPage.h"
#include "tests/sandbox/Processes.h"
#include "tests/support/DaemonDriver.h"
#include "tests/support/Files.h"
#include "tests/support/ListeningPeer.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Matchers.h"
#include "tests/support/ProcessorTime.h"
#include "tests/support/Results.h"
#include "tests/support/SharedTable.h"
#include "tests/support/ShellScript.h"
#include "tests/support/Skipping.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

namespace {

using namespace ZNORBTEST;

constexpr const char* stopped = "The ZN Orbisan daemon has stopped.\n";

TEST_F(Troubleshooting, HasATestForEveryRow) {
    // The symptoms that the tests below name.
    const std::vector<std::string> tried =
        matches(readSource("tests/docs/TroubleshootingTest.cpp") +
                    readSource("tests/docs/TroubleshootingMachineTest.cpp"),
                R"SYMPTOM(row\(R"\(([^\n]*)\)"\))SYMPTOM");
    std::vector<std::string> rows;
    for (const TroubleshootingRow& each : troubleshootingRows()) {
        rows.push_back(each.symptom);
    }
    EXPECT_THAT(tried, UnorderedElementsAreArray(rows));
    EXPECT_GE(rows.size(), 10U);
}

TEST_F(Troubleshooting, FitsATerminal) {
    for (const std::string& line : linesOf(readSource(troubleshootingPage))) {
        EXPECT_LE(line.size(), 80U) << line;
        EXPECT_FALSE(line.starts_with("|")) << line;
    }
}

TEST_F(Troubleshooting, IsWhatTheReadmeIsAnExcerptOf) {
    const std::string readme = readSource("README.md");
    const std::size_t begin = readme.find("\n## When something is wrong");
    ASSERT_NE(begin, std::string::npos);
    const std::string excerpt = readme.substr(begin, readme.find("\n## ", begin + 1) - begin);
    const std::vector<std::string> symptoms = matches(excerpt, "\n- ([^:]*):");
    EXPECT_THAT(symptoms, SizeIs(6));
    for (const std::string& symptom : symptoms) {
        EXPECT_NE(row(symptom).cure, "") << symptom;
    }
    EXPECT_THAT(excerpt, HasSubstr(std::string("](") + troubleshootingPage + ")"));
}

TEST_F(Troubleshooting, StartedButDead) {
    const TroubleshootingRow it = row(R"(`-d` says "has started", but no daemon runs)");
    endBy(SIGTERM);
    ASSERT_TRUE(driver.start());
    EXPECT_EQ(driver.startResult().output, "The ZN Orbisan daemon has started.\n");
    EXPECT_EQ(driver.waitForDaemon(), exitedWith(255));
    expectAStartToWork(); // "Start again."

    EXPECT_EQ(quoted(it.cure, 0), "znorb-clean");
    EXPECT_EQ(quoted(it.cure, 1), "znorb-wait");
    endBy(SIGTERM);
    EXPECT_EQ(clean().end, exitedWith(0));
    ASSERT_TRUE(driver.start());
    EXPECT_EQ(inShell("znorb-wait -e " + driver.program()).end, exitedWith(0));
}

TEST_F(Troubleshooting, RefusedThoughNoneRuns) {
    const TroubleshootingRow it = row(R"(`-d` says "Only one instance", but none runs)");
    endBy(SIGKILL);
    EXPECT_THAT(driver.run({"-d"}).errors, HasSubstr("Only one instance"));
    EXPECT_EQ(it.cure, "`znorb-clean`");
    EXPECT_EQ(clean().end, exitedWith(0));
    expectAStartToWork();
}

TEST_F(Troubleshooting, StopReturns255WithItsMessage) {
    (void)row(R"(`-stop` returns 255)");
    ASSERT_TRUE(driver.startServing());
    EXPECT_THAT(driver.run({"-stop"}), resultIs(exitedWith(255), stopped, _));
    EXPECT_EQ(driver.waitForDaemon(), exitedWith(255));
}

TEST_F(Troubleshooting, StopReturns255Silently) {
    const TroubleshootingRow it = row(R"(`-stop` returns 255 and prints nothing)");
    endBy(SIGKILL);
    const ProgramResult stop = driver.run({"-stop"});
    EXPECT_EQ(stop.end, exitedWith(255));
    EXPECT_EQ(stop.output + stop.errors, "");
    EXPECT_EQ(quoted(it.cure), "znorb-clean");
    EXPECT_EQ(clean().end, exitedWith(0));
    EXPECT_EQ(driver.run({"-stop"}).end, exitedWith(2));
}

TEST_F(Troubleshooting, StopWaits) {
    (void)row(R"(`-stop` waits)");
    ASSERT_TRUE(driver.startServing());
    auto silent = std::make_unique<LocalConnection>(LocalConnection::toPath(socketPath));
    ChildProcess stop(driver.launch({"-stop"}));
    EXPECT_EQ(stop.waitForEnd(Milliseconds(500)), stillRunning());
    silent.reset();
    EXPECT_EQ(stop.waitForEnd(), exitedWith(255));
    EXPECT_EQ(stop.output(), stopped);

    ASSERT_TRUE(driver.startServing());
    auto client = std::make_unique<ListeningPeer>(PeerScript{58, {}, true});
    ASSERT_TRUE(enterClient(0, client->port()));
    ChildProcess second(driver.launch({"-stop"}));
    EXPECT_EQ(second.waitForEnd(Milliseconds(500)), stillRunning());
    client.reset();
    EXPECT_EQ(second.waitForEnd(), exitedWith(255));
    EXPECT_EQ(second.output(), stopped);
}

TEST_F(Troubleshooting, StopWaitsAndTheDaemonIsTerminated) {
    ASSERT_TRUE(driver.startServing());
    const LocalConnection silent = LocalConnection::toPath(socketPath);
    ChildProcess stop(driver.launch({"-stop"}));
    EXPECT_EQ(stop.waitForEnd(Milliseconds(200)), stillRunning());
    EXPECT_EQ(driver.endBy(SIGTERM), exitedWith(10));
    EXPECT_EQ(stop.waitForEnd(), exitedWith(255));
    EXPECT_EQ(clean().end, exitedWith(0));
    expectAStartToWork();
}

TEST_F(Troubleshooting, StopReturns2ThoughItRuns) {
    (void)row(R"(`-stop` returns 2, but it runs)");
    {
        const std::unique_ptr<ChildProcess> tester = driver.startServingConsole();
        EXPECT_EQ(driver.run({"-stop"}).end, exitedWith(2));
        ASSERT_TRUE(tester->writeInput("q\n"));
        EXPECT_EQ(tester->waitForEnd(), exitedWith(255));
    }
    ASSERT_TRUE(driver.startServing());
    const pid_t first = driver.daemon();
    ASSERT_EQ(unlink(lockFile), 0); // as it was for a second start before the first had made it
    ASSERT_TRUE(driver.start());
    ASSERT_EQ(driver.waitForDaemon(), exitedWith(255));
    EXPECT_EQ(driver.run({"-stop"}).end, exitedWith(2));
    EXPECT_EQ(daemons(), std::vector<pid_t>{first});
    EXPECT_EQ(askDaemon("QUIT"), "0");
    EXPECT_TRUE(waitUntil([this]() { return daemons().empty(); }));
}

/// Starts a daemon without a client program, and has it become two.
void makeTwo(DaemonDriver& driver) {
    ASSERT_EQ(unlink(driver.client().c_str()), 0);
    ASSERT_TRUE(driver.startServing());
    EXPECT_TRUE(askDaemon("GET|en").has_value());
    EXPECT_TRUE(waitUntil([&driver]() { return processesRunning(driver.program()).size() == 2; }));
}

/// Whether every thread of the process is in this state.
bool areAllThreads(pid_t process, const std::string& state) {
    const std::string tasks = "/proc/" + std::to_string(process) + "/task";
    const std::vector<std::string> threads = namesIn(tasks);
    return !threads.empty() && std::all_of(threads.begin(), threads.end(), [&](const std::string& thread) {
        const std::string stat = readFile(tasks + "/" + thread + "/stat");
        return stat.substr(stat.rfind(')') + 2, 1) == state;
    });
}

TEST_F(Troubleshooting, StopReturns3) {
    (void)row(R"(`-stop` returns 3)");
    makeTwo(driver);
    ASSERT_EQ(kill(driver.daemon(), SIGSTOP), 0); // so that the second one answers
    ASSERT_TRUE(waitUntil([this]() { return areAllThreads(driver.daemon(), "T"); }));
    EXPECT_EQ(driver.run({"-stop"}).end, exitedWith(3));
    terminateAll();
    EXPECT_EQ(driver.waitForDaemon(), exitedWith(10));
    installTheClient();
    EXPECT_FALSE(exists(lockFile));
    EXPECT_EQ(clean().end, exitedWith(0));
    expectAStartToWork();
}

/// Whether a daemon in the directory starts clients, rather than become two.
bool startsClientsFrom(const std::string& directory) {
    DaemonDriver driver(directory);
    EXPECT_TRUE(driver.startServing());
    EXPECT_EQ(askDaemon("GET|en").value_or("").substr(0, 1), "0");
    const auto isSecondAtRest = [&driver](pid_t process) { // a client that is not one yet runs
        return process != driver.daemon() && areAllThreads(process, "S");
    };
    EXPECT_TRUE(waitUntil([&]() {
        const std::vector<pid_t> daemons = processesRunning(driver.program());
        return !driver.clients().empty() || std::any_of(daemons.begin(), daemons.end(), isSecondAtRest);
    }));
    return !driver.clients().empty();
}

TEST(TroubleshootingOfPaths, NoClientFrom80BytesOn) {
    const std::string start = "/opt/zn/";
    EXPECT_TRUE(startsClientsFrom(start + std::string(79 - start.size(), 'x')));
    EXPECT_FALSE(startsClientsFrom(start + std::string(80 - start.size(), 'x')));
}

TEST_F(Troubleshooting, NoClientWithoutItsProgram) {
    (void)row(R"(`GET` is answered, but no client comes)");
    makeTwo(driver);
    EXPECT_THAT(driver.clients(), IsEmpty());
    installTheClient();
    (void)driver.run({"-stop"});
    terminateAll();
    EXPECT_EQ(clean().end, exitedWith(0));
    ASSERT_TRUE(driver.startServing());
    EXPECT_EQ(askDaemon("GET|en"), "0");
    EXPECT_TRUE(DaemonDriver::waitForClient(0));
}

TEST_F(Troubleshooting, GetIsAnsweredZeroAgain) {
    const TroubleshootingRow it = row(R"(`GET` is answered 0 again and again)");
    ASSERT_TRUE(driver.startServing());
    for (unsigned index = 0; index < ZNORB_TABLE_CAPACITY; ++index) {
        ASSERT_TRUE(enterClient(index, 0)); // nobody is behind them
    }
    EXPECT_EQ(askDaemon("GET|en"), "0");
    EXPECT_EQ(askDaemon("GET|en"), "0");
    EXPECT_THAT(driver.clients(), IsEmpty());
    EXPECT_EQ(it.cure, "`-stop`, then `-d`.");
    EXPECT_EQ(driver.run({"-stop"}).output, stopped);
    ASSERT_TRUE(driver.startServing());
    EXPECT_EQ(askDaemon("GET|en"), "0");
    EXPECT_EQ(askDaemon("GET|en"), "1");
}

TEST_F(Troubleshooting, NcWithEchoDoesNothing) {
    const TroubleshootingRow it = row(R"(`echo QUIT | nc -U` is answered 0, and nothing happens)");
    ZNORB_SKIP_IF(inShell("nc -h 2>&1 | grep -q OpenBSD").end != exitedWith(0))
        << "OpenBSD's nc is not installed";
    ASSERT_TRUE(driver.startServing());
    EXPECT_EQ(inShell(quoted(it.symptom) + " " + socketPath).output, "0");
    EXPECT_EQ(askDaemon("PRINT"), "0");
    EXPECT_EQ(inShell(quoted(it.cure)).output, "0");
    EXPECT_EQ(driver.waitForDaemon(), exitedWith(255));
}

TEST_F(Troubleshooting, ThereIsNoLog) {
    (void)row(R"(There is no log)");
    ASSERT_TRUE(driver.startServing());
    EXPECT_EQ(askDaemon("GET|en"), "0");
    EXPECT_EQ(driver.run({"-stop"}).output, stopped);
    EXPECT_THAT(driver.newNames(), SizeIs(1)); // the socket
    const std::unique_ptr<ChildProcess> tester = driver.startTestConsole();
    EXPECT_TRUE(tester->waitForOutput("Unified responder starting\r\n"));
}

TEST_F(Troubleshooting, TestModeIsBusy) {
    const TroubleshootingRow it = row(R"(`-test` keeps a processor busy)");
    {
        const ChildProcess tester(driver.launch({"-test"}));
        ASSERT_TRUE(tester.waitForOutput("Unified responder waiting for connections\r\n"));
        EXPECT_FALSE(watchProcessor(tester.pid(), Milliseconds(500)).isWaiting());
    }
    (void)unlink(tableFile);
    const ChildProcess shell(shellScript(driver.directory(), quoted(it.cure)));
    ASSERT_TRUE(shell.waitForOutput("Unified responder waiting for connections\r\n"));
    ASSERT_THAT(daemons(), SizeIs(1));
    EXPECT_TRUE(watchProcessor(daemons()[0], Milliseconds(500)).isWaiting());
    for (const pid_t child : childrenOf(shell.pid())) {
        (void)kill(child, SIGKILL);
    }
}

TEST_F(Troubleshooting, TheWebConsoleDoesNotShowIt) {
    const TroubleshootingRow it = row(R"(The web console does not show the application)");
    const std::string console = "/opt/zn/znwbx";
    const std::string source = driver.directory().substr(0, driver.directory().rfind('/')) + "/WBX/znorb.xml";
    writeFile(source, "<application/>\n");
    ASSERT_TRUE(driver.startServing());
    writeFile(console + "/webapp/other.xml", "");
    writeFile(console + "/data/htdocs/index.htm", "");
    EXPECT_EQ(askDaemon("PRINT"), "0");
    EXPECT_FALSE(exists(console + "/webapp/znorb.xml"));
    EXPECT_EQ(it.cure.substr(0, it.cure.find(':')), "`-stop`, then `-d`");
    EXPECT_EQ(driver.run({"-stop"}).output, stopped);
    ASSERT_TRUE(driver.startServing());
    EXPECT_TRUE(exists(console + "/webapp/znorb.xml"));
    EXPECT_EQ(runProgram(shellScript("", "rm -r " + console + " " + source.substr(0, source.rfind('/')))).end,
              exitedWith(0));
}

} // namespace
