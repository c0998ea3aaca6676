#include "common/processes/ProcessEvent.h"

#include "tests/support/ForkedChild.h"
#include "tests/support/ObservedThread.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Scarcity.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using namespace ZNORBTEST;

using ORBCOMMON::ProcessEvent;

static_assert(!std::is_polymorphic_v<ProcessEvent>);
static_assert(!std::is_copy_constructible_v<ProcessEvent> && !std::is_copy_assignable_v<ProcessEvent>);

// What an event and its block look like in memory. The tests use it to look at the flags and to act as
// another user of the mutex and the condition.
struct BlockView {
    std::uint8_t destroyed;
    std::uint8_t signalled;
    std::uint8_t shared;
    pthread_mutex_t mutex;
    pthread_cond_t condition;
};

struct EventView {
    BlockView* block;
    bool owner;
};

static_assert(sizeof(EventView) == sizeof(ProcessEvent));

EventView viewOf(const ProcessEvent& event) {
    EventView view{};
    std::memcpy(&view, static_cast<const void*>(&event), sizeof(view));
    return view;
}

std::time_t inSeconds(int seconds) {
    return std::time(nullptr) + seconds;
}

// A thread that waits on an event as it is told to.
class Waiter {
public:
    explicit Waiter(std::function<bool()> waiting)
        : m_thread([this, waiting = std::move(waiting)] { m_result = waiting() ? 1 : 0; }) {}

    // True once the thread has begun to wait and sleeps, false if it does not within a bound.
    bool isWaiting() const { return m_thread.fallsAsleep(); }
    bool isDone() const { return m_result != -1; }
    // True or false as the waiting said; false, and a failure, if it has not ended within a bound.
    bool result() {
        EXPECT_TRUE(waitUntil([this] { return isDone(); }));
        return m_result == 1;
    }

private:
    std::atomic<int> m_result{-1};
    ZNORBTEST::ObservedThread m_thread;
};

// In the place of the block's mutex: one that notices when a holder ends without unlocking it.
void makeRobust(pthread_mutex_t* mutex) {
    pthread_mutexattr_t attributes;
    ASSERT_EQ(pthread_mutexattr_init(&attributes), 0);
    ASSERT_EQ(pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED), 0);
    ASSERT_EQ(pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST), 0);
    ASSERT_EQ(pthread_mutex_destroy(mutex), 0);
    ASSERT_EQ(pthread_mutex_init(mutex, &attributes), 0);
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
};

INSTANTIATE_TEST_SUITE_P(ProcessEvent, ProcessEventOfEachKind, testing::Values(false, true),
                         [](const testing::TestParamInfo<bool>& kind) {
                             return kind.param ? std::string("Shared") : std::string("OnTheHeap");
                         });

TEST_P(ProcessEventOfEachKind, StartsAsItIsTold) {
    ProcessEvent signalled(true, isShared());
    ProcessEvent notSignalled(false, isShared());
    EXPECT_TRUE(signalled.timedWait(0));
    EXPECT_FALSE(notSignalled.timedWait(0));
}

TEST_P(ProcessEventOfEachKind, KeepsItsFlagsInTheBlock) {
    ProcessEvent event(true, isShared());
    const EventView view = viewOf(event);
    ASSERT_NE(view.block, nullptr);
    EXPECT_TRUE(view.owner);
    EXPECT_EQ(view.block->destroyed, 0);
    EXPECT_EQ(view.block->signalled, 1);
    EXPECT_EQ(view.block->shared, isShared() ? 1 : 0);
    EXPECT_EQ(event.reset(), 0);
    EXPECT_EQ(view.block->signalled, 0);
    EXPECT_EQ(event.set(), 0);
    EXPECT_EQ(view.block->signalled, 1);
}

TEST_P(ProcessEventOfEachKind, SetAndResetReturnZeroAndOneResetUndoesAnyNumberOfSets) {
    ProcessEvent event(false, isShared());
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
    ProcessEvent event(false, isShared());
    ASSERT_EQ(event.set(), 0);
    EXPECT_TRUE(event.wait());
    EXPECT_TRUE(event.wait());
    EXPECT_TRUE(event.timedWait(inSeconds(60)));
    EXPECT_TRUE(event.timedWait(0));
}

TEST_P(ProcessEventOfEachKind, OneSetReleasesEveryWaiter) {
    ProcessEvent event(false, isShared());
    std::vector<std::unique_ptr<Waiter>> waiters;
    for (int count = 0; count < 3; ++count) {
        waiters.push_back(std::make_unique<Waiter>([&event] { return event.wait(); }));
        waiters.push_back(std::make_unique<Waiter>([&event] { return event.timedWait(inSeconds(60)); }));
    }
    for (const auto& waiter : waiters) {
        EXPECT_TRUE(waiter->isWaiting());
        EXPECT_FALSE(waiter->isDone());
    }
    EXPECT_EQ(event.set(), 0);
    for (const auto& waiter : waiters) {
        EXPECT_TRUE(waiter->result());
    }
    EXPECT_TRUE(event.timedWait(0)) << "waiting does not reset it";
}

