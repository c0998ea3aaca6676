#include "common/processes/ProcessEvent.h"

#include "tests/common/processes/ProcessEventView.h"
#include "tests/support/Files.h"
#include "tests/support/ObservedThread.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/StandIns.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using namespace ZNORBTEST;

using ORBCOMMON::ProcessEvent;

static_assert(!std::is_polymorphic_v<ProcessEvent>);
static_assert(!std::is_copy_constructible_v<ProcessEvent> && !std::is_copy_assignable_v<ProcessEvent>);

/// A thread that waits on an event as it is told to.
class Waiter {
public:
    explicit Waiter(std::function<bool()> waiting)
        : m_thread([this, waiting = std::move(waiting)] { m_result = waiting(); }) {}

    /// True once the thread sleeps in its wait, false if it does not within a bound or has ended.
    bool isWaiting() const { return m_thread.fallsAsleep(); }
    /// True or false as the waiting said; false, and a failure, if it has not ended within a bound.
    bool result() const {
        EXPECT_TRUE(m_thread.finishes());
        return m_result;
    }

private:
    std::atomic<bool> m_result = false;
    ObservedThread m_thread;
};

/// Gives the block another mutex, with the attributes that `choose` sets.
void replaceMutex(BlockView& block, void (*choose)(pthread_mutexattr_t*)) {
    pthread_mutexattr_t attributes;
    ASSERT_EQ(pthread_mutexattr_init(&attributes), 0);
    choose(&attributes);
    ASSERT_EQ(pthread_mutex_destroy(&block.mutex), 0);
    ASSERT_EQ(pthread_mutex_init(&block.mutex, &attributes), 0);
    ASSERT_EQ(pthread_mutexattr_destroy(&attributes), 0);
}

// A thread that locks the mutex and ends.
void endHolding(pthread_mutex_t* mutex) {
    std::thread([mutex] { EXPECT_EQ(pthread_mutex_lock(mutex), 0); }).join();
}

// Each of these holds for events on the heap and in a shared mapping alike.
class ProcessEventOfEachKind : public testing::TestWithParam<bool> {
protected:
    static bool isShared() { return GetParam(); }

    // Attributes that are given up may hold anything.
    int givenUp = 0;
    const std::function<int(void*)> spoil = [this](void* attributes) {
        ++givenUp;
        std::memset(attributes, 0xff, sizeof(pthread_mutexattr_t));
        return 0;
    };
    static_assert(sizeof(pthread_mutexattr_t) == sizeof(pthread_condattr_t));
    const InPlaceOf<pthread_mutexattr_destroy> ofMutexes{spoil};
    const InPlaceOf<pthread_condattr_destroy> ofConditions{spoil};

    ProcessEvent event{false, isShared()};
    BlockView* const block = viewOf(event).block;
};

INSTANTIATE_TEST_SUITE_P(ProcessEvent, ProcessEventOfEachKind, testing::Values(false, true),
                         [](const testing::TestParamInfo<bool>& kind) {
                             return kind.param ? std::string("Shared") : std::string("OnTheHeap");
                         });

TEST_P(ProcessEventOfEachKind, StartsAsItIsTold) {
    ProcessEvent signalled(true, isShared());
    EXPECT_TRUE(signalled.timedWait(0));
    EXPECT_FALSE(event.timedWait(0));
}

TEST_P(ProcessEventOfEachKind, GivesTheAttributesUpWithWhichItWasMade) {
    ZNORB_SKIP_IF(underThreadSanitizer) << "the thread sanitizer's program has no stand-ins for these";
    EXPECT_EQ(givenUp, 2) << "of the mutex and of the condition";
}

TEST_P(ProcessEventOfEachKind, KeepsItsFlagsInTheBlock) {
    ProcessEvent signalled(true, isShared());
    const EventView view = viewOf(signalled);
    ASSERT_NE(view.block, nullptr);
    EXPECT_TRUE(view.owner);
    EXPECT_EQ(view.block->destroyed, 0);
    EXPECT_EQ(view.block->signalled, 1);
    EXPECT_EQ(view.block->shared, isShared() ? 1 : 0);
    EXPECT_EQ(signalled.reset(), 0);
    EXPECT_EQ(view.block->signalled, 0);
    EXPECT_EQ(signalled.set(), 0);
    EXPECT_EQ(view.block->signalled, 1);
}

