#include "responder/service/ResponderThread.h"

#include "responder/Globals.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Waiting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <ctime>
#include <limits>
#include <string>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::Eq;
using testing::IsEmpty;
using testing::Optional;
using ZNORBRESPONDER::mainExitBarrier;
using ZNORBTEST::askDaemon;
using ZNORBTEST::LogRecorder;
using ZNORBTEST::waitUntil;
using Responder = ZNORBRESPONDER::ResponderThread;

constexpr const char* socketPath = "/var/run/znorb.socket";
constexpr const char* tablePath = "/dev/shm/znorb.shvars";

class ResponderThread : public testing::Test {
protected:
    ResponderThread() { (void)mainExitBarrier.reset(); }
    ~ResponderThread() override {
        (void)mainExitBarrier.reset();
        (void)unlink(socketPath);
        (void)unlink(tablePath);
    }

    static void start(Responder& responder) {
        responder.start();
        ASSERT_TRUE(waitUntil([]() { return askDaemon("are you there?") == "0"; }));
    }

    static bool isBarrierSet() { return mainExitBarrier.timedWait(0); }

    const LogRecorder log;
};

TEST_F(ResponderThread, ServesUntilItIsToldToQuit) {
    Responder responder;
    start(responder);
    EXPECT_FALSE(isBarrierSet());
    EXPECT_THAT(askDaemon("QUIT"), Optional(Eq("0")));
    responder.awaitEnd();
    EXPECT_TRUE(isBarrierSet());
    responder.detach();
}

TEST_F(ResponderThread, WhenTheEndIsAwaitedNothingIsLeftToBeDone) {
    for (int i = 0; i < 20; ++i) {
        (void)mainExitBarrier.reset();
        Responder responder;
        start(responder);
        EXPECT_THAT(askDaemon("QUIT"), Optional(Eq("0")));
        responder.awaitEnd();
        ASSERT_FALSE(ZNORBTEST::exists(tablePath));
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
    EXPECT_THAT(askDaemon("QUIT"), Optional(Eq("0")));
    waiter.join();
    responder.detach();
}

TEST_F(ResponderThread, SetUpThatFailsIsAnEnd) {
    ZNORBTEST::writeFile(tablePath, "left behind");
    Responder responder;
    responder.start();
    responder.awaitEnd();
    EXPECT_TRUE(isBarrierSet());
    EXPECT_FALSE(ZNORBTEST::exists(tablePath));
    EXPECT_THAT(log.lines(),
                ElementsAre("Unified responder starting", "Unable to get to shared global variables",
                            "Unified responder stopped"));
    responder.detach();
}

/// While it lives, no thread can be started: its stack would not fit into any address space.
class NoMoreThreads {
public:
    NoMoreThreads() {
        (void)pthread_getattr_default_np(&m_before);
        pthread_attr_t huge;
        (void)pthread_getattr_default_np(&huge);
        EXPECT_EQ(pthread_attr_setstacksize(&huge, std::numeric_limits<std::size_t>::max() / 4), 0);
        EXPECT_EQ(pthread_setattr_default_np(&huge), 0);
        (void)pthread_attr_destroy(&huge);
    }

    ~NoMoreThreads() {
        (void)pthread_setattr_default_np(&m_before);
        (void)pthread_attr_destroy(&m_before);
    }

    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;

private:
    pthread_attr_t m_before = {};
};

TEST_F(ResponderThread, ThreadThatCannotBeStartedCountsAsEndedAtOnce) {
    const NoMoreThreads limit;
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
        EXPECT_FALSE(ZNORBTEST::exists(tablePath));
    }
    EXPECT_FALSE(isBarrierSet());
    EXPECT_THAT(log.lines(), IsEmpty());
}

} // namespace
