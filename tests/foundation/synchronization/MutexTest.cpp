#include "foundation/synchronization/Mutex.h"

#include "foundation/synchronization/NamedSemaphore.h"
#include "tests/foundation/synchronization/SemaphoreHandles.h"
#include "tests/foundation/synchronization/SemaphoreName.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Layout.h"
#include "tests/support/ObservedThread.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <semaphore.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <type_traits>

using Common::NonCopyable;
using Common::Synchronization::Mutex;
using namespace ZNORBTEST;

namespace {

/// A name, and two objects of it.
class MutexTest : public testing::Test {
protected:
    const SemaphoreName name = SemaphoreName("mutex");
    Mutex mutex = Mutex(name.plain());
    Mutex other = Mutex(name.plain());
};

} // namespace

TEST_F(MutexTest, AsksNothingOfTheSystemUntilItIsHeldByWhoeverCreatesTheSemaphore) {
    EXPECT_FALSE(name.exists());
    EXPECT_TRUE(mutex.tryLock());
    EXPECT_TRUE(name.exists());
}

TEST_F(MutexTest, TryLockFailsWhenTheSemaphoreExistsAndEachCallTriesAgain) {
    EXPECT_FALSE(Common::Synchronization::semaphoreExists(name.plain()));
    EXPECT_FALSE(mutex.tryLock());
    EXPECT_FALSE(mutex.tryLock());
    name.unlink();
    EXPECT_TRUE(mutex.tryLock());
}

TEST_F(MutexTest, TryLockOfAHolderIsTrueWithoutAskingAgain) {
    EXPECT_TRUE(mutex.tryLock());
    name.unlink();
    EXPECT_TRUE(mutex.tryLock());
    EXPECT_FALSE(name.exists());
}

TEST_F(MutexTest, SecondObjectOfTheNameGetsItAfterTheFirstUnlocks) {
    Mutex second(name.absolute());
    EXPECT_TRUE(mutex.tryLock());
    EXPECT_FALSE(second.tryLock());
    EXPECT_TRUE(mutex.unlock());
    EXPECT_TRUE(second.tryLock());
    EXPECT_FALSE(mutex.tryLock());
}

TEST_F(MutexTest, UnlockUnlinksTheNameUnlessItIsGoneAlreadyAndIsTrue) {
    for (const bool isGone : {false, true}) {
        EXPECT_TRUE(mutex.tryLock());
        if (isGone) {
            name.unlink();
        }
        EXPECT_TRUE(mutex.unlock());
        EXPECT_FALSE(name.exists());
    }
    EXPECT_TRUE(mutex.tryLock());
}

TEST_F(MutexTest, UnlockOfANonHolderLeavesTheNameAloneAndIsFalseAfterAFailedTryLock) {
    EXPECT_TRUE(mutex.tryLock());
    EXPECT_TRUE(other.unlock());
    EXPECT_TRUE(name.exists());
    EXPECT_FALSE(other.tryLock());
    EXPECT_FALSE(other.unlock());
    EXPECT_TRUE(name.exists());
}

TEST_F(MutexTest, DestructorUnlocksWhatTheObjectHolds) {
    std::optional<Mutex> holder(name.plain());
    EXPECT_TRUE(holder->tryLock());
    EXPECT_FALSE(Mutex(name.plain()).tryLock());
    EXPECT_TRUE(name.exists());
    holder.reset();
    EXPECT_FALSE(name.exists());
}

TEST_F(MutexTest, KeepsNoHandleOfItsOwnAfterAFailureNorAfterItsUnlock) {
    for (const bool isHeld : {false, true}) {
        EXPECT_TRUE(!isHeld || mutex.tryLock());
        sem_t* const own = sem_open(name.absolute().c_str(), O_CREAT, 0644, 0U);
        const ino_t inode = inodeOf(name);
        EXPECT_EQ(mutex.tryLock(), isHeld);
        EXPECT_EQ(mutex.unlock(), isHeld);
        EXPECT_EQ(closeAll(own, inode), 2) << "the test's own, and that of the check whether it exists";
        name.unlink();
    }
}