TEST_P(ProcessEventOfEachKind, ASecondSetDoesNotBroadcastAgain) {
    ProcessEvent event(true, isShared());
    BlockView* block = viewOf(event).block;
    // A waiter on the bare condition, which a broadcast would wake although the event is signalled.
    Waiter bystander([block] {
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
    ProcessEvent event(false, isShared());
    for (int round = 0; round < 3; ++round) {
        Waiter waiter([&event] { return event.wait(); });
        EXPECT_TRUE(waiter.isWaiting());
        EXPECT_EQ(event.set(), 0);
        EXPECT_TRUE(waiter.result());
        EXPECT_EQ(event.reset(), 0);
    }
}

TEST_P(ProcessEventOfEachKind, FailsWithoutAChangeWhenTheLockFails) {
    ProcessEvent event(false, isShared());
    BlockView* block = viewOf(event).block;
    // A mutex that tells its own holder that it is locked.
    pthread_mutexattr_t attributes;
    ASSERT_EQ(pthread_mutexattr_init(&attributes), 0);
    ASSERT_EQ(pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK), 0);
    ASSERT_EQ(pthread_mutex_destroy(&block->mutex), 0);
    ASSERT_EQ(pthread_mutex_init(&block->mutex, &attributes), 0);
    ASSERT_EQ(pthread_mutexattr_destroy(&attributes), 0);

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
        ProcessEvent event(false, isShared());
        BlockView* block = viewOf(event).block;
        makeRobust(&block->mutex);
        Waiter waiter(
            [&event, timed = isTimed] { return timed ? event.timedWait(inSeconds(60)) : event.wait(); });
        ASSERT_TRUE(waiter.isWaiting());
        endHolding(&block->mutex);
        if (isUnusable) {
            EXPECT_EQ(pthread_mutex_lock(&block->mutex), EOWNERDEAD);
            EXPECT_EQ(pthread_mutex_unlock(&block->mutex), 0); // nobody has put it right
        }
        EXPECT_EQ(pthread_cond_broadcast(&block->condition), 0);
        EXPECT_FALSE(waiter.result());
        EXPECT_TRUE(!isUnusable || event.set() == ENOTRECOVERABLE);
    }
}

TEST_P(ProcessEventOfEachKind, TimedWaitTakesAPointInTimeAndNoDuration) {
    ProcessEvent event(false, isShared());
    const auto before = std::chrono::steady_clock::now();
    EXPECT_FALSE(event.timedWait(3600));
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(60));
}

TEST_P(ProcessEventOfEachKind, TimedWaitWithAPastDeadlineIsFalseUnlessSignalled) {
    ProcessEvent event(false, isShared());
    for (const std::time_t past :
         {inSeconds(-1), std::time_t{0}, std::time_t{-1}, std::numeric_limits<std::time_t>::min()}) {
        EXPECT_EQ(event.reset(), 0);
        EXPECT_FALSE(event.timedWait(past));
        EXPECT_EQ(event.set(), 0);
        EXPECT_TRUE(event.timedWait(past));
    }
}

TEST_P(ProcessEventOfEachKind, TimedWaitWaitsUntilTheDeadline) {
    ProcessEvent event(false, isShared());
    const std::time_t deadline = inSeconds(2);
    EXPECT_FALSE(event.timedWait(deadline));
    timespec now{};
    ASSERT_EQ(clock_gettime(CLOCK_REALTIME, &now), 0);
    EXPECT_GE(now.tv_sec, deadline);
}

TEST_P(ProcessEventOfEachKind, TimedWaitIsTrueWhenSignalledBeforeAVeryLateDeadline) {
    ProcessEvent event(false, isShared());
    Waiter waiter([&event] { return event.timedWait(std::numeric_limits<std::time_t>::max()); });
    EXPECT_TRUE(waiter.isWaiting());
    EXPECT_FALSE(waiter.isDone());
    EXPECT_EQ(event.set(), 0);
    EXPECT_TRUE(waiter.result());
}

TEST_P(ProcessEventOfEachKind, TimedWaitIsFalseWhenTheSignalCoincidesWithTheTimeOut) {
    ProcessEvent event(false, isShared());
    BlockView* block = viewOf(event).block;
    const std::time_t deadline = inSeconds(2);
    Waiter waiter([&event, deadline] { return event.timedWait(deadline); });
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
    ProcessEvent event(false, isShared());
    BlockView* block = viewOf(event).block;
    Waiter waiter([&event] { return event.timedWait(inSeconds(60)); });
    Waiter unlimited([&event] { return event.wait(); });
    for (int wakeUp = 0; wakeUp < 3; ++wakeUp) {
        EXPECT_TRUE(waiter.isWaiting());
        EXPECT_TRUE(unlimited.isWaiting());
        ASSERT_EQ(pthread_cond_broadcast(&block->condition), 0);
    }
    EXPECT_TRUE(waiter.isWaiting());
    EXPECT_TRUE(unlimited.isWaiting());
    EXPECT_FALSE(waiter.isDone());
    EXPECT_FALSE(unlimited.isDone());
    EXPECT_EQ(event.set(), 0);
    EXPECT_TRUE(waiter.result());
    EXPECT_TRUE(unlimited.result());
}

