#include "common/threads/ThreadHandle.h"

#include "tests/common/threads/Gated.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Scarcity.h"
#include "tests/support/StandIns.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace {

using namespace ZNORBTEST;

using namespace ORBCOMMON;

static_assert(sizeof(ThreadHandle) == sizeof(void*), "one pointer");
static_assert(!std::is_copy_constructible_v<ThreadHandle> && !std::is_copy_assignable_v<ThreadHandle>);

// Takes a while, so that a join that did not wait would see the value too early.
class SlowWriter : public Threadable {
public:
    void run() override {
        sleepMilliseconds(50);
        value = 1;
    }

    int value = 0;
};

TEST(ThreadHandle, IsNullUntilStartedAndAfterAJoinThatWaitsForTheEnd) {
    SlowWriter threadable;
    ThreadHandle handle;
    EXPECT_TRUE(handle.isNull());
    EXPECT_EQ(start(handle, &threadable), 0);
    EXPECT_FALSE(handle.isNull());
    join(handle);
    EXPECT_EQ(threadable.value, 1);
    EXPECT_TRUE(handle.isNull());
}

TEST(ThreadHandle, DetachAndDestructionReturnAtOnceAndLetTheThreadRunOn) {
    for (const bool isDetached : {true, false}) {
        Gated threadable;
        {
            ThreadHandle handle;
            ASSERT_EQ(start(handle, &threadable), 0);
            if (isDetached) {
                detach(handle);
                EXPECT_TRUE(handle.isNull());
            }
        }
        EXPECT_EQ(threadable.runs, 0);
        threadable.open = true;
        ASSERT_TRUE(waitUntil([&] { return threadable.finished.load(); }));
        EXPECT_EQ(threadable.runs, 1);
    }
}

TEST(ThreadHandle, JoinAndDetachOfANullHandleDoNothing) {
    ThreadHandle handle;
    join(handle);
    EXPECT_TRUE(handle.isNull());
    detach(handle);
    EXPECT_TRUE(handle.isNull());
}

TEST(ThreadHandle, ASecondJoinOrDetachDoesNothingAndItCanBeStartedAgain) {
    Gated threadable;
    threadable.open = true;
    ThreadHandle handle;
    for (int runs = 1; runs <= 2; ++runs) {
        ASSERT_EQ(start(handle, &threadable), 0);
        join(handle);
        join(handle);
        detach(handle);
        EXPECT_TRUE(handle.isNull());
        EXPECT_EQ(threadable.runs, runs);
    }
}

TEST(ThreadHandle, HoldsTheIdentifierOfAFailedStartUntilItIsJoinedDetachedOrDestroyed) {
    Gated threadable;
    {
        ThreadHandle joined;
        ThreadHandle detached;
        ThreadHandle destroyed;
        for (ThreadHandle* const handle : {&joined, &detached, &destroyed}) {
            const NoThreads noThreads;
            EXPECT_EQ(start(*handle, &threadable), EAGAIN);
            EXPECT_FALSE(handle->isNull());
        }
        join(joined);
        EXPECT_TRUE(holdSameThread(&detached, &destroyed)) << "the plain same value";
        detach(detached);
        EXPECT_TRUE(joined.isNull());
        EXPECT_TRUE(detached.isNull());
    }
    EXPECT_EQ(threadable.runs, 0);
}

TEST(ThreadHandle, GivesTheSystemNoThreadThatWasNotCreated) {
    ZNORB_SKIP_IF(underThreadSanitizer) << "the thread sanitizer has its own for these";
    Gated threadable;
    int calls = 0;
    const InPlaceOf<pthread_join> joins([&calls](pthread_t, void**) { return ++calls; });
    const InPlaceOf<pthread_detach> detaches([&calls](pthread_t) { return ++calls; });
    for (void (*const give)(ThreadHandle&) : {join, detach}) {
        ThreadHandle given;
        ThreadHandle destroyed;
        const NoThreads noThreads;
        EXPECT_EQ(start(given, &threadable), EAGAIN);
        EXPECT_EQ(start(destroyed, &threadable), EAGAIN);
        give(given);
    }
    EXPECT_EQ(calls, 0);
}

