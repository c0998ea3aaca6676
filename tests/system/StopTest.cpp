/// `-stop` on the real executable, against a real daemon and against impostors that hold its names.

#include "tests/support/DaemonDriver.h"
#include "tests/support/Files.h"
#include "tests/support/ListeningPeer.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Matchers.h"
#include "tests/support/PlayedDaemon.h"
#include "tests/support/Results.h"

#include <chrono>
#include <csignal>

namespace {

using namespace ZNORBTEST;

constexpr const char* stoppedMessage = "The ZN Orbisan daemon has stopped.\n";

class Stop : public testing::Test {
protected:
    DaemonDriver driver;
};

TEST_F(Stop, EndsTheDaemonAndReturns255) {
    ASSERT_TRUE(driver.startServing());
    EXPECT_THAT(driver.run({"-stop"}), resultIs(exitedWith(255), stoppedMessage));
    EXPECT_EQ(driver.waitForDaemon(), exitedWith(255));
}

TEST_F(Stop, LeavesTheSocketFileOnlyAndTheNextStartSucceedsAtOnce) {
    for (int round = 0; round < 5; ++round) {
        ASSERT_TRUE(driver.startServing()) << round;
        ASSERT_EQ(driver.run({"-stop"}).output, stoppedMessage) << round;
        // At once, without waiting for the daemon's end: -stop has waited for the names.
        EXPECT_THAT(driver.newNames(), ElementsAre("/run/znorb.socket")) << round;
    }
    ASSERT_TRUE(driver.startServing());
}

TEST_F(Stop, WithoutADaemonSaysSoAndReturnsTwo) {
    EXPECT_THAT(driver.run({"-stop"}),
                resultIs(exitedWith(2), "", "The ZN Orbisan daemon is not running.\n"));
}

TEST_F(Stop, FindsTheLockOfAKilledDaemonAndReturns255Silently) {
    ASSERT_TRUE(driver.start());
    ASSERT_EQ(driver.endBy(SIGKILL), endedBy(SIGKILL));
    EXPECT_THAT(driver.run({"-stop"}), resultIs(exitedWith(255)));
}

TEST_F(Stop, SendsQuitAloneTakesAnyReplyAndReleasesItsOwnProbeOfTheLock) {
    PlayedDaemon daemon("anything at all");
    daemon.releaseAfterAnswer(Milliseconds(0));
    EXPECT_THAT(driver.run({"-stop"}), resultIs(exitedWith(255), stoppedMessage));
    EXPECT_THAT(daemon.received(), ElementsAre("QUIT"));
    EXPECT_EQ(Onlooker(daemonLock).count(), 1) << "the name stays, which holds nobody up";
}

TEST_F(Stop, IsSilentWhenTheDaemonClosesWithoutAReply) {
    const PlayedDaemon daemon("");
    EXPECT_THAT(driver.run({"-stop"}), resultIs(exitedWith(255)));
}

// The exact count of its sleeps is the unit test's.
TEST_F(Stop, WaitsForADaemonThatTakesNearlyFiveSeconds) {
    PlayedDaemon daemon("0");
    daemon.releaseAfterAnswer(Milliseconds(4500));
    EXPECT_THAT(driver.run({"-stop"}), resultIs(exitedWith(255), stoppedMessage));
}

TEST_F(Stop, GivesUpWithThreeAfterFiftySleeps) {
    const PlayedDaemon daemon("0");
    const auto before = std::chrono::steady_clock::now();
    EXPECT_THAT(
        driver.run({"-stop"}),
        resultIs(exitedWith(3), "", "The ZN Orbisan daemon did not respond to the stop command in time.\n"));
    EXPECT_GE(std::chrono::steady_clock::now() - before, Milliseconds(5000));
}

} // namespace