TEST(ProcessEvent, FailsWithoutMemoryForItsBlock) {
    if (underSanitizer) {
        GTEST_SKIP() << "the sanitizers end a process that has no memory";
    }
    EXPECT_TRUE(holdsInForked([] {
        useUpMemory();
        ProcessEvent event(true, false);
        event.setOwner(true);
        const bool errors = event.set() == EINVAL && event.reset() == EINVAL;
        return errors && !event.wait() && !event.timedWait(inSeconds(60));
    }));
}

TEST(ProcessEvent, FailedMappingOfASharedEventEndsTheProcess) {
    if (underSanitizer) {
        GTEST_SKIP() << "a sanitizer ends such a process in its own way";
    }
    expectEndOfForked(endedBy(SIGSEGV), [] {
        const rlimit none = {0, 0};
        (void)setrlimit(RLIMIT_CORE, &none);
        (void)setrlimit(RLIMIT_AS, &none);
        const ProcessEvent event(false, true);
        return 0;
    });
}

TEST(ProcessEvent, DestroyingASharedEventUnmapsItsBlockWhetherItOwnsItOrNot) {
    for (const bool isOwner : {true, false}) {
        auto event = std::make_unique<ProcessEvent>(false, true);
        void* block = viewOf(*event).block;
        event->setOwner(isOwner);
        unsigned char resident = 0;
        EXPECT_EQ(mincore(block, 1, &resident), 0);
        event.reset();
        EXPECT_EQ(mincore(block, 1, &resident), -1);
        EXPECT_EQ(errno, ENOMEM);
    }
}

TEST(ProcessEvent, AHeapEventIsNotSharedWithAChild) {
    ProcessEvent event(false, false);
    expectEndOfForked(exitedWith(0), [&event] { return event.set(); });
    EXPECT_FALSE(event.timedWait(0));
}

TEST(ProcessEvent, AChildReleasesTheParentThatWaits) {
    ProcessEvent event(false, true);
    event.setOwner(false);
    ForkedChild child([&event] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return event.set();
    });
    event.setOwner(true);
    EXPECT_TRUE(event.timedWait(inSeconds(30)));
    EXPECT_TRUE(event.wait());
    EXPECT_EQ(child.waitForEnd(), exitedWith(0));
}

TEST(ProcessEvent, AParentReleasesTheChildThatWaits) {
    ProcessEvent event(false, true);
    event.setOwner(false);
    ForkedChild child([&event] { return event.wait() ? 0 : 1; });
    event.setOwner(true);
    EXPECT_EQ(event.set(), 0);
    EXPECT_EQ(child.waitForEnd(), exitedWith(0));
}

TEST(ProcessEvent, AChildsResetIsSeenByTheParent) {
    ProcessEvent event(true, true);
    expectEndOfForked(exitedWith(0), [&event] { return event.reset(); });
    EXPECT_FALSE(event.timedWait(0));
}

TEST(ProcessEvent, OneSetReleasesTheWaitersOfSeveralProcesses) {
    ProcessEvent event(false, true);
    const auto wait = [&event] { return event.wait() ? 0 : 1; };
    ForkedChild children[] = {ForkedChild(wait), ForkedChild(wait), ForkedChild(wait)};
    EXPECT_EQ(event.set(), 0);
    for (ForkedChild& child : children) {
        EXPECT_EQ(child.waitForEnd(), exitedWith(0));
    }
}

// The daemon's way: the child signals and goes, and at its end only unmaps its view.
TEST(ProcessEvent, DestroyingAHandleThatDoesNotOwnLeavesThePrimitivesToTheOwner) {
    auto event = std::make_unique<ProcessEvent>(false, true);
    event->setOwner(false);
    ForkedChild child([&event] {
        const int error = event->set();
        event.reset();
        return error;
    });
    event->setOwner(true);
    EXPECT_TRUE(event->wait());
    EXPECT_EQ(child.waitForEnd(), exitedWith(0));
    EXPECT_EQ(viewOf(*event).block->destroyed, 0);
    EXPECT_EQ(event->reset(), 0);
    EXPECT_FALSE(event->timedWait(0));
    EXPECT_EQ(event->set(), 0);
    EXPECT_TRUE(event->wait());
}

TEST(ProcessEvent, TheOwnersEndIsMarkedForTheOtherProcess) {
    auto event = std::make_unique<ProcessEvent>(false, true);
    expectEndOfForked(exitedWith(0), [&event] {
        event.reset();
        return 0;
    });
    EXPECT_EQ(viewOf(*event).block->destroyed, 1);
    // The second owner leaves what is destroyed alone and releases its view.
    event.reset();
}

TEST(ProcessEvent, SetOwnerIsOfThisProcessAlone) {
    ProcessEvent event(false, true);
    expectEndOfForked(exitedWith(0), [&event] {
        event.setOwner(false);
        return 0;
    });
    EXPECT_TRUE(viewOf(event).owner);
    event.setOwner(false);
    EXPECT_FALSE(viewOf(event).owner);
    event.setOwner(true);
    EXPECT_TRUE(viewOf(event).owner);
}

} // namespace