TEST_F(MutexTest, UnlockAndWaitReleasesTheLockAndBlocksUntilAPost) {
    std::atomic<bool> posted = false;
    EXPECT_TRUE(mutex.tryLock());
    const ObservedThread waiter([&] { posted = mutex.unlockAndWait(); });
    EXPECT_TRUE(waiter.fallsAsleep());
    EXPECT_EQ(name.count(), 0);
    EXPECT_TRUE(Common::Synchronization::postSemaphore(name.plain()));
    EXPECT_TRUE(waiter.finishes());
    EXPECT_TRUE(posted);
    // The semaphore of the wait stays, and with it the lock is taken.
    EXPECT_EQ(name.count(), 0);
    EXPECT_FALSE(mutex.tryLock());
}

TEST_F(MutexTest, UnlockAndWaitOfANonHolderWaitsOnTheHoldersSemaphore) {
    EXPECT_TRUE(mutex.tryLock());
    const ObservedThread waiter([&] { (void)other.unlockAndWait(); });
    EXPECT_TRUE(waiter.fallsAsleep());
    EXPECT_TRUE(Common::Synchronization::postSemaphore(name.plain()));
    EXPECT_TRUE(waiter.finishes());
    EXPECT_TRUE(mutex.unlock());
    EXPECT_FALSE(name.exists());
}

TEST_F(MutexTest, WorksBetweenProcesses) {
    EXPECT_TRUE(mutex.tryLock());
    EXPECT_TRUE(holdsInForked([&] { return !Mutex(name.plain()).tryLock(); }));
    EXPECT_TRUE(mutex.unlock());
    EXPECT_TRUE(holdsInForked([&] { return Mutex(name.plain()).tryLock(); }));
    EXPECT_TRUE(mutex.tryLock());
}

TEST_F(MutexTest, HolderThatEndsWithoutUnlockingLeavesTheLockTaken) {
    EXPECT_TRUE(holdsInForked([&] {
        Mutex held(name.plain());
        if (!held.tryLock()) {
            return false;
        }
        _exit(0);
    }));
    EXPECT_FALSE(mutex.tryLock());
    name.unlink();
    EXPECT_TRUE(mutex.tryLock());
}

TEST(Mutex, NameThatTheSystemRefusesCannotBeLocked) {
    for (const std::string& name : {std::string(), std::string("a/b"), std::string(5000, 'n')}) {
        Mutex mutex(name);
        EXPECT_TRUE(mutex.unlock());
        EXPECT_FALSE(mutex.tryLock());
        EXPECT_FALSE(mutex.unlock());
        EXPECT_FALSE(mutex.unlockAndWait());
    }
}

TEST(Mutex, IsAPrivateNonCopyable) {
    EXPECT_TRUE((std::is_base_of_v<NonCopyable, Mutex>));
    EXPECT_FALSE((std::is_convertible_v<Mutex*, NonCopyable*>));
    EXPECT_FALSE(std::is_copy_constructible_v<Mutex>);
    EXPECT_TRUE(std::has_virtual_destructor_v<Mutex>);
}

TEST_F(MutexTest, KeepsStateNameAndHandleInThisOrder) {
    constexpr std::size_t behindName = 2 * sizeof(void*) + sizeof(std::string);
    const auto stateOf = [](const Mutex& of) { return fieldAt<std::int32_t>(&of, sizeof(void*)); };
    EXPECT_EQ(stateOf(mutex), 2) << "unlocked";
    EXPECT_EQ(fieldAt<std::string>(&mutex, 2 * sizeof(void*)), name.plain());
    EXPECT_EQ(*fieldAt<sem_t**>(&mutex, behindName), nullptr);
    EXPECT_TRUE(mutex.tryLock());
    EXPECT_EQ(stateOf(mutex), 0) << "held";
    EXPECT_NE(*fieldAt<sem_t**>(&mutex, behindName), nullptr);
    EXPECT_FALSE(other.tryLock());
    EXPECT_EQ(stateOf(other), 1) << "failed to lock";
    EXPECT_TRUE(mutex.unlock());
    EXPECT_EQ(stateOf(mutex), 2);
    EXPECT_EQ(*fieldAt<sem_t**>(&mutex, behindName), nullptr);
}
