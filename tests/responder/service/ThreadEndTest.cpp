#include "responder/service/ThreadEnd.h"

#include "common/threads/ThreadHandle.h"
#include "common/threads/Threadable.h"
#include "tests/responder/ForkedChild.h"
#include "tests/support/ProcessEnd.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Scarcity.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <thread>

namespace {

using namespace ZNORBRESPONDER;
using ZNORBTEST::exitedWith;
using ZNORBTEST::waitUntil;

bool isTerminationHeld() {
    sigset_t mask;
    (void)sigemptyset(&mask);
    (void)pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, SIGTERM) == 1;
}

/// Announces its end and then does as it is told.
class Work : public ORBCOMMON::Threadable {
public:
    std::function<void()> inRun = []() {};
    std::function<void()> inFinish = []() {};

    void run() override {
        announceThreadEnd();
        isAnnounced = true;
        inRun();
    }
    void finish() override { inFinish(); }

    std::atomic<bool> isAnnounced = false;
};

/// Blocks whoever passes until it is opened.
class Gate {
public:
    void pass() const { m_isOpen.wait(false); }
    void open() {
        m_isOpen = true;
        m_isOpen.notify_all();
    }

private:
    std::atomic<bool> m_isOpen = false;
};

void startAnnounced(ORBCOMMON::ThreadHandle& handle, Work& work) {
    ASSERT_EQ(ORBCOMMON::start(handle, &work), 0);
    ASSERT_TRUE(waitUntil([&work]() { return work.isAnnounced.load(); }));
}

TEST(ThreadEnd, AwaitReturnsAtOnceWhenNobodyAnnounced) {
    awaitThreadEnd();
}

TEST(ThreadEnd, AwaitReturnsOnlyAfterRunHasReturned) {
    Gate gate;
    std::atomic<bool> hasRun = false;
    Work work;
    work.inRun = [&gate, &hasRun]() {
        gate.pass();
        hasRun = true;
    };
    ORBCOMMON::ThreadHandle handle;
    startAnnounced(handle, work);
    std::atomic<bool> isOver = false;
    std::thread waiter([&hasRun, &isOver]() {
        awaitThreadEnd();
        EXPECT_TRUE(hasRun);
        isOver = true;
    });
    EXPECT_FALSE(waitUntil([&isOver]() { return isOver.load(); }, std::chrono::milliseconds(100)));
    gate.open();
    waiter.join();
    ORBCOMMON::join(handle);
}

TEST(ThreadEnd, AwaitReturnsOnlyAfterFinishHasReturned) {
    Gate gate;
    std::atomic<bool> hasFinished = false;
    Work work;
    work.inFinish = [&gate, &hasFinished]() {
        gate.pass();
        hasFinished = true;
    };
    ORBCOMMON::ThreadHandle handle;
    startAnnounced(handle, work);
    std::atomic<bool> isOver = false;
    std::thread waiter([&hasFinished, &isOver]() {
        awaitThreadEnd();
        EXPECT_TRUE(hasFinished);
        isOver = true;
    });
    EXPECT_FALSE(waitUntil([&isOver]() { return isOver.load(); }, std::chrono::milliseconds(100)));
    gate.open();
    waiter.join();
    ORBCOMMON::join(handle);
}

TEST(ThreadEnd, EndOfADetachedThreadCanBeAwaitedAgainAndAgain) {
    for (int i = 0; i < 100; ++i) {
        std::atomic<int> steps = 0;
        Work work;
        work.inRun = [&steps]() { ++steps; };
        work.inFinish = [&steps]() { ++steps; };
        ORBCOMMON::ThreadHandle handle;
        startAnnounced(handle, work);
        awaitThreadEnd();
        ASSERT_EQ(steps, 2);
        ORBCOMMON::detach(handle);
        awaitThreadEnd();
    }
}

TEST(ThreadEnd, AnnouncingTwiceOnAThreadIsAnnouncingOnce) {
    Gate gate;
    Work work;
    work.inRun = [&gate]() {
        announceThreadEnd();
        gate.pass();
    };
    ORBCOMMON::ThreadHandle handle;
    startAnnounced(handle, work);
    gate.open();
    awaitThreadEnd();
    ORBCOMMON::join(handle);
}

std::atomic<bool> s_wasHeldAtTheEnd = false;