TEST_P(ProcessEventOfEachKind, SetAndResetReturnZeroAndOneResetUndoesAnyNumberOfSets) {
    for (int sets = 0; sets <= 2; ++sets) {
        for (int count = 0; count < sets; ++count) {
            EXPECT_EQ(event.set(), 0);
            EXPECT_TRUE(event.timedWait(0));
        }
        EXPECT_EQ(event.reset(), 0) << "even with nothing to reset";
        EXPECT_FALSE(event.timedWait(0));
    }
}

TEST_P(ProcessEventOfEachKind, WaitOnASignalledEventReturnsAtOnceAndLeavesItSignalled) {
    ASSERT_EQ(event.set(), 0);
    EXPECT_TRUE(event.wait());
    EXPECT_TRUE(event.wait());
    EXPECT_TRUE(event.timedWait(inSeconds(60)));
    EXPECT_TRUE(event.timedWait(0));
}

TEST_P(ProcessEventOfEachKind, OneSetReleasesEveryWaiter) {
    std::vector<std::unique_ptr<Waiter>> waiters;
    for (int count = 0; count < 3; ++count) {
        waiters.push_back(std::make_unique<Waiter>([this] { return event.wait(); }));
        waiters.push_back(std::make_unique<Waiter>([this] { return event.timedWait(inSeconds(60)); }));
    }
    for (const auto& waiter : waiters) {
        EXPECT_TRUE(waiter->isWaiting());
    }
    EXPECT_EQ(event.set(), 0);
    for (const auto& waiter : waiters) {
        EXPECT_TRUE(waiter->result());
    }
    EXPECT_TRUE(event.timedWait(0)) << "waiting does not reset it";
}

TEST_P(ProcessEventOfEachKind, ASecondSetDoesNotBroadcastAgain) {
    EXPECT_EQ(event.set(), 0);
    // A waiter on the bare condition, which a broadcast would wake although the event is signalled.
    Waiter bystander([this] {
        const timespec limit{inSeconds(2), 0};
        (void)pthread_mutex_lock(&block->mutex);
        const int error = pthread_cond_timedwait(&block->condition, &block->mutex, &limit);
        (void)pthread_mutex_unlock(&block->mutex);
        return error == ETIMEDOUT;
    });
    EXPECT_TRUE(bystander.isWaiting());
    EXPECT_EQ(event.set(), 0);
    EXPECT_TRUE(bystander.result());
    EXPECT_EQ(block->signalled, 1);
}

TEST_P(ProcessEventOfEachKind, CanBeUsedAgainAfterAReset) {
    for (int round = 0; round < 3; ++round) {
        Waiter waiter([this] { return event.wait(); });
        EXPECT_TRUE(waiter.isWaiting());
        EXPECT_EQ(event.set(), 0);
        EXPECT_TRUE(waiter.result());
        EXPECT_EQ(event.reset(), 0);
    }
}

TEST_P(ProcessEventOfEachKind, FailsWithoutAChangeWhenTheLockFails) {
    replaceMutex(*block,
                 [](pthread_mutexattr_t* attributes) { // by one that tells its holder that it is locked
                     ASSERT_EQ(pthread_mutexattr_settype(attributes, PTHREAD_MUTEX_ERRORCHECK), 0);
                 });
    ASSERT_EQ(pthread_mutex_lock(&block->mutex), 0);
    EXPECT_EQ(event.set(), EDEADLK);
    EXPECT_EQ(block->signalled, 0);
    block->signalled = 1;
    EXPECT_EQ(event.reset(), EDEADLK);
    EXPECT_EQ(block->signalled, 1);
    EXPECT_FALSE(event.wait());
    EXPECT_FALSE(event.timedWait(inSeconds(60)));
    ASSERT_EQ(pthread_mutex_unlock(&block->mutex), 0);
    EXPECT_TRUE(event.wait());
}

