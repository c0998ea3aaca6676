#include "foundation/synchronization/ProcessMutex.h"

#include "foundation/synchronization/RecursiveProcessMutex.h"
#include "tests/support/Allocations.h"
#include "tests/support/ObservedThread.h"
#include "tests/support/OnThreads.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/StandIns.h"

#include <pthread.h>

#include <atomic>
#include <new>
#include <type_traits>

using Common::NonCopyable;
using namespace Common::Synchronization;
using namespace ZNORBTEST;

namespace {

/// What both kinds of locks between the threads of a process have in common.
template <typename Mutex>
class ProcessMutexOfEachKind : public testing::Test {};

template <typename Mutex>
class ProcessMutexAllocations : public AllocationTest {
protected:
    static constexpr long heapObjects = std::is_same_v<Mutex, ProcessMutex> ? 1 : 3;
};

using Mutexes = testing::Types<ProcessMutex, RecursiveProcessMutex>;

TYPED_TEST_SUITE(ProcessMutexOfEachKind, Mutexes);
TYPED_TEST_SUITE(ProcessMutexAllocations, Mutexes);

} // namespace

TYPED_TEST(ProcessMutexOfEachKind, KeepsOthersOutUntilItIsUnlocked) {
    TypeParam mutex;
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

TYPED_TEST(ProcessMutexOfEachKind, OnlyOneThreadAtATimeHoldsIt) {
    TypeParam mutex;
    int counter = 0;
    onThreads(4, [&](int) {
        for (int round = 0; round < 5000; ++round) {
            mutex.lock();
            ++counter;
            mutex.unlock();
        }
    });
    EXPECT_EQ(counter, 4 * 5000);
}

TYPED_TEST(ProcessMutexAllocations, AreKeptUntilItIsDestroyed) {
    const AllocationWatch watch;
    {
        const TypeParam mutex;
        EXPECT_EQ(watch.outstanding(), TestFixture::heapObjects);
    }
    EXPECT_EQ(watch.outstanding(), 0);
}

TYPED_TEST(ProcessMutexOfEachKind, DestroysWhatTheSystemMayKeepForIt) {
    ZNORB_SKIP_IF(underThreadSanitizer) << "the thread sanitizer has locks of its own";
    int destroyed = 0;
    const InPlaceOf<pthread_mutex_destroy> destructions([&](pthread_mutex_t* mutex) {
        ++destroyed;
        return pthread_mutex_destroy(mutex);
    });
    { const TypeParam mutex; }
    EXPECT_EQ(destroyed, 1);
}

TYPED_TEST(ProcessMutexAllocations, AreNoneAfterAFailedConstruction) {
    for (long succeeding = 0; succeeding < TestFixture::heapObjects; ++succeeding) {
        const AllocationWatch watch;
        {
            const FailingAllocation failure(succeeding);
            EXPECT_THROW(TypeParam(), std::bad_alloc);
        }
        EXPECT_EQ(watch.outstanding(), 0);
    }
}

TYPED_TEST(ProcessMutexOfEachKind, IsAPrivateNonCopyable) {
    EXPECT_TRUE((std::is_base_of_v<NonCopyable, TypeParam>));
    EXPECT_FALSE((std::is_convertible_v<TypeParam*, NonCopyable*>));
    EXPECT_FALSE(std::is_copy_constructible_v<TypeParam>);
    EXPECT_TRUE(std::has_virtual_destructor_v<TypeParam>);
}

TEST(ProcessMutex, HasOneField) {
    EXPECT_EQ(sizeof(ProcessMutex), sizeof(NonCopyable) + sizeof(void*));
}
