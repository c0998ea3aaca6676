#include "foundation/synchronization/RecursiveProcessMutex.h"

#include "tests/support/Layout.h"
#include "tests/support/ObservedThread.h"
#include "tests/support/OnThreads.h"
#include "tests/support/Rows.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/StandIns.h"
#include "tests/support/Waiting.h"

#include <gmock/gmock.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <thread>

using Common::Synchronization::RecursiveProcessMutex;
using namespace ZNORBTEST;

namespace {

/// A thread that takes the lock, leaves it again and ends.
std::unique_ptr<ObservedThread> startVisitor(RecursiveProcessMutex& mutex) {
    return std::make_unique<ObservedThread>([&mutex] {
        mutex.lock();
        mutex.unlock();
    });
}

/// Whether the lock is free for a thread other than the caller. Only for a lock that is: the thread of a
/// lock that is not could never be ended.
bool isFree(RecursiveProcessMutex& mutex) {
    return startVisitor(mutex)->finishes();
}

void unlockOnAnotherThread(RecursiveProcessMutex& mutex) {
    std::thread([&mutex] { mutex.unlock(); }).join();
}

/// The calling thread's locks and unlocks of it ("L" and "U"), and stray unlocks of another thread ("S"),
/// each with what a visitor does after it: it waits until the last one.
class LockedToDepth : public testing::TestWithParam<Row<std::string, std::string>> {};

TEST_P(LockedToDepth, WakesAVisitorWithItsLastUnlock) {
    RecursiveProcessMutex mutex;
    const auto act = [&mutex](char step) {
        if (step == 'L') {
            mutex.lock();
        } else if (step == 'U') {
            mutex.unlock();
        } else {
            unlockOnAnotherThread(mutex);
        }
    };
    for (const char step : GetParam().given) {
        act(step);
    }
    const std::unique_ptr<ObservedThread> visitor = startVisitor(mutex);
    for (const char step : GetParam().expected) {
        EXPECT_TRUE(visitor->fallsAsleep()) << "before " << step;
        act(step);
    }
    EXPECT_TRUE(visitor->finishes());
}

// Before the visitor comes, and while it waits.
const Row<std::string, std::string> depths[] = {
    {"ThreeLocksNeedThreeUnlocks", "LLL", "UUU"},
    {"OwnerOfBeforeTakesItAnew", "LUL", "U"},
    {"OwnerTakesItAgainWhileOthersWait", "L", "LUU"},
    {"StrayUnlockReleasesTheOwnersOnlyLevel", "L", "S"},
    {"StrayUnlockTakesOneLevelOfSeveral", "LLLS", "UU"},
    {"UnlockAfterAStrayReleaseDoesNothing", "LSU", ""},
    {"UnlocksOfALockThatNobodyHoldsDoNothing", "UUU", ""},
    {"IsTakenAfterUnlocksThatDidNothing", "UUUL", "U"},
};

INSTANTIATE_TEST_SUITE_P(RecursiveProcessMutex, LockedToDepth, testing::ValuesIn(depths), rowName);

} // namespace

TEST(RecursiveProcessMutex, WaitersAreWokenOneByOneUntilAllHaveHadIt) {
    RecursiveProcessMutex mutex;
    mutex.lock();
    std::vector<std::unique_ptr<ObservedThread>> visitors;
    for (int i = 0; i < 4; ++i) {
        visitors.push_back(startVisitor(mutex));
        EXPECT_TRUE(visitors.back()->fallsAsleep());
    }
    mutex.unlock();
    for (const std::unique_ptr<ObservedThread>& visitor : visitors) {
        EXPECT_TRUE(visitor->finishes());
    }
}

TEST(RecursiveProcessMutex, OneReleaseWakesOneWaiter) {
    RecursiveProcessMutex mutex;
    std::atomic<int> inside = 0;
    std::atomic<bool> leave = false;
    mutex.lock();
    const auto stayInside = [&] {
        mutex.lock();
        ++inside;
        (void)waitUntil([&] { return leave.load(); });
        mutex.unlock();
    };
    const ObservedThread first(stayInside);
    const ObservedThread second(stayInside);
    EXPECT_TRUE(first.fallsAsleep());
    EXPECT_TRUE(second.fallsAsleep());
    const long firstBefore = first.timesAsleep();
    const long secondBefore = second.timesAsleep();
    mutex.unlock();
    EXPECT_TRUE(waitUntil([&] { return inside == 1; }));
    EXPECT_TRUE(first.timesAsleep() == firstBefore || second.timesAsleep() == secondBefore);
    leave = true;
    EXPECT_TRUE(first.finishes());
    EXPECT_TRUE(second.finishes());
    EXPECT_EQ(inside, 2);
}

TEST(RecursiveProcessMutex, OnlyOneThreadAtATimeOwnsItHoweverDeep) {
    RecursiveProcessMutex mutex;
    int counter = 0;
    onThreads(4, [&](int) {
        for (int round = 0; round < 2000; ++round) {
            mutex.lock();
            mutex.lock();
            ++counter;
            mutex.unlock();
            ++counter;
            mutex.unlock();
        }
    });
    EXPECT_EQ(counter, 2 * 4 * 2000);
}

TEST(RecursiveProcessMutex, OwnerWhoLostTheLockToAStrayUnlockTakesALevelOffItsSuccessor) {
    RecursiveProcessMutex mutex;
    mutex.lock();
    unlockOnAnotherThread(mutex);
    std::atomic<bool> owned = false;
    std::atomic<bool> leave = false;
    const ObservedThread successor([&] {
        mutex.lock();
        owned = true;
        (void)waitUntil([&] { return leave.load(); });
        mutex.unlock();
    });
    ASSERT_TRUE(waitUntil([&] { return owned.load(); }));
    mutex.unlock();
    EXPECT_TRUE(isFree(mutex));
    leave = true;
    EXPECT_TRUE(successor.finishes());
    EXPECT_TRUE(isFree(mutex));
}