TEST_P(ProcessEventOfEachKind, WaitsEndWithFalseWhenTheirLockIsLostOrBecomesUnusableMeanwhile) {
    for (const auto& [isTimed, isUnusable] :
         {std::pair(false, false), {true, false}, {false, true}, {true, true}}) {
        ProcessEvent lost(false, isShared());
        BlockView* const itsBlock = viewOf(lost).block;
        replaceMutex(*itsBlock, [](pthread_mutexattr_t* attributes) {
            ASSERT_EQ(pthread_mutexattr_setpshared(attributes, PTHREAD_PROCESS_SHARED), 0);
            ASSERT_EQ(pthread_mutexattr_setrobust(attributes, PTHREAD_MUTEX_ROBUST), 0);
        });
        Waiter waiter(
            [&lost, timed = isTimed] { return timed ? lost.timedWait(inSeconds(60)) : lost.wait(); });
        ASSERT_TRUE(waiter.isWaiting());
        endHolding(&itsBlock->mutex);
        if (isUnusable) {
            EXPECT_EQ(pthread_mutex_lock(&itsBlock->mutex), EOWNERDEAD);
            EXPECT_EQ(pthread_mutex_unlock(&itsBlock->mutex), 0); // nobody has put it right
        }
        EXPECT_EQ(pthread_cond_broadcast(&itsBlock->condition), 0);
        EXPECT_FALSE(waiter.result());
        EXPECT_TRUE(!isUnusable || lost.set() == ENOTRECOVERABLE);
    }
}

TEST_P(ProcessEventOfEachKind, TimedWaitTakesAPointInTimeAndNoDuration) {
    const auto before = std::chrono::steady_clock::now();
    EXPECT_FALSE(event.timedWait(3600));
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(60));
}

TEST_P(ProcessEventOfEachKind, TimedWaitWithAPastDeadlineIsFalseUnlessSignalled) {
    for (const std::time_t past :
         {inSeconds(-1), std::time_t{0}, std::time_t{-1}, std::numeric_limits<std::time_t>::min()}) {
        EXPECT_EQ(event.reset(), 0);
        EXPECT_FALSE(event.timedWait(past));
        EXPECT_EQ(event.set(), 0);
        EXPECT_TRUE(event.timedWait(past));
    }
}

TEST_P(ProcessEventOfEachKind, TimedWaitEndsWithAWholeSecondAndNeverBeforeTheEpoch) {
    ZNORB_SKIP_IF(underThreadSanitizer) << "the thread sanitizer has a wait of its own";
    std::vector<std::pair<std::time_t, long>> limits;
    const InPlaceOf<pthread_cond_timedwait> waits(
        [&limits](pthread_cond_t*, pthread_mutex_t*, const timespec* limit) {
            limits.emplace_back(limit->tv_sec, limit->tv_nsec);
            return ETIMEDOUT;
        });
    for (const std::time_t deadline : {std::time_t{2}, std::time_t{1}, std::time_t{0}, std::time_t{-1}}) {
        EXPECT_FALSE(event.timedWait(deadline));
    }
    EXPECT_EQ(limits, (std::vector<std::pair<std::time_t, long>>{{2, 0}, {1, 0}, {0, 0}, {0, 0}}));
}

TEST_P(ProcessEventOfEachKind, TimedWaitWaitsUntilTheDeadline) {
    const std::time_t deadline = inSeconds(2);
    EXPECT_FALSE(event.timedWait(deadline));
    timespec now{};
    ASSERT_EQ(clock_gettime(CLOCK_REALTIME, &now), 0);
    EXPECT_GE(now.tv_sec, deadline);
}

TEST_P(ProcessEventOfEachKind, TimedWaitIsTrueWhenSignalledBeforeAVeryLateDeadline) {
    Waiter waiter([this] { return event.timedWait(std::numeric_limits<std::time_t>::max()); });
    EXPECT_TRUE(waiter.isWaiting());
    EXPECT_EQ(event.set(), 0);
    EXPECT_TRUE(waiter.result());
}

