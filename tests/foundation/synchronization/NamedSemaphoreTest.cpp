#include "foundation/synchronization/NamedSemaphore.h"

#include "tests/foundation/synchronization/SemaphoreHandles.h"
#include "tests/foundation/synchronization/SemaphoreName.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/ObservedThread.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/StandIns.h"
#include "tests/support/SystemCallTracer.h"
#include "tests/support/Waiting.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>

#include <atomic>
#include <cerrno>
#include <climits>

using namespace Common::Synchronization;
using namespace ZNORBTEST;

namespace {

const std::vector<std::string> refusedNames{"", "/", "a/b", std::string(300, 'n'), std::string(100000, 'n')};

std::atomic<int> signalsCaught = 0;
extern "C" void countSignal(int) {
    ++signalsCaught;
}

class NamedSemaphore : public testing::Test {
protected:
    /// Calls the function with the name: it must sleep until somebody posts, and be true then.
    void expectToSleepUntilAPost(bool (*function)(const std::string&)) const {
        std::atomic<bool> result = false;
        const ObservedThread caller([&] { result = function(name.plain()); });
        EXPECT_TRUE(caller.fallsAsleep());
        EXPECT_EQ(name.count(), 0);
        EXPECT_TRUE(postSemaphore(name.plain()));
        EXPECT_TRUE(caller.finishes());
        EXPECT_TRUE(result);
        EXPECT_EQ(name.count(), 0);
    }

    const SemaphoreName name{"semaphore"};
};

} // namespace

TEST_F(NamedSemaphore, ExistsCheckCreatesTheSemaphoreAndSaysFalse) {
    EXPECT_FALSE(semaphoreExists(name.plain()));
    EXPECT_EQ(name.count(), 0);
    for (const std::string& same : {name.plain(), name.absolute()}) { // without a slash it is made absolute
        EXPECT_TRUE(semaphoreExists(same));
        EXPECT_EQ(name.count(), 0);
    }
}

TEST_F(NamedSemaphore, ExistsCheckKeepsItsHandles) {
    EXPECT_FALSE(semaphoreExists(name.plain()));
    const ino_t inode = inodeOf(name);
    ASSERT_NE(inode, 0U);
    EXPECT_TRUE(isMapped(inode));
    EXPECT_TRUE(removeSemaphore(name.plain()));
    EXPECT_TRUE(isMapped(inode));
}

TEST_F(NamedSemaphore, IsCreatedReadableForAllAndWritableForItsOwner) {
    const mode_t before = umask(0);
    EXPECT_FALSE(semaphoreExists(name.plain()));
    (void)umask(before);
    EXPECT_EQ(modeOf("/dev/shm/sem." + name.plain()), 0644U);
}

TEST_F(NamedSemaphore, OpenOrCreateReportsWhetherTheNameExisted) {
    bool existed = true;
    sem_t* const created = openOrCreateSemaphore(name.plain(), existed);
    ASSERT_NE(created, SEM_FAILED);
    EXPECT_FALSE(existed);
    sem_t* const opened = openOrCreateSemaphore(name.plain(), existed);
    ASSERT_NE(opened, SEM_FAILED);
    EXPECT_TRUE(existed);
    EXPECT_EQ(sem_post(created), 0);
    EXPECT_EQ(name.count(), 1);
    EXPECT_EQ(sem_close(created), 0);
    EXPECT_EQ(sem_close(opened), 0);
}

TEST_F(NamedSemaphore, RemoveUnlinksTheNameAndCountsAsSuccessWithoutOne) {
    for (const std::string& same : {name.plain(), name.absolute()}) {
        EXPECT_FALSE(semaphoreExists(same));
        EXPECT_TRUE(removeSemaphore(same));
        EXPECT_FALSE(name.exists());
        EXPECT_TRUE(removeSemaphore(same));
        EXPECT_FALSE(name.exists());
    }
}

TEST_F(NamedSemaphore, PostAddsToTheCountAndWaitTakesFromIt) {
    EXPECT_TRUE(postSemaphore(name.plain()));
    EXPECT_TRUE(postSemaphore(name.absolute()));
    EXPECT_EQ(name.count(), 2);
    EXPECT_TRUE(waitSemaphore(name.plain()));
    EXPECT_EQ(name.count(), 1);
}

TEST_F(NamedSemaphore, PostBeyondTheHighestCountFails) {
    sem_t* const semaphore = sem_open(name.absolute().c_str(), O_CREAT, 0600, SEM_VALUE_MAX);
    ASSERT_NE(semaphore, SEM_FAILED);
    EXPECT_FALSE(postSemaphore(name.plain()));
    EXPECT_EQ(sem_close(semaphore), 0);
}

TEST_F(NamedSemaphore, WaitBlocksUntilSomebodyPosts) {
    expectToSleepUntilAPost(waitSemaphore);
}

