#include "responder/service/ResponderThread.h"

#include "common/log/Logger.h"
#include "responder/Globals.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Matchers.h"
#include "tests/support/ObservedThread.h"
#include "tests/support/ProcessEnd.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Scarcity.h"
#include "tests/support/SignalMask.h"
#include "tests/support/StandIns.h"
#include "tests/support/Waiting.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <thread>

namespace {

using ZNORBRESPONDER::mainExitBarrier;
using namespace ZNORBTEST;
using Responder = ZNORBRESPONDER::ResponderThread;

class ResponderThread : public testing::Test {
protected:
    ResponderThread() { (void)mainExitBarrier.reset(); }
    ~ResponderThread() override {
        (void)mainExitBarrier.reset();
        (void)unlink(socketPath);
        (void)unlink(tableFile);
    }

    static void start(Responder& responder) {
        responder.start();
        ASSERT_TRUE(waitUntil([]() { return askDaemon("are you there?") == "0"; }));
    }

    /// Acts on the responder's thread when it logs its last record: the exit event is set, the table still
    /// there.
    static void atTheLastRecord(const std::function<void()>& action) {
        onLogLine("Unified responder stopped", action);
    }

    /// The whole life, with the action in it.
    static void liveWith(const std::function<void()>& action) {
        atTheLastRecord(action);
        Responder responder;
        start(responder);
        EXPECT_EQ(askDaemon("QUIT"), "0");
        responder.awaitEnd();
    }

    static bool isBarrierSet() { return mainExitBarrier.timedWait(0); }

    const LogRecorder log;
};

TEST_F(ResponderThread, ServesUntilItIsToldToQuitAndItsEndCanBeAwaitedAgain) {
    Responder responder;
    start(responder);
    EXPECT_FALSE(isBarrierSet());
    EXPECT_EQ(askDaemon("QUIT"), "0");
    responder.awaitEnd();
    EXPECT_TRUE(isBarrierSet());
    responder.awaitEnd();
}

TEST_F(ResponderThread, WhenTheEndIsAwaitedNothingIsLeftToBeDone) {
    for (int i = 0; i < 20; ++i) {
        (void)mainExitBarrier.reset();
        Responder responder;
        start(responder);
        EXPECT_EQ(askDaemon("QUIT"), "0");
        responder.awaitEnd();
        ASSERT_FALSE(exists(tableFile));
        ASSERT_EQ(log.lines().back(), "Unified responder stopped");
    }
}

TEST_F(ResponderThread, AwaitBlocksWhileItServes) {
    Responder responder;
    start(responder);
    std::atomic<bool> isOver = false;
    std::thread waiter([&responder, &isOver]() {
        responder.awaitEnd();
        isOver = true;
    });
    EXPECT_FALSE(waitUntil([&isOver]() { return isOver.load(); }, std::chrono::milliseconds(100)));
    EXPECT_EQ(askDaemon("QUIT"), "0");
    waiter.join();
}

TEST_F(ResponderThread, AwaitBlocksAfterTheExitEventUntilTheThreadIsThrough) {
    std::atomic<bool> isOpen = false;
    atTheLastRecord([&isOpen]() { isOpen.wait(false); });
    Responder responder;
    start(responder);
    EXPECT_EQ(askDaemon("QUIT"), "0");
    ASSERT_TRUE(mainExitBarrier.wait());
    std::atomic<bool> isOver = false;
    std::thread waiter([&responder, &isOver]() {
        responder.awaitEnd();
        EXPECT_FALSE(exists(tableFile));
        isOver = true;
    });
    EXPECT_FALSE(waitUntil([&isOver]() { return isOver.load(); }, std::chrono::milliseconds(100)));
    isOpen = true;
    isOpen.notify_all();
    waiter.join();
}

std::atomic<bool> s_wasHeldAtTheEnd = false;

TEST_F(ResponderThread, TakesTerminationWhileItWorksAndNotAfterItsEnd) {
    pthread_key_t key = 0;
    ASSERT_EQ(pthread_key_create(&key,
                                 [](void* isEnded) {
                                     s_wasHeldAtTheEnd = isHeldBack(currentMask());
                                     static_cast<std::atomic<bool>*>(isEnded)->store(true);
                                 }),
              0);
    bool isHeldAtWork = true;
    std::atomic<bool> isEnded = false;
    liveWith([&key, &isHeldAtWork, &isEnded]() {
        isHeldAtWork = isHeldBack(currentMask());
        EXPECT_EQ(pthread_setspecific(key, &isEnded), 0); // its destructor is what the thread runs last
    });
    EXPECT_FALSE(isHeldAtWork);
    ASSERT_TRUE(waitUntil([&isEnded]() { return isEnded.load(); }));
    EXPECT_TRUE(s_wasHeldAtTheEnd);
    (void)pthread_key_delete(key);
}

/// The lock of a responder that serves and then ends while somebody waits for that.
class ResponderThreadsLock : public ResponderThread {
protected:
    void SetUp() override {
        ZNORB_SKIP_IF(underThreadSanitizer) << "locks cannot be stood in for";
        start(responder);
    }

    [[nodiscard]] bool isIts(const pthread_mutex_t* mutex) const {
        const auto* const bytes = reinterpret_cast<const std::byte*>(mutex);
        const auto* const begin = reinterpret_cast<const std::byte*>(&responder);
        return std::less_equal<>()(begin, bytes) && std::less<>()(bytes, begin + sizeof responder);
    }