TEST_P(ProcessEventOfEachKind, TimedWaitIsFalseWhenTheSignalCoincidesWithTheTimeOut) {
    const std::time_t deadline = inSeconds(2);
    Waiter waiter([this, deadline] { return event.timedWait(deadline); });
    EXPECT_TRUE(waiter.isWaiting());
    // The time-out finds the lock taken, and behind it an event that has just been signalled.
    ASSERT_EQ(pthread_mutex_lock(&block->mutex), 0);
    block->signalled = 1;
    EXPECT_TRUE(waitUntil([deadline] { return std::time(nullptr) > deadline; }));
    ASSERT_EQ(pthread_mutex_unlock(&block->mutex), 0);
    EXPECT_FALSE(waiter.result());
    EXPECT_TRUE(event.timedWait(deadline));
}

TEST_P(ProcessEventOfEachKind, TimedWaitSleepsAgainWhenItWasWokenWithoutASignal) {
    Waiter waiter([this] { return event.timedWait(inSeconds(60)); });
    Waiter unlimited([this] { return event.wait(); });
    for (int wakeUp = 0; wakeUp < 3; ++wakeUp) {
        EXPECT_TRUE(waiter.isWaiting());
        EXPECT_TRUE(unlimited.isWaiting());
        ASSERT_EQ(pthread_cond_broadcast(&block->condition), 0);
    }
    EXPECT_TRUE(waiter.isWaiting());
    EXPECT_TRUE(unlimited.isWaiting());
    EXPECT_EQ(event.set(), 0);
    EXPECT_TRUE(waiter.result());
    EXPECT_TRUE(unlimited.result());
}

/// Whether the other thread, which sleeps, waits on something that it shares with this process alone.
bool waitsPrivately() {
    constexpr unsigned long ofOneProcess = 128; // in the operation of the system call
    const std::string futex = std::to_string(SYS_futex) + " ";
    for (const std::string& thread : namesIn("/proc/self/task")) {
        const std::string call = readFile("/proc/self/task/" + thread + "/syscall");
        if (thread != std::to_string(gettid()) && call.starts_with(futex)) {
            const std::size_t operation = call.find(' ', futex.size()) + 1;
            return (std::stoul(call.substr(operation), nullptr, 16) & ofOneProcess) != 0;
        }
    }
    ADD_FAILURE() << "no other thread waits";
    return true;
}

TEST_P(ProcessEventOfEachKind, HasPrimitivesThatProcessesCanShare) {
    Waiter waiter([this] { return event.wait(); });
    EXPECT_TRUE(waiter.isWaiting());
    EXPECT_FALSE(waitsPrivately()) << "on the condition";
    EXPECT_EQ(event.set(), 0);
    EXPECT_TRUE(waiter.result());
    ASSERT_EQ(pthread_mutex_lock(&block->mutex), 0);
    Waiter setter([this] { return event.set() == 0; });
    EXPECT_TRUE(setter.isWaiting());
    EXPECT_FALSE(waitsPrivately()) << "on the mutex";
    ASSERT_EQ(pthread_mutex_unlock(&block->mutex), 0);
    EXPECT_TRUE(setter.result());
}

TEST_P(ProcessEventOfEachKind, TellsOfAnUnlockThatFails) {
    ZNORB_SKIP_IF(underThreadSanitizer) << "the thread sanitizer has an unlock of its own";
    const InPlaceOf<pthread_mutex_unlock> unlocks([this](pthread_mutex_t* mutex) {
        const int error = pthread_mutex_unlock(mutex);
        return mutex == &block->mutex ? EPERM : error;
    });
    EXPECT_EQ(event.reset(), EPERM);
    EXPECT_EQ(event.set(), EPERM);
    EXPECT_EQ(block->signalled, 1) << "the change is made";
    EXPECT_FALSE(event.wait());
    EXPECT_FALSE(event.timedWait(inSeconds(60)));
}

} // namespace
