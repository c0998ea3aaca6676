/// SIGTERM to the real daemon: status 10 and the lock's name gone, at whatever it was doing.

#include "tests/sandbox/Processes.h"
#include "tests/sandbox/Sandbox.h"
#include "tests/support/DaemonDriver.h"
#include "tests/support/Files.h"
#include "tests/support/ListeningPeer.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/PlayedDaemon.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/SharedTable.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

namespace {

using namespace ZNORBTEST;

class Termination : public testing::Test {
protected:
    /// Terminates the daemon and looks at what every such end has in common.
    void terminate() {
        EXPECT_EQ(driver.endBy(SIGTERM), exitedWith(10));
        EXPECT_FALSE(exists(lockFile));
    }

    DaemonDriver driver;
};

TEST_F(Termination, RightAfterTheStartDoesTheSame) {
    for (int round = 0; round < 10; ++round) {
        ASSERT_TRUE(driver.start()) << round;
        terminate();
        (void)unlink(tableFile);
    }
}

TEST_F(Termination, PostsTheLockBackForThoseWhoHaveItOpen) {
    ASSERT_TRUE(driver.start());
    const Onlooker lock(daemonLock);
    ASSERT_TRUE(lock.isOpen());
    terminate();
    EXPECT_EQ(lock.count(), 1);
}

TEST_F(Termination, BySeveralSignalsAtOncePostsTheLockOnce) {
    for (int round = 0; round < 50; ++round) {
        ASSERT_TRUE(driver.start()) << round;
        const Onlooker lock(daemonLock);
        ASSERT_TRUE(lock.isOpen());
        for (int number = 0; number < 3; ++number) {
            (void)kill(driver.daemon(), SIGTERM);
        }
        EXPECT_EQ(driver.waitForDaemon(), exitedWith(10));
        EXPECT_EQ(lock.count(), 1) << round;
        (void)unlink(tableFile);
    }
}

TEST_F(Termination, OfADaemonThatProcessOneStartedDoesTheSame) {
    ZNORB_SKIP_IF(currentSandboxMode() != SandboxMode::Isolated)
        << "only in namespaces of its own can a test be started by process 1";
    const std::unique_ptr<ChildProcess> daemon = driver.startUnderInit();
    ASSERT_EQ(kill(daemon->pid(), SIGTERM), 0);
    EXPECT_EQ(daemon->waitForEnd(), exitedWith(10));
    EXPECT_FALSE(exists(lockFile));
}

TEST_F(Termination, OfAnIdleDaemonLeavesTheTableSoThatOneStartFailsAndTheNextSucceeds) {
    ASSERT_TRUE(driver.startServing());
    terminate();
    EXPECT_TRUE(exists(tableFile));

    ASSERT_TRUE(driver.start());
    EXPECT_EQ(driver.waitForDaemon(), exitedWith(255));
    EXPECT_FALSE(exists(tableFile));

    ASSERT_TRUE(driver.startServing());
}

TEST_F(Termination, LeavesTheClientsRunning) {
    ASSERT_TRUE(driver.startServing());
    ASSERT_EQ(askDaemon("GET|en"), "0");
    ASSERT_TRUE(DaemonDriver::waitForClient(0));
    terminate();
    EXPECT_EQ(driver.clients().size(), 1U);
}

TEST_F(Termination, DuringASweepThatWaitsForASilentClientDoesNotWaitForIt) {
    ASSERT_TRUE(driver.startServing());
    ASSERT_EQ(askDaemon("GET|en"), "0");
    ASSERT_TRUE(DaemonDriver::waitForClient(0));

    // A client that takes the exit request and never answers.
    const ListeningPeer silent({58, {}, true});
    ASSERT_TRUE(enterClient(0, silent.port()));
    LocalConnection quit = LocalConnection::toPath(socketPath);
    ASSERT_TRUE(quit.send("QUIT"));
    ASSERT_TRUE(silent.waitForServed(1));
    terminate();
}

TEST_F(Termination, WhileARequesterHoldsTheSocketDoesNotWaitForIt) {
    ASSERT_TRUE(driver.startServing());
    const LocalConnection silent = LocalConnection::toPath(socketPath);
    ASSERT_TRUE(silent.isConnected());
    terminate();
}

// Not in the ThreadSanitizer build: after the fork of a process with threads it handles no signal any more.
#if !ZNORB_THREAD_SANITIZER
TEST_F(Termination, IsAnsweredByTheSecondDaemonOfAFailedLaunchAsWell) {
    ASSERT_TRUE(driver.startServing());
    ASSERT_EQ(unlink(driver.client().c_str()), 0);
    ASSERT_TRUE(askDaemon("GET|en").has_value());
    std::vector<pid_t> daemons;
    ASSERT_TRUE(waitUntil([&]() { return (daemons = processesRunning(driver.program())).size() == 2; }));
    const pid_t second = daemons[0] == driver.daemon() ? daemons[1] : daemons[0];
    terminate();
    ASSERT_EQ(kill(second, SIGTERM), 0);
    EXPECT_EQ(waitForEndOf(second), exitedWith(10));
}
#endif

TEST_F(Termination, OfTheInvokingProcessEndsItAsUsual) {
    // It waits for the daemon without a limit, but is no daemon and takes SIGTERM like any other program.
    ChildProcess invoking(driver.launch({"-d"}));
    (void)kill(invoking.pid(), SIGTERM);
    const ProcessEnd end = invoking.waitForEnd();
    EXPECT_TRUE(end == endedBy(SIGTERM) || end == exitedWith(0)) << end;
}

TEST_F(Termination, ByInterruptIsNotCaught) {
    ASSERT_TRUE(driver.start());
    EXPECT_EQ(driver.endBy(SIGINT), endedBy(SIGINT));
    EXPECT_TRUE(exists(lockFile));
}

} // namespace
