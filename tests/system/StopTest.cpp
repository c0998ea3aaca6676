/// `-stop` on the real executable, against a real daemon and against impostors that hold its names.

#include "tests/support/DaemonDriver.h"
#include "tests/support/Files.h"
#include "tests/support/ListeningPeer.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Results.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <semaphore.h>

#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace ZNORBTEST;
using testing::ElementsAre;

constexpr const char* stoppedMessage = "The ZN Orbisan daemon has stopped.\n";

class Stop : public testing::Test {
protected:
    DaemonDriver driver;
};

/// What a daemon shows to `-stop`: the held lock, and a socket that takes "QUIT" and answers it.
class Impostor {
public:
    /// An empty reply closes the connection without one.
    explicit Impostor(const std::string& reply)
        : m_lock(sem_open("/znorb.appLock", O_CREAT | O_EXCL, 0644, 0)),
          m_server({4, reply.empty() ? std::vector<std::string>{} : std::vector<std::string>{reply}, false},
                   "/var/run/znorb.socket") {
        EXPECT_NE(m_lock, SEM_FAILED);
    }
    ~Impostor() {
        if (m_release.joinable()) {
            m_release.join();
        }
        (void)sem_close(m_lock);
        (void)sem_unlink("/znorb.appLock");
    }
    Impostor(const Impostor&) = delete;
    Impostor& operator=(const Impostor&) = delete;

    /// Lets go of the lock when the request has been answered and `delay` has passed.
    void releaseAfterAnswer(Milliseconds delay) {
        m_release = std::thread([this, delay]() {
            (void)m_server.waitForServed(1);
            std::this_thread::sleep_for(delay);
            (void)sem_post(m_lock);
        });
    }

    std::vector<std::string> received() const { return m_server.received(); }

private:
    sem_t* m_lock;
    ListeningPeer m_server;
    std::thread m_release;
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
    ASSERT_EQ(kill(driver.daemon(), SIGKILL), 0);
    ASSERT_EQ(driver.waitForDaemon(), endedBy(SIGKILL));
    EXPECT_THAT(driver.run({"-stop"}), resultIs(exitedWith(255)));
}

TEST_F(Stop, SendsQuitAloneAndTakesAnyReply) {
    Impostor daemon("anything at all");
    daemon.releaseAfterAnswer(Milliseconds(0));
    EXPECT_THAT(driver.run({"-stop"}), resultIs(exitedWith(255), stoppedMessage));
    EXPECT_THAT(daemon.received(), ElementsAre("QUIT"));
}

TEST_F(Stop, IsSilentWhenTheDaemonClosesWithoutAReply) {
    const Impostor daemon("");
    EXPECT_THAT(driver.run({"-stop"}), resultIs(exitedWith(255)));
}

// The exact count of its sleeps is the unit test's.
TEST_F(Stop, WaitsForADaemonThatTakesNearlyFiveSeconds) {
    Impostor daemon("0");
    daemon.releaseAfterAnswer(Milliseconds(4500));
    EXPECT_THAT(driver.run({"-stop"}), resultIs(exitedWith(255), stoppedMessage));
}

TEST_F(Stop, IsNotHeldUpByANameThatStays) {
    Impostor daemon("0");
    daemon.releaseAfterAnswer(Milliseconds(0));
    EXPECT_THAT(driver.run({"-stop"}), resultIs(exitedWith(255), stoppedMessage));
    EXPECT_TRUE(exists("/dev/shm/sem.znorb.appLock"));
}

TEST_F(Stop, GivesUpWithThreeAfterFiftySleeps) {
    const Impostor daemon("0");
    const auto before = std::chrono::steady_clock::now();
    EXPECT_THAT(
        driver.run({"-stop"}),
        resultIs(exitedWith(3), "", "The ZN Orbisan daemon did not respond to the stop command in time.\n"));
    EXPECT_GE(std::chrono::steady_clock::now() - before, Milliseconds(5000));
}

TEST_F(Stop, ReleasesItsOwnProbeOfTheLock) {
    Impostor daemon("0");
    daemon.releaseAfterAnswer(Milliseconds(0));
    ASSERT_EQ(driver.run({"-stop"}).end, exitedWith(255));
    sem_t* lock = sem_open("/znorb.appLock", 0);
    ASSERT_NE(lock, SEM_FAILED);
    int count = -1;
    EXPECT_EQ(sem_getvalue(lock, &count), 0);
    EXPECT_EQ(count, 1);
    (void)sem_close(lock);
}

} // namespace