    /// Whether the responder's thread asks, at its end.
    [[nodiscard]] bool isItsThread() const { return pthread_equal(pthread_self(), m_thread) != 0; }

    static bool isLocked(pthread_mutex_t* mutex) {
        const bool isFree = pthread_mutex_trylock(mutex) == 0;
        return !isFree || pthread_mutex_unlock(mutex) != 0;
    }

    /// What stands in for a function may go then.
    void quit() {
        std::atomic<bool> isOpen = false;
        atTheLastRecord([this, &isOpen]() {
            m_thread = pthread_self();
            isOpen.wait(false);
        });
        EXPECT_EQ(askDaemon("QUIT"), "0");
        ASSERT_TRUE(mainExitBarrier.wait());
        {
            const ObservedThread waiter([this]() {
                isAwaited.wait(false);
                responder.awaitEnd();
                isOver = true;
            });
            EXPECT_TRUE(waiter.fallsAsleep());
            isOpen = true;
            isOpen.notify_all();
        }
        ASSERT_TRUE(waitUntil([]() { return namesIn("/proc/self/task").size() == 1; }));
    }

    bool waitUntilOver(Milliseconds bound = usualBound) {
        return waitUntil([this]() { return isOver.load(); }, bound);
    }

    Responder responder;
    std::atomic<bool> isAwaited = true; ///< or somebody is about to, when this becomes true
    std::atomic<bool> isOver = false;

private:
    std::atomic<pthread_t> m_thread{};
};

TEST_F(ResponderThreadsLock, IsHeldByWhoeverReleasesIt) {
    std::atomic<unsigned> releases = 0;
    std::atomic<unsigned> locked = 0;
    const InPlaceOf<pthread_mutex_unlock> unlocks([&](pthread_mutex_t* mutex) {
        if (isIts(mutex)) {
            locked += isLocked(mutex) ? 1U : 0U;
            ++releases;
        }
        return pthread_mutex_unlock(mutex);
    });
    quit();
    responder.awaitEnd();
    EXPECT_EQ(releases, 3U) << "the thread's, and one of each wait";
    EXPECT_EQ(locked, 3U);
}

TEST_F(ResponderThreadsLock, IsTakenBeforeTheEndIsAnnouncedAndWithTerminationHeldBack) {
    std::atomic<bool> isHeld = false;
    std::atomic<bool> wasOver = true;
    const InPlaceOf<pthread_mutex_lock> locks([&](pthread_mutex_t* mutex) {
        if (isIts(mutex) && isItsThread()) {
            isHeld = isHeldBack(currentMask());
            isAwaited = true;
            isAwaited.notify_all();
            wasOver = waitUntilOver(Milliseconds(100));
        }
        return pthread_mutex_lock(mutex);
    });
    isAwaited = false;
    quit();
    EXPECT_TRUE(isHeld);
    EXPECT_FALSE(wasOver);
}

TEST_F(ResponderThreadsLock, MayGoWhileTheThreadLeavesIt) {
    std::atomic<bool> wasOver = false;
    const InPlaceOf<pthread_mutex_unlock> unlocks([&](pthread_mutex_t* mutex) {
        const int result = pthread_mutex_unlock(mutex);
        if (isIts(mutex) && isItsThread()) {
            wasOver = waitUntilOver();
        }
        return result;
    });
    quit();
    EXPECT_TRUE(wasOver);
}

TEST_F(ResponderThread, EndOfAForkedCopyOfTheThreadIsTheEndOfItsProcess) {
    pid_t copy = -1;
    liveWith([&copy]() {
        // What is registered for an orderly exit must not run in the copy: it would end with another status.
        const pid_t process = fork();
        if (process == 0) {
            (void)std::atexit([]() { _exit(1); });
        } else {
            copy = process;
        }
    });
    EXPECT_EQ(waitForEndOf(copy), exitedWith(0));
}

TEST_F(ResponderThread, SetUpThatFailsIsAnEnd) {
    writeFile(tableFile, "left behind");
    Responder responder;
    responder.start();
    responder.awaitEnd();
    EXPECT_TRUE(isBarrierSet());
    EXPECT_FALSE(exists(tableFile));
    EXPECT_THAT(log.lines(),
                ElementsAre("Unified responder starting", "Unable to get to shared global variables",
                            "Unified responder stopped"));
}

TEST_F(ResponderThread, ThreadThatCannotBeStartedCountsAsEndedAtOnce) {
    const NoThreads none;
    Responder responder;
    responder.start();
    EXPECT_TRUE(isBarrierSet());
    responder.awaitEnd();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ResponderThread, AwaitBlocksUntilTheExitEventEvenWithoutAThread) {
    Responder responder;
    const ObservedThread waiter([&responder]() { responder.awaitEnd(); });
    EXPECT_TRUE(waiter.fallsAsleep());
    EXPECT_EQ(mainExitBarrier.set(), 0);
    EXPECT_TRUE(waiter.finishes());
}

TEST_F(ResponderThread, NothingHappensBeforeItIsStarted) {
    {
        const Responder responder;
        EXPECT_FALSE(isBarrierSet());
        EXPECT_FALSE(exists(tableFile));
    }
    EXPECT_FALSE(isBarrierSet());
    EXPECT_THAT(log.lines(), IsEmpty());
}

} // namespace
