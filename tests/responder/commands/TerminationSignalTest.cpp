#include "responder/commands/TerminationSignal.h"

#include "common/threads/SignalMask.h"
#include "responder/Globals.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Onlooker.h"
#include "tests/support/PlayedDaemon.h"
#include "tests/support/Rows.h"
#include "tests/support/SignalMask.h"
#include "tests/support/Skipping.h"
#include "tests/support/StandIns.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <semaphore.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <thread>

namespace {

using namespace ZNORBRESPONDER;
using namespace ORBCOMMON;
using namespace ZNORBTEST;

constexpr int survived = 77;

/// Somebody else's handle on the lock, as a stopping process has it. Removes the name in the end.
class OtherHandle {
public:
    ~OtherHandle() { (void)sem_unlink(daemonLock); }

    /// Waits for the lock to be made by somebody and opens it.
    void open() {
        ASSERT_TRUE(waitUntil([this]() { return m_handle.emplace(daemonLock).isOpen(); }));
    }

    void create(unsigned count) { ASSERT_TRUE(m_handle.emplace(daemonLock, count).isOpen()); }

    [[nodiscard]] int count() const { return m_handle->count(); }

private:
    std::optional<Onlooker> m_handle;
};

/// Code that ends its process, in a child. Steps let the test and the child take turns.
class TerminationSignal : public testing::Test {
protected:
    struct Steps {
        std::atomic<int> reached;
        std::atomic<int> allowed;
    };

    /// In the child: tells that it has come here.
    void reach(int step) { steps->reached = step; }

    /// In the child: tells, and waits for the test's permission to go on.
    void reachAndWait(int step) {
        reach(step);
        while (steps->allowed < step) {
            (void)usleep(1000);
        }
    }

    void awaitStep(int step) {
        ASSERT_TRUE(waitUntil([this, step]() { return steps->reached >= step; }));
    }

    void allow(int step) { steps->allowed = step; }

