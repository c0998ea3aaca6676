/// `-test` on the real executable, its keys through a pipe.

#include "tests/support/DaemonDriver.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Matchers.h"
#include "tests/support/SharedTable.h"

#include <algorithm>
#include <csignal>

namespace {

using namespace ZNORBTEST;

constexpr const char* greeting = "Press: p, then Enter to show stats.\r\n"
                                 "Press: q, then Enter to exit.\r\n"
                                 "Unified responder starting\r\n";
constexpr const char* waiting = "Unified responder waiting for connections\r\n";

class Console : public testing::Test {
protected:
    void SetUp() override {
        console = driver.startServingConsole();
        ASSERT_TRUE(console->waitForOutput(waiting)); // it says so right before it listens
    }

    DaemonDriver driver;
    std::unique_ptr<ChildProcess> console;
};

TEST_F(Console, ShowsTheLogWithNothingOfAFreshTableAndEndsOnQWith255) {
    ASSERT_EQ(askDaemon("PRINT"), "0");
    ASSERT_TRUE(console->writeInput("q\n"));
    EXPECT_EQ(console->waitForEnd(), exitedWith(255));
    EXPECT_EQ(console->output(), std::string(greeting) + waiting + "Received QUIT command\r\n" +
                                     "Unified responder stopped\r\n");
    EXPECT_EQ(console->errors(), "");
    EXPECT_THAT(driver.newNames(), ElementsAre("/run/znorb.socket"));
}

TEST_F(Console, ListsTheTableOnPWithTheClientsIdentifiers) {
    ASSERT_EQ(askDaemon("GET|en"), "0");
    ASSERT_EQ(askDaemon("GET|de"), "1");
    ASSERT_TRUE(DaemonDriver::waitForClient(0));
    ASSERT_TRUE(DaemonDriver::waitForClient(1));
    const znorb_shared_table table = sharedTable();
    ASSERT_TRUE(console->writeInput("p\n"));
    EXPECT_TRUE(
        console->waitForOutput("Entry:  0, Valid?: Y, ID: " + identifierOf(table.entries[0]) + "\r\n"));
    EXPECT_TRUE(
        console->waitForOutput("Entry:  1, Valid?: Y, ID: " + identifierOf(table.entries[1]) + "\r\n"));
    EXPECT_THAT(console->output(), HasSubstr("Received GET command\r\nNew process created: " +
                                             std::to_string(driver.clients()[0]) + "\r\n"));
}

TEST_F(Console, CountsKeysAsTheyArriveSoThatPAndQOnOneLinePrintAndQuit) {
    ASSERT_EQ(askDaemon("GET|en"), "0");
    ASSERT_TRUE(console->writeInput("pq\n"));
    EXPECT_EQ(console->waitForEnd(), exitedWith(255));
    EXPECT_THAT(console->output(), HasSubstr("Entry:  0, Valid?: Y, ID: "));
}

TEST_F(Console, IgnoresEveryOtherKey) {
    ASSERT_TRUE(console->writeInput("PQ xyz\n\t"));
    ASSERT_TRUE(console->writeInput("q\n"));
    EXPECT_EQ(console->waitForEnd(), exitedWith(255));
    EXPECT_THAT(console->output(), Not(HasSubstr("Entry")));
}

TEST_F(Console, TakesNoLockAndIsEndedBySigtermAsAnyProgram) {
    EXPECT_FALSE(exists("/dev/shm/sem.znorb.appLock"));
    EXPECT_EQ(driver.run({"-stop"}).end, exitedWith(2));
    ASSERT_EQ(kill(console->pid(), SIGTERM), 0);
    EXPECT_EQ(console->waitForEnd(), endedBy(SIGTERM));
}

TEST_F(Console, GivesItsClientsTheVerboseOption) {
    ASSERT_EQ(askDaemon("GET|en"), "0");
    ASSERT_TRUE(DaemonDriver::waitForClient(0));
    std::string words = readFile("/proc/" + std::to_string(driver.clients()[0]) + "/cmdline");
    std::replace(words.begin(), words.end(), '\0', ' ');
    EXPECT_EQ(words, driver.client() + " -v -lang en -wbx -index 0 ");
}

TEST(ConsoleWithoutInput, GoesOnReadingAndEndsOnlyByASignal) {
    const DaemonDriver driver;
    ChildProcess console(driver.launch({"-test"})); // its input is at its end at once
    ASSERT_TRUE(console.waitForOutput(waiting));
    EXPECT_TRUE(waitUntil([]() { return askDaemon("PRINT") == "0"; })); // it says so right before it listens
    EXPECT_EQ(console.waitForEnd(Milliseconds(0)), stillRunning());
    ASSERT_EQ(kill(console.pid(), SIGTERM), 0);
    EXPECT_EQ(console.waitForEnd(), endedBy(SIGTERM));
}

TEST(ConsoleWithoutStandardDescriptors, KeepsItsLogOutOfTheReplies) {
    const DaemonDriver driver;
    Launch launch = driver.launch({"-c", "exec '" + driver.program() + "' -test <&- >&- 2>&-"});
    launch.program = "/bin/sh";
    ChildProcess console(launch);
    ASSERT_TRUE(waitUntil([]() { return askDaemon("PRINT") == "0"; }));
    EXPECT_EQ(askDaemon("GET|en"), "0");
    ASSERT_EQ(kill(console.pid(), SIGTERM), 0);
    EXPECT_EQ(console.waitForEnd(), endedBy(SIGTERM));
}

TEST(ConsoleBesideADaemon, FindsTheTableInItsWayAndStopsTheDaemonOnQ) {
    DaemonDriver driver;
    ASSERT_TRUE(driver.startServing());
    const auto console = driver.startTestConsole();
    EXPECT_TRUE(console->waitForOutput("Unable to get to shared global variables\r\n"));
    ASSERT_TRUE(console->writeInput("q\n"));
    EXPECT_EQ(console->waitForEnd(), exitedWith(255));
    EXPECT_EQ(driver.waitForDaemon(), exitedWith(255));
}

TEST(ConsoleOnAStaleTable, SaysSoAndTheNextOneWorks) {
    const DaemonDriver driver;
    writeFile("/dev/shm/znorb.shvars", "stale");
    const auto console = driver.startTestConsole();
    EXPECT_TRUE(console->waitForOutput("Unable to get to shared global variables\r\n"
                                       "Unified responder stopped\r\n"));
    ASSERT_TRUE(console->writeInput("q\n"));
    EXPECT_EQ(console->waitForEnd(), exitedWith(255));
    EXPECT_FALSE(exists("/dev/shm/znorb.shvars"));
    const auto next = driver.startTestConsole();
    EXPECT_TRUE(next->waitForOutput(waiting));
}

} // namespace