TEST(ThreadEnd, ThreadTakesTerminationWhileItWorksAndNotAfterItsEnd) {
    announceThreadEnd(); // of this thread, which goes on; but the product's key is older than the next
    pthread_key_t key = 0;
    ASSERT_EQ(pthread_key_create(&key, [](void*) { s_wasHeldAtTheEnd = isTerminationHeld(); }), 0);
    std::atomic<bool> isHeldAtWork = true;
    std::thread thread([&isHeldAtWork, &key]() {
        EXPECT_EQ(pthread_setspecific(key, &key), 0); // what it ends with goes in the order of the keys
        announceThreadEnd();
        isHeldAtWork = isTerminationHeld();
    });
    awaitThreadEnd();
    thread.join();
    EXPECT_FALSE(isHeldAtWork);
    EXPECT_TRUE(s_wasHeldAtTheEnd);
    (void)pthread_key_delete(key);
}

TEST(ThreadEnd, EndOfAForkedCopyOfTheThreadIsTheEndOfItsProcess) {
    std::atomic<pid_t> copy = -1;
    Work work;
    work.inRun = [&copy]() {
        // Static destructors and functions registered with atexit must not run in the copy: it ends with
        // another status when they do.
        const pid_t process = fork();
        if (process == 0) {
            (void)std::atexit([]() { _exit(1); });
            return;
        }
        copy = process;
    };
    ORBCOMMON::ThreadHandle handle;
    startAnnounced(handle, work);
    awaitThreadEnd();
    ORBCOMMON::join(handle);
    EXPECT_EQ(ZNORBTEST::waitForEndOf(copy), exitedWith(0));
}

TEST(ThreadEnd, ForkedCopyOfTheThreadRunsToItsEnd) {
    const ZNORBTEST::SharedReport<std::atomic<int>> finished;
    std::atomic<pid_t> copy = -1;
    Work work;
    work.inRun = [&copy]() {
        const pid_t process = fork();
        if (process != 0) {
            copy = process;
        }
    };
    work.inFinish = [&finished]() { ++*finished; };
    ORBCOMMON::ThreadHandle handle;
    startAnnounced(handle, work);
    awaitThreadEnd();
    ORBCOMMON::join(handle);
    EXPECT_EQ(ZNORBTEST::waitForEndOf(copy), exitedWith(0));
    EXPECT_EQ(*finished, 2) << "the thread and its copy";
}

/// Makes this process' next key, and every one after it, one for whose values memory is needed; or makes all
/// keys that there are.
void makeKeys(bool areAll) {
    constexpr int keysWithoutMemory = 32;
    pthread_key_t key = 0;
    for (int made = 0; areAll || made < keysWithoutMemory; ++made) {
        if (pthread_key_create(&key, nullptr) != 0) {
            return;
        }
    }
}

/// Announces on a thread and waits for its end, then ends the process. The product makes its key once for the
/// life of a process: these tests need one in which nobody has announced before.
[[noreturn]] void announceAndAwait() {
    (void)alarm(60);
    expectThread();
    announceThreadEnd();
    awaitThreadEnd();
    _exit(EXIT_SUCCESS);
}

TEST(ThreadEndDeathTest, NobodyWaitsForAThreadForWhichThereIsNoKey) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            makeKeys(true);
            announceAndAwait();
        },
        testing::ExitedWithCode(EXIT_SUCCESS), "");
}

TEST(ThreadEndDeathTest, NobodyWaitsForAThreadWhoseKeyTakesNoValue) {
    if (ZNORBTEST::underSanitizer) {
        GTEST_SKIP() << "a sanitizer ends a process whose memory is used up";
    }
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            makeKeys(false);
            ZNORBTEST::useUpMemory();
            announceAndAwait();
        },
        testing::ExitedWithCode(EXIT_SUCCESS), "");
}

TEST(ThreadEnd, ThreadAnnouncesItsEndWithoutMemory) {
    if (ZNORBTEST::underSanitizer) {
        GTEST_SKIP() << "a sanitizer ends a process whose memory is used up";
    }
    std::atomic<bool> isStarted = false;
    // A process of its own: what is used up is used up for good, and the C library ends one that it has no
    // memory for.
    const int status = ZNORBTEST::statusInOwnProcess([&isStarted]() {
        std::thread thread([&isStarted]() {
            isStarted.wait(false);
            announceThreadEnd();
        });
        ZNORBTEST::useUpMemory();
        expectThread();
        isStarted = true;
        isStarted.notify_all();
        awaitThreadEnd();
        thread.join();
        return 0;
    });
    EXPECT_EQ(status, 0);
}

} // namespace