    const SharedReport<Steps> steps;
    OtherHandle other;
};

TEST_F(TerminationSignal, EndsTheProcessWithStatusTenAndRemovesTheName) {
    ForkedChild daemon([this]() {
        installTerminationHandler();
        (void)appLock.create(true);
        reach(1);
        (void)mainExitBarrier.wait();
        return survived;
    });
    awaitStep(1);
    other.open();
    EXPECT_EQ(other.count(), 0);
    ASSERT_EQ(kill(daemon.pid(), SIGTERM), 0);
    EXPECT_EQ(daemon.waitForEnd(), exitedWith(10));
    EXPECT_FALSE(exists(lockFile));
    EXPECT_EQ(other.count(), 1) << "whoever still has it open sees it free";
}

/// What a process does, and how it ends by that. The lock's name is gone then.
using Doing = Row<void (*)(), ProcessEnd>;

class EndOfAProcess : public TerminationSignal, public testing::WithParamInterface<Doing> {};

TEST_P(EndOfAProcess, IsAsExpectedAndTheNameIsGone) {
    expectEndOfForked(GetParam().expected, []() {
        GetParam().given();
        return survived;
    });
    EXPECT_FALSE(exists(lockFile));
}

const Doing doings[] = {
    {"NothingToRemoveIsNoHindrance",
     []() {
         installTerminationHandler();
         (void)raise(SIGTERM);
     },
     exitedWith(10)},
    {"HandlerDoesTheSameWhenItIsCalled",
     []() {
         (void)appLock.create(true);
         ExitSignalHandler(SIGTERM);
     },
     exitedWith(10)},
    {"NoDestructorRuns",
     []() {
         (void)std::atexit([]() { _exit(survived); });
         installTerminationHandler();
         (void)raise(SIGTERM);
     },
     exitedWith(10)},
    {"OtherSignalsKeepTheirActions",
     []() {
         (void)std::signal(SIGINT, SIG_DFL);
         installTerminationHandler();
         (void)raise(SIGINT);
     },
     endedBy(SIGINT)},
    // Held back already, it meets the release as one that has just come.
    {"SignalThatComesDuringTheReleaseEndsTheProcessAfterIt",
     []() {
         installTerminationHandler();
         (void)appLock.create(true);
         const sigset_t mask = holdTermination();
         (void)raise(SIGTERM);
         releaseApplicationLock();
         restoreSignalMask(mask);
     },
     exitedWith(10)},
};

INSTANTIATE_TEST_SUITE_P(TerminationSignal, EndOfAProcess, testing::ValuesIn(doings), rowName);

TEST_F(TerminationSignal, SecondThreadInTheHandlerWaitsWhileTheFirstEndsTheProcess) {
    expectEndOfForked(exitedWith(10), [this]() {
        (void)appLock.create(true);
        std::atomic<bool> isUnlinking = false;
        std::atomic<bool> isPausing = false;
        const InPlaceOf<unlink> removal([&](const char* path) {
            isUnlinking = true;
            while (!isPausing) {
                (void)usleep(1000);
            }
            return unlink(path);
        });
        const InPlaceOf<pause> rest([&isPausing]() {
            isPausing = true;
            return pause();
        });
        const auto handle = []() { ExitSignalHandler(SIGTERM); };
        std::thread(handle).detach();
        while (!isUnlinking) {
            (void)usleep(1000);
        }
        reach(1);
        handle();
        return survived;
    });
    EXPECT_EQ(steps->reached, 1);
    EXPECT_FALSE(exists(lockFile));
}

TEST_F(TerminationSignal, CopyThatWasMadeWhileTheProcessEndedEndsByItsOwnSignal) {
    const SharedReport<ProcessEnd> copy;
    expectEndOfForked(exitedWith(10), [&copy]() {
        (void)appLock.create(true);
        const InPlaceOf<unlink> removal([&copy](const char* path) {
            *copy = endOfForked([]() {
                ExitSignalHandler(SIGTERM);
                return survived;
            });
            return unlink(path);
        });
        ExitSignalHandler(SIGTERM);
        return survived;
    });
    EXPECT_EQ(*copy, exitedWith(10));
}

TEST_F(TerminationSignal, ProcessOneOfANamespaceEndsAsOthersDo) {
    constexpr int noNamespace = 9;
    const ProcessEnd end = endOfForked([]() {
        return unshare(CLONE_NEWPID) == 0 ? endOfForked([]() {
                                                ExitSignalHandler(SIGTERM);
                                                return survived;
                                            }).number
                                          : noNamespace;
    });
    ZNORB_SKIP_IF(end == exitedWith(noNamespace)) << "needs a pid namespace";
    EXPECT_EQ(end, exitedWith(10));
}

TEST_F(TerminationSignal, LockThatIsNotHeldIsNotPostedButItsNameGoes) {
    expectEndOfForked(exitedWith(10), [this]() {
        installTerminationHandler();
        (void)appLock.create(false);
        other.open();
        appLock.unlock(false);
        (void)raise(SIGTERM);
        return survived;
    });
    EXPECT_FALSE(exists(lockFile));
}

TEST_F(TerminationSignal, NameOfALockThatSomebodyElseMadeGoesUnposted) {
    other.create(0);
    expectEndOfForked(exitedWith(10), []() {
        installTerminationHandler();
        (void)appLock.create(true); // fails, and nobody asks
        (void)raise(SIGTERM);
        return survived;
    });
    EXPECT_FALSE(exists(lockFile));
    EXPECT_EQ(other.count(), 0);
}

TEST_F(TerminationSignal, ReleasingGivesTheLockBackAndRemovesItsName) {
    ForkedChild daemon([this]() {
        installTerminationHandler();
        (void)appLock.create(true);
        reachAndWait(1);
        releaseApplicationLock();
        return isHeldBack(currentMask()) ? 1 : 0;
    });
    awaitStep(1);
    other.open();
    allow(1);
    EXPECT_EQ(daemon.waitForEnd(), exitedWith(0)) << "the mask is as before";
    EXPECT_FALSE(exists(lockFile));
    EXPECT_EQ(other.count(), 1);
}

TEST_F(TerminationSignal, ReleasingRemovesANameThatSomebodyElseMade) {
    other.create(0);
    expectEndOfForked(exitedWith(0), []() {
        (void)appLock.create(true);
        releaseApplicationLock();
        return 0;
    });
    EXPECT_FALSE(exists(lockFile));
    EXPECT_EQ(other.count(), 0);
}

TEST_F(TerminationSignal, SignalDuringTheReleaseLeavesTheNextDaemonsNameAlone) {
    expectEndOfForked(exitedWith(10), [this]() {
        installTerminationHandler();
        (void)appLock.create(true);
        const InPlaceOf<sem_unlink> removal([this](const char* name) {
            const int result = sem_unlink(name);
            other.create(0);
            (void)raise(SIGTERM);
            return result;
        });
        releaseApplicationLock();
        return survived;
    });
    EXPECT_TRUE(exists(lockFile));
}

TEST_F(TerminationSignal, AfterTheReleaseItStillEndsWithStatusTenButLeavesTheNextDaemonsNameAlone) {
    ForkedChild daemon([this]() {
        installTerminationHandler();
        (void)appLock.create(true);
        releaseApplicationLock();
        reach(1);
        (void)mainExitBarrier.wait();
        return survived;
    });
    awaitStep(1);
    other.create(0);
    ASSERT_EQ(kill(daemon.pid(), SIGTERM), 0);
    EXPECT_EQ(daemon.waitForEnd(), exitedWith(10));
    EXPECT_TRUE(exists(lockFile));
    EXPECT_EQ(other.count(), 0);
}

} // namespace
