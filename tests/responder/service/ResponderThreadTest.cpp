#include "responder/service/ResponderThread.h"

#include "common/log/Logger.h"
#include "responder/Globals.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Matchers.h"
#include "tests/support/ProcessEnd.h"
#include "tests/support/Scarcity.h"
#include "tests/support/SignalMask.h"
#include "tests/support/Waiting.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
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
        responder.detach();
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
    responder.detach();
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
        responder.detach();
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
    responder.detach();
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
    responder.detach();
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
    responder.detach();
}

TEST_F(ResponderThread, ThreadThatCannotBeStartedCountsAsEndedAtOnce) {
    const NoThreads none;
    Responder responder;
    responder.start();
    EXPECT_TRUE(isBarrierSet());
    responder.awaitEnd();
    responder.detach();
    EXPECT_THAT(log.lines(), IsEmpty());
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
