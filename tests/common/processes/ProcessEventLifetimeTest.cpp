#include "common/processes/ProcessEvent.h"
#include "tests/common/processes/ProcessEventView.h"
#include "tests/support/Allocations.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Scarcity.h"
#include "tests/support/StandIns.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>
#include <thread>
#include <vector>

/// An event's memory, its owner, and the processes that share it.
namespace {

using namespace ZNORBTEST;

using ORBCOMMON::ProcessEvent;

TEST(ProcessEvent, FailsWithoutMemoryForItsBlock) {
    ZNORB_SKIP_IF(underSanitizer) << "the sanitizers end a process that has no memory";
    EXPECT_TRUE(holdsInForked([] {
        useUpMemory();
        ProcessEvent event(true, false);
        event.setOwner(true);
        const bool errors = event.set() == EINVAL && event.reset() == EINVAL;
        return errors && !event.wait() && !event.timedWait(inSeconds(60));
    }));
}

TEST(ProcessEvent, FailedMappingOfASharedEventEndsTheProcess) {
    ZNORB_SKIP_IF(underSanitizer) << "a sanitizer ends such a process in its own way";
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

TEST(ProcessEvent, AChildsSetAndResetAreSeenByTheParentOfASharedEventAlone) {
    for (const bool isShared : {false, true}) {
        ProcessEvent event(false, isShared);
        expectEndOfForked(exitedWith(0), [&event] { return event.set(); });
        EXPECT_EQ(event.timedWait(0), isShared);
    }
    ProcessEvent event(true, true);
    expectEndOfForked(exitedWith(0), [&event] { return event.reset(); });
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

TEST(ProcessEvent, OneSetOfTheParentReleasesTheChildrenThatWait) {
    ProcessEvent event(false, true);
    event.setOwner(false);
    const auto wait = [&event] { return event.wait() ? 0 : 1; };
    ForkedChild children[] = {ForkedChild(wait), ForkedChild(wait), ForkedChild(wait)};
    event.setOwner(true);
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
    int destroyed = 0;
    const InPlaceOf<pthread_mutex_destroy> destructions([&destroyed](pthread_mutex_t* mutex) {
        ++destroyed;
        return pthread_mutex_destroy(mutex);
    });
    event.reset();
    EXPECT_EQ(destroyed, 0);
}

TEST(ProcessEvent, TheOwnersEndIsMarkedBeforeTheMutexAndThenTheConditionGo) {
    ZNORB_SKIP_IF(underThreadSanitizer) << "the thread sanitizer has its own for these";
    auto event = std::make_unique<ProcessEvent>(false, false);
    BlockView* const block = viewOf(*event).block;
    const std::vector<const void*> expected = {&block->mutex, &block->condition};
    std::vector<const void*> destroyed;
    const auto note = [block, &destroyed](const void* primitive) {
        EXPECT_EQ(block->destroyed, 1);
        destroyed.push_back(primitive);
    };
    const InPlaceOf<pthread_mutex_destroy> ofTheMutex([&note](pthread_mutex_t* mutex) {
        note(mutex);
        return pthread_mutex_destroy(mutex);
    });
    const InPlaceOf<pthread_cond_destroy> ofTheCondition([&note](pthread_cond_t* condition) {
        note(condition);
        return pthread_cond_destroy(condition);
    });
    event.reset();
    EXPECT_EQ(destroyed, expected);
}

using ProcessEventAllocations = AllocationTest;

TEST_F(ProcessEventAllocations, TheEndFreesABlockOnTheHeap) {
    const AllocationWatch watch;
    {
        const ProcessEvent event(false, false);
        EXPECT_EQ(watch.allocations(), 1);
    }
    EXPECT_EQ(watch.outstanding(), 0);
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
