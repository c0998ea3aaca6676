#include "foundation/synchronization/Mutex.h"

#include "foundation/synchronization/NamedSemaphore.h"
#include "tests/foundation/InChildProcess.h"
#include "tests/foundation/synchronization/ObservedThread.h"
#include "tests/foundation/synchronization/SemaphoreName.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <optional>
#include <type_traits>

using Common::NonCopyable;
using Common::Synchronization::Mutex;
using ZNORBTEST::inChildProcess;
using ZNORBTEST::ObservedThread;
using ZNORBTEST::SemaphoreName;

TEST(Mutex, ConstructionAsksNothingOfTheSystem) {
    const SemaphoreName name("construct");
    const Mutex mutex(name.plain());
    EXPECT_FALSE(name.exists());
}

TEST(Mutex, IsHeldByWhoeverCreatedTheSemaphore) {
    const SemaphoreName name("hold");
    Mutex mutex(name.plain());
    EXPECT_TRUE(mutex.tryLock());
    EXPECT_TRUE(name.exists());
}

TEST(Mutex, TryLockFailsWhenTheSemaphoreExistsAndEachCallTriesAgain) {
    const SemaphoreName name("again");
    EXPECT_FALSE(Common::Synchronization::semaphoreExists(name.plain()));
    Mutex mutex(name.plain());
    EXPECT_FALSE(mutex.tryLock());
    EXPECT_FALSE(mutex.tryLock());
    name.unlink();
    EXPECT_TRUE(mutex.tryLock());
}

TEST(Mutex, TryLockOfAHolderIsTrueWithoutAskingAgain) {
    const SemaphoreName name("holder");
    Mutex mutex(name.plain());
    EXPECT_TRUE(mutex.tryLock());
    name.unlink();
    EXPECT_TRUE(mutex.tryLock());
    EXPECT_FALSE(name.exists());
}

TEST(Mutex, SecondObjectOfTheNameGetsItAfterTheFirstUnlocks) {
    const SemaphoreName name("second");
    Mutex first(name.plain());
    Mutex second(name.absolute());
    EXPECT_TRUE(first.tryLock());
    EXPECT_FALSE(second.tryLock());
    EXPECT_TRUE(first.unlock());
    EXPECT_TRUE(second.tryLock());
    EXPECT_FALSE(first.tryLock());
}

TEST(Mutex, UnlockUnlinksTheNameAndIsTrue) {
    const SemaphoreName name("unlock");
    Mutex mutex(name.plain());
    EXPECT_TRUE(mutex.tryLock());
    EXPECT_TRUE(mutex.unlock());
    EXPECT_FALSE(name.exists());
    EXPECT_TRUE(mutex.tryLock());
}

TEST(Mutex, UnlockOfAnObjectThatNeverLockedIsTrueAndLeavesTheNameAlone) {
    const SemaphoreName name("never");
    Mutex holder(name.plain());
    Mutex other(name.plain());
    EXPECT_TRUE(holder.tryLock());
    EXPECT_TRUE(other.unlock());
    EXPECT_TRUE(name.exists());
}

TEST(Mutex, UnlockAfterAFailedTryLockIsFalseAndLeavesTheNameAlone) {
    const SemaphoreName name("failed");
    Mutex holder(name.plain());
    Mutex other(name.plain());
    EXPECT_TRUE(holder.tryLock());
    EXPECT_FALSE(other.tryLock());
    EXPECT_FALSE(other.unlock());
    EXPECT_TRUE(name.exists());
}

TEST(Mutex, UnlockWorksWhenTheNameIsGoneAlready) {
    const SemaphoreName name("gone");
    Mutex mutex(name.plain());
    EXPECT_TRUE(mutex.tryLock());
    name.unlink();
    EXPECT_TRUE(mutex.unlock());
    EXPECT_TRUE(mutex.tryLock());
}

TEST(Mutex, DestructorUnlocksWhatTheObjectHolds) {
    const SemaphoreName name("destructor");
    std::optional<Mutex> holder(name.plain());
    EXPECT_TRUE(holder->tryLock());
    {
        Mutex other(name.plain());
        EXPECT_FALSE(other.tryLock());
    }
    EXPECT_TRUE(name.exists());
    holder.reset();
    EXPECT_FALSE(name.exists());
}

TEST(Mutex, UnlockAndWaitReleasesTheLockAndBlocksUntilAPost) {
    const SemaphoreName name("wait");
    std::atomic<bool> posted = false;
    Mutex mutex(name.plain());
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

TEST(Mutex, UnlockAndWaitOfANonHolderWaitsOnTheHoldersSemaphore) {
    const SemaphoreName name("wait-other");
    Mutex holder(name.plain());
    EXPECT_TRUE(holder.tryLock());
    Mutex other(name.plain());
    const ObservedThread waiter([&] { (void)other.unlockAndWait(); });
    EXPECT_TRUE(waiter.fallsAsleep());
    EXPECT_TRUE(Common::Synchronization::postSemaphore(name.plain()));
    EXPECT_TRUE(waiter.finishes());
    EXPECT_TRUE(holder.unlock());
    EXPECT_FALSE(name.exists());
}

TEST(Mutex, WorksBetweenProcesses) {
    const SemaphoreName name("process");
    Mutex mutex(name.plain());
    EXPECT_TRUE(mutex.tryLock());
    EXPECT_TRUE(inChildProcess([&] { return !Mutex(name.plain()).tryLock(); }));
    EXPECT_TRUE(mutex.unlock());
    EXPECT_TRUE(inChildProcess([&] { return Mutex(name.plain()).tryLock(); }));
    EXPECT_TRUE(mutex.tryLock());
}

TEST(Mutex, HolderThatEndsWithoutUnlockingLeavesTheLockTaken) {
    const SemaphoreName name("killed");
    EXPECT_TRUE(inChildProcess([&] {
        Mutex held(name.plain());
        if (!held.tryLock()) {
            return false;
        }
        _exit(0);
    }));
    Mutex mutex(name.plain());
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
