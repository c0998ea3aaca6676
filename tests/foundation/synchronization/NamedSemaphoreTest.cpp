#include "foundation/synchronization/NamedSemaphore.h"

#include "tests/foundation/synchronization/SemaphoreName.h"
#include "tests/support/ObservedThread.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/StandIns.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <fstream>
#include <string>
#include <vector>

using namespace Common::Synchronization;
using namespace ZNORBTEST;

namespace {

const std::vector<std::string> refusedNames{"", "/", "a/b", std::string(300, 'n'), std::string(100000, 'n')};

ino_t inodeOf(const SemaphoreName& name) {
    struct stat status = {};
    return stat(("/dev/shm/sem." + name.plain()).c_str(), &status) == 0 ? status.st_ino : 0;
}

/// Whether the process has the file mapped, by whatever name.
bool isMapped(ino_t inode) {
    std::ifstream file("/proc/self/maps");
    std::string line;
    while (std::getline(file, line)) {
        const std::string mappedInode = " " + std::to_string(inode) + " ";
        if (line.find(mappedInode) != std::string::npos && line.find("/dev/shm/") != std::string::npos) {
            return true;
        }
    }
    return false;
}

std::atomic<int> signalsCaught = 0;
extern "C" void countSignal(int) {
    ++signalsCaught;
}

} // namespace

TEST(NamedSemaphore, ExistsCheckCreatesTheSemaphoreAndSaysFalse) {
    const SemaphoreName name("exists");
    EXPECT_FALSE(semaphoreExists(name.plain()));
    EXPECT_EQ(name.count(), 0);
    for (const std::string& same : {name.plain(), name.absolute()}) { // without a slash it is made absolute
        EXPECT_TRUE(semaphoreExists(same));
        EXPECT_EQ(name.count(), 0);
    }
}

TEST(NamedSemaphore, ExistsCheckKeepsItsHandles) {
    const SemaphoreName name("handles");
    EXPECT_FALSE(semaphoreExists(name.plain()));
    const ino_t inode = inodeOf(name);
    ASSERT_NE(inode, 0U);
    EXPECT_TRUE(isMapped(inode));
    EXPECT_TRUE(removeSemaphore(name.plain()));
    EXPECT_TRUE(isMapped(inode));
}

TEST(NamedSemaphore, IsCreatedReadableForAllAndWritableForItsOwner) {
    const SemaphoreName name("mode");
    const mode_t before = umask(0);
    EXPECT_FALSE(semaphoreExists(name.plain()));
    (void)umask(before);
    struct stat status = {};
    ASSERT_EQ(stat(("/dev/shm/sem." + name.plain()).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

TEST(NamedSemaphore, OpenOrCreateReportsWhetherTheNameExisted) {
    const SemaphoreName name("open");
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

TEST(NamedSemaphore, RemoveUnlinksTheNameAndCountsAsSuccessWithoutOne) {
    const SemaphoreName name("remove");
    for (const std::string& same : {name.plain(), name.absolute()}) {
        EXPECT_FALSE(semaphoreExists(same));
        EXPECT_TRUE(removeSemaphore(same));
        EXPECT_FALSE(name.exists());
        EXPECT_TRUE(removeSemaphore(same));
        EXPECT_FALSE(name.exists());
    }
}

TEST(NamedSemaphore, PostAddsToTheCountAndWaitTakesFromIt) {
    const SemaphoreName name("post");
    EXPECT_TRUE(postSemaphore(name.plain()));
    EXPECT_TRUE(postSemaphore(name.absolute()));
    EXPECT_EQ(name.count(), 2);
    EXPECT_TRUE(waitSemaphore(name.plain()));
    EXPECT_EQ(name.count(), 1);
}

TEST(NamedSemaphore, PostBeyondTheHighestCountFails) {
    const SemaphoreName name("overflow");
    sem_t* const semaphore = sem_open(name.absolute().c_str(), O_CREAT, 0600, SEM_VALUE_MAX);
    ASSERT_NE(semaphore, SEM_FAILED);
    EXPECT_FALSE(postSemaphore(name.plain()));
    EXPECT_EQ(sem_close(semaphore), 0);
}

TEST(NamedSemaphore, WaitBlocksUntilSomebodyPosts) {
    const SemaphoreName name("wait");
    std::atomic<bool> taken = false;
    const ObservedThread waiter([&] { taken = waitSemaphore(name.plain()); });
    EXPECT_TRUE(waiter.fallsAsleep());
    EXPECT_TRUE(postSemaphore(name.plain()));
    EXPECT_TRUE(waiter.finishes());
    EXPECT_TRUE(taken);
    EXPECT_EQ(name.count(), 0);
}

TEST(NamedSemaphore, WaitGoesOnAfterASignal) {
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = countSignal;
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    const SemaphoreName name("signal");
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

TEST(NamedSemaphore, WaitThatTheSystemRefusesFailsAtOnce) {
    if (underThreadSanitizer) {
        GTEST_SKIP() << "the thread sanitizer has a wait of its own";
    }
    const SemaphoreName name("refused");
    EXPECT_TRUE(postSemaphore(name.plain()));
    const FailingCall<sem_wait> waits(EINVAL, 1); // by itself it can only fail for a signal
    EXPECT_FALSE(waitSemaphore(name.plain()));
    EXPECT_EQ(waits.calls(), 1U);
    EXPECT_EQ(name.count(), 1);
    EXPECT_TRUE(waitSemaphore(name.plain()));
}

TEST(NamedSemaphore, DrainTakesEveryCountAndThenOnePostMore) {
    const SemaphoreName name("drain");
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(postSemaphore(name.plain()));
    }
    std::atomic<bool> drained = false;
    const ObservedThread drainer([&] { drained = drainSemaphore(name.plain()); });
    EXPECT_TRUE(drainer.fallsAsleep());
    EXPECT_EQ(name.count(), 0);
    EXPECT_TRUE(postSemaphore(name.plain()));
    EXPECT_TRUE(drainer.finishes());
    EXPECT_TRUE(drained);
    EXPECT_EQ(name.count(), 0);
}

TEST(NamedSemaphore, DrainOfAMissingNameCreatesItAndWaits) {
    const SemaphoreName name("drain-new");
    const ObservedThread drainer([&] { (void)drainSemaphore(name.plain()); });
    EXPECT_TRUE(drainer.fallsAsleep());
    EXPECT_TRUE(postSemaphore(name.plain()));
    EXPECT_TRUE(drainer.finishes());
}

TEST(NamedSemaphore, NamesThatTheSystemRefusesFailAtOnce) {
    for (const std::string& name : refusedNames) {
        bool existed = true;
        EXPECT_FALSE(semaphoreExists(name));
        EXPECT_EQ(openOrCreateSemaphore(name, existed), SEM_FAILED);
        EXPECT_FALSE(existed);
        EXPECT_FALSE(postSemaphore(name));
        EXPECT_FALSE(waitSemaphore(name));
        EXPECT_FALSE(drainSemaphore(name));
        EXPECT_TRUE(removeSemaphore(name));
    }
}

TEST(NamedSemaphore, LongestNameThatTheSystemTakesWorks) {
    const std::string pid = std::to_string(getpid());
    std::string name(NAME_MAX - 4, 'n'); // the system puts four characters in front of it
    name.replace(0, pid.size(), pid);
    EXPECT_FALSE(semaphoreExists(name));
    EXPECT_TRUE(semaphoreExists("/" + name));
    EXPECT_TRUE(removeSemaphore(name));
    name += 'n';
    EXPECT_FALSE(postSemaphore(name));
}