TEST_F(NamedSemaphore, WaitGoesOnAfterASignal) {
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = countSignal;
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    ObservedThread waiter([&] { (void)waitSemaphore(name.plain()); });
    EXPECT_TRUE(waiter.fallsAsleep());
    const int caughtBefore = signalsCaught;
    EXPECT_EQ(pthread_kill(waiter.handle(), SIGUSR1), 0);
    EXPECT_TRUE(waitUntil([&] { return signalsCaught > caughtBefore; }));
    EXPECT_TRUE(waiter.fallsAsleep());
    EXPECT_TRUE(postSemaphore(name.plain()));
    EXPECT_TRUE(waiter.finishes());
    EXPECT_EQ(sigaction(SIGUSR1, &before, nullptr), 0);
}

TEST_F(NamedSemaphore, WaitThatTheSystemRefusesFailsAtOnce) {
    ZNORB_SKIP_IF(underThreadSanitizer) << "the thread sanitizer has a wait of its own";
    EXPECT_TRUE(postSemaphore(name.plain()));
    const FailingCall<sem_wait> waits(EINVAL, 1); // by itself it can only fail for a signal
    EXPECT_FALSE(waitSemaphore(name.plain()));
    EXPECT_EQ(waits.calls(), 1U);
    EXPECT_EQ(name.count(), 1);
    EXPECT_TRUE(waitSemaphore(name.plain()));
}

TEST_F(NamedSemaphore, DrainTakesEveryCountAndThenOnePostMore) {
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(postSemaphore(name.plain()));
    }
    expectToSleepUntilAPost(drainSemaphore);
}

TEST_F(NamedSemaphore, DrainOfAMissingNameCreatesItAndWaits) {
    expectToSleepUntilAPost(drainSemaphore);
}

TEST_F(NamedSemaphore, NamesThatTheSystemRefusesFailAtOnce) {
    for (const std::string& refused : refusedNames) {
        bool existed = true;
        EXPECT_FALSE(semaphoreExists(refused));
        EXPECT_EQ(openOrCreateSemaphore(refused, existed), SEM_FAILED);
        EXPECT_FALSE(existed);
        EXPECT_FALSE(postSemaphore(refused));
        EXPECT_FALSE(waitSemaphore(refused));
        EXPECT_FALSE(drainSemaphore(refused));
        EXPECT_TRUE(removeSemaphore(refused));
    }
}

TEST_F(NamedSemaphore, WhatTheCheckIsRefusedIsNotOpenedAfterIt) {
    ZNORB_SKIP_IF(!canTrace() || !canChangeCalls()) << "no call can be changed here";
    EXPECT_FALSE(semaphoreExists(name.plain()));
    const SharedReport<std::atomic<bool>> isOpened;
    *isOpened = true;
    SystemCallTracer tracer;
    (void)tracer.start([this, &isOpened]() {
        bool existed = true;
        *isOpened = openOrCreateSemaphore(name.plain(), existed) != SEM_FAILED || existed;
    });
    bool isOpening = false;
    int refusals = 0;
    EXPECT_TRUE(tracer.follow([this, &isOpening, &refusals](const TracedStop& stop) {
        if (stop.kind == TracedStop::Kind::Call && stop.call.isStart) {
            isOpening = stop.call.number == SYS_openat &&
                        readText(stop.thread, stop.call.arguments[1]).ends_with(name.plain());
        } else if (stop.kind == TracedStop::Kind::Call && isOpening && refusals == 0) {
            ++refusals;
            setResult(stop.thread, -EACCES);
        }
    }));
    EXPECT_EQ(refusals, 1);
    EXPECT_FALSE(*isOpened);
}

TEST_F(NamedSemaphore, LongestNameThatTheSystemTakesWorks) {
    const std::string pid = std::to_string(getpid());
    std::string longest(NAME_MAX - 4, 'n'); // the system puts four characters in front of it
    longest.replace(0, pid.size(), pid);
    EXPECT_FALSE(semaphoreExists(longest));
    EXPECT_TRUE(semaphoreExists("/" + longest));
    EXPECT_TRUE(removeSemaphore(longest));
    longest += 'n';
    EXPECT_FALSE(postSemaphore(longest));
}

TEST_F(NamedSemaphore, EachRoutineKeepsTheHandleOfItsExistsCheckAndClosesItsOwn) {
    ZNORB_SKIP_IF(underThreadSanitizer) << "the thread sanitizer has a wait of its own";
    const InPlaceOf<sem_wait> noWait([](sem_t*) { return 0; });
    for (bool (*const routine)(const std::string&) :
         {postSemaphore, waitSemaphore, drainSemaphore, removeSemaphore}) {
        sem_t* const own = sem_open(name.absolute().c_str(), O_CREAT, 0644, 0U);
        const ino_t inode = inodeOf(name);
        EXPECT_TRUE(routine(name.absolute()));
        EXPECT_EQ(closeAll(own, inode), 2) << "the test's own is one of them";
        name.unlink();
    }
}
