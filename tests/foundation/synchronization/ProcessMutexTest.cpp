#include "foundation/synchronization/ProcessMutex.h"

#include "tests/foundation/containers/Allocations.h"
#include "tests/foundation/synchronization/ObservedThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <thread>
#include <type_traits>
#include <vector>

using Common::NonCopyable;
using Common::Synchronization::ProcessMutex;
using ZNORBTEST::AllocationWatch;
using ZNORBTEST::FailingAllocation;
using ZNORBTEST::ObservedThread;

namespace {

using ProcessMutexAllocations = ZNORBTEST::AllocationTest;

} // namespace

TEST(ProcessMutex, KeepsOthersOutUntilItIsUnlocked) {
    ProcessMutex mutex;
    std::atomic<bool> released = false;
    std::atomic<bool> enteredAfterRelease = false;
    mutex.lock();
    const ObservedThread other([&] {
        mutex.lock();
        enteredAfterRelease = released.load();
        mutex.unlock();
    });
    EXPECT_TRUE(other.fallsAsleep());
    released = true;
    mutex.unlock();
    EXPECT_TRUE(other.finishes());
    EXPECT_TRUE(enteredAfterRelease);
}

TEST(ProcessMutex, OnlyOneThreadAtATimeHoldsIt) {
    constexpr int threadCount = 4;
    constexpr int rounds = 5000;
    ProcessMutex mutex;
    int counter = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                mutex.lock();
                ++counter;
                mutex.unlock();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, threadCount * rounds);
}

TEST_F(ProcessMutexAllocations, KeepsItsOneHeapObjectUntilDestroyed) {
    const AllocationWatch watch;
    {
        const ProcessMutex mutex;
        EXPECT_EQ(watch.outstanding(), 1);
    }
    EXPECT_EQ(watch.outstanding(), 0);
}

TEST_F(ProcessMutexAllocations, FailedConstructionLeavesNothingBehind) {
    const AllocationWatch watch;
    {
        const FailingAllocation failure(0);
        EXPECT_THROW(ProcessMutex(), std::bad_alloc);
    }
    EXPECT_EQ(watch.outstanding(), 0);
}

TEST(ProcessMutex, IsAPrivateNonCopyableWithOneField) {
    EXPECT_TRUE((std::is_base_of_v<NonCopyable, ProcessMutex>));
    EXPECT_FALSE((std::is_convertible_v<ProcessMutex*, NonCopyable*>));
    EXPECT_FALSE(std::is_copy_constructible_v<ProcessMutex>);
    EXPECT_TRUE(std::has_virtual_destructor_v<ProcessMutex>);
    EXPECT_EQ(sizeof(ProcessMutex), sizeof(NonCopyable) + sizeof(void*));
}