TEST(RecursiveProcessMutex, StaysUsableUnderStrayUnlocksFromManyThreads) {
    RecursiveProcessMutex mutex;
    onThreads(4, [&](int thread) {
        for (int round = 0; round < 2000; ++round) {
            if (thread % 2 == 0) {
                mutex.lock();
            }
            mutex.unlock();
        }
    });
    EXPECT_TRUE(isFree(mutex));
}

TEST(RecursiveProcessMutex, OnlyAStrayUnlockLetsTheOthersInBeforeItCounts) {
    ZNORB_SKIP_IF(underThreadSanitizer) << "the thread sanitizer has locks of its own";
    constexpr std::size_t word = sizeof(void*);
    RecursiveProcessMutex mutex;
    std::vector<std::uint32_t> seen; // whenever the guard is let go
    const InPlaceOf<pthread_mutex_unlock> unlocks([&](pthread_mutex_t* guard) {
        if (guard == fieldAt<pthread_mutex_t*>(&mutex, word)) {
            EXPECT_EQ(pthread_mutex_trylock(guard), EBUSY) << "it is held until then";
            seen.push_back(fieldAt<std::uint32_t>(&mutex, 2 * word));
        }
        return pthread_mutex_unlock(guard);
    });
    mutex.lock();
    mutex.unlock();
    mutex.unlock();
    mutex.lock();
    mutex.lock();
    unlockOnAnotherThread(mutex);
    EXPECT_EQ(seen, (std::vector<std::uint32_t>{1, 0, 0, 1, 2, 2, 1}));
    mutex.unlock();
    unlockOnAnotherThread(mutex);
    EXPECT_EQ(seen.size(), 9U) << "nobody holds it any more, so no unlock is a stray one";
}

TEST(RecursiveProcessMutex, DestroysTheAttributesOfItsGuardAndAtItsEndTheGuardAndTheCondition) {
    ZNORB_SKIP_IF(underThreadSanitizer) << "the thread sanitizer has its own for these";
    constexpr std::size_t word = sizeof(void*);
    std::vector<const void*> destroyed;
    const auto note = [&destroyed](const void* what) {
        destroyed.push_back(what);
        return 0;
    };
    const InPlaceOf<pthread_mutexattr_destroy> ofAttributes(note);
    const InPlaceOf<pthread_mutex_destroy> ofGuards(note);
    const InPlaceOf<pthread_cond_destroy> ofConditions(note);
    const void* guard = nullptr;
    const void* condition = nullptr;
    {
        const RecursiveProcessMutex mutex;
        guard = fieldAt<const void*>(&mutex, word);
        condition = fieldAt<const void*>(&mutex, 3 * word);
        EXPECT_EQ(destroyed.size(), 1U);
        destroyed.clear();
    }
    EXPECT_THAT(destroyed, testing::UnorderedElementsAre(guard, condition));
}

TEST(RecursiveProcessMutex, LockWaitsForTheGuard) {
    RecursiveProcessMutex mutex;
    pthread_mutex_t* const guard = fieldAt<pthread_mutex_t*>(&mutex, sizeof(void*));
    ASSERT_EQ(pthread_mutex_lock(guard), 0);
    const std::unique_ptr<ObservedThread> visitor = startVisitor(mutex);
    EXPECT_TRUE(visitor->fallsAsleep());
    ASSERT_EQ(pthread_mutex_unlock(guard), 0);
    EXPECT_TRUE(visitor->finishes());
}

TEST(RecursiveProcessMutex, KeepsItsFieldsInTheirOrder) {
    constexpr std::size_t word = sizeof(void*);
    RecursiveProcessMutex mutex;
    ASSERT_EQ(fieldAt<std::uint32_t>(&mutex, 2 * word), 0U);
    EXPECT_FALSE(fieldAt<bool>(&mutex, 5 * word));
    mutex.lock();
    mutex.lock();
    EXPECT_EQ(fieldAt<std::uint32_t>(&mutex, 2 * word), 2U) << "the depth";
    EXPECT_EQ(*fieldAt<pthread_t*>(&mutex, 4 * word), pthread_self()) << "the owner";
    EXPECT_TRUE(fieldAt<bool>(&mutex, 5 * word)) << "held";
    pthread_mutex_t* const guard = fieldAt<pthread_mutex_t*>(&mutex, word);
    ASSERT_EQ(pthread_mutex_lock(guard), 0);
    const ObservedThread stray([&mutex] { mutex.unlock(); });
    EXPECT_TRUE(stray.fallsAsleep()) << "on the guard";
    ASSERT_EQ(pthread_mutex_unlock(guard), 0);
    EXPECT_TRUE(stray.finishes());
    pthread_cond_t* const condition = fieldAt<pthread_cond_t*>(&mutex, 3 * word);
    const std::unique_ptr<ObservedThread> visitor = startVisitor(mutex);
    EXPECT_TRUE(visitor->fallsAsleep());
    const long before = visitor->timesAsleep();
    EXPECT_EQ(pthread_cond_signal(condition), 0);
    EXPECT_TRUE(waitUntil([&] { return visitor->timesAsleep() > before; })) << "it waits on the condition";
    mutex.unlock();
    EXPECT_TRUE(visitor->finishes());
}