TEST(ThreadHandle, ItsEndDetachesTheThreadThatItHolds) {
    ZNORB_SKIP_IF(underThreadSanitizer) << "the thread sanitizer has its own for these";
    Gated threadable;
    int detached = 0;
    {
        const InPlaceOf<pthread_detach> detaches([&detached](pthread_t thread) {
            ++detached;
            return pthread_detach(thread);
        });
        const ThreadHandle null;
        ThreadHandle handle;
        ASSERT_EQ(start(handle, &threadable), 0);
    }
    EXPECT_EQ(detached, 1);
    threadable.open = true;
    EXPECT_TRUE(waitUntil([&] { return threadable.finished.load(); }));
}

TEST(ThreadHandle, AStartThatFailsLateLeavesNoThreadsValueBehind) {
    expectEndOfForked(exitedWith(0), [] {
        Gated threadable;
        ThreadHandle failedEarly;
        ThreadHandle failedLate;
        {
            const NoThreads noThreads;
            (void)start(failedEarly, &threadable);
        }
        // The stack is had this time, only the thread is not: the limit holds for everybody but root.
        const rlimit none{0, 0};
        if (setrlimit(RLIMIT_NPROC, &none) != 0 || (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0)) {
            return 1;
        }
        if (start(failedLate, &threadable) != EAGAIN) {
            return 2;
        }
        return holdSameThread(&failedEarly, &failedLate) ? 0 : 3;
    });
}

TEST(ThreadHandle, StartWithoutMemoryReturnsEnomemAndANullHandle) {
    ZNORB_SKIP_IF(underSanitizer) << "the sanitizers end a process that has no memory";
    EXPECT_TRUE(holdsInForked([] {
        Gated threadable;
        ThreadHandle handle;
        useUpMemory();
        const bool refused = start(handle, &threadable) == ENOMEM;
        return refused && handle.isNull();
    }));
}

TEST(ThreadHandle, HandlesAreEqualWhenTheyHoldTheSameThreadAndANullHandleIsEqualToNothing) {
    Gated first;
    Gated second;
    ThreadHandle firstHandle;
    ThreadHandle secondHandle;
    const ThreadHandle null;
    ASSERT_EQ(start(firstHandle, &first), 0);
    ASSERT_EQ(start(secondHandle, &second), 0);
    EXPECT_TRUE(holdSameThread(&firstHandle, &firstHandle));
    EXPECT_FALSE(holdSameThread(&firstHandle, &secondHandle));
    EXPECT_FALSE(holdSameThread(&null, &null));
    EXPECT_FALSE(holdSameThread(&null, &firstHandle));
    EXPECT_FALSE(holdSameThread(&firstHandle, &null));
    EXPECT_FALSE(holdSameThread(nullptr, &firstHandle));
    EXPECT_FALSE(holdSameThread(&firstHandle, nullptr));
    EXPECT_FALSE(holdSameThread(nullptr, nullptr));
    first.open = true;
    second.open = true;
    join(firstHandle);
    join(secondHandle);
    EXPECT_FALSE(holdSameThread(&firstHandle, &firstHandle));
}

TEST(SleepMilliseconds, SleepsAtLeastAsLongAsAskedAndReturnsFromASleepOfNothing) {
    const auto before = std::chrono::steady_clock::now();
    sleepMilliseconds(20);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(20));
    const auto between = std::chrono::steady_clock::now();
    sleepMilliseconds(0);
    EXPECT_LT(std::chrono::steady_clock::now() - between, std::chrono::seconds(30));
}

TEST(SleepMilliseconds, LongSleepIsMadeOfStepsThatAddUp) {
    const std::uint64_t milliseconds = std::numeric_limits<unsigned>::max();
    std::uint64_t slept = 0;
    const InPlaceOf<usleep> sleeps([&slept](useconds_t microseconds) {
        slept += microseconds;
        return 0;
    });
    sleepMilliseconds(static_cast<unsigned>(milliseconds));
    EXPECT_EQ(slept, milliseconds * 1000);
}

TEST(SleepMilliseconds, DoesNotCutShortASleepWhoseMicrosecondsOverflow) {
    // 4,294,968 ms are 704 microseconds when their product wraps around at 32 bits.
    ForkedChild sleeper([] {
        sleepMilliseconds(4'294'968);
        return 0;
    });
    EXPECT_EQ(sleeper.waitForEnd(std::chrono::milliseconds(300)), stillRunning());
}

} // namespace
