#include "common/threads/ThreadGroup.h"

#include "common/threads/ThreadHandle.h"
#include "tests/common/threads/Gated.h"
#include "tests/support/Allocations.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Layout.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Scarcity.h"
#include "tests/support/StandIns.h"

#include <cstring>
#include <memory>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using namespace ZNORBTEST;

using namespace ORBCOMMON;

static_assert(!std::is_copy_constructible_v<ThreadGroup> && !std::is_copy_assignable_v<ThreadGroup>);

// Needs no code at run time, so that it is usable whenever it is reached.
constinit ThreadGroup staticGroup;

// The group's first field is the pointer to its sentinel.
bool hasAllocatedSentinel(const ThreadGroup& group) {
    const void* sentinel = nullptr;
    std::memcpy(&sentinel, static_cast<const void*>(&group), sizeof(sentinel));
    return sentinel != nullptr;
}

std::vector<const ThreadHandle*> handlesOf(const ThreadGroup& group) {
    std::vector<const ThreadHandle*> handles;
    for (unsigned position = 0; position < group.size(); ++position) {
        handles.push_back(group.at(position));
    }
    return handles;
}

using Handles = std::vector<const ThreadHandle*>;

// A started handle, to be owned by a group or deleted by the test.
ThreadHandle* newStarted(Threadable& threadable) {
    auto* handle = new ThreadHandle;
    EXPECT_EQ(start(*handle, &threadable), 0);
    return handle;
}

TEST(ThreadGroup, AllocatesItsSentinelWithTheFirstHandle) {
    ThreadGroup group;
    group.joinAll();
    group.remove(nullptr);
    EXPECT_EQ(group.size(), 0U);
    EXPECT_EQ(group.at(0), nullptr);
    EXPECT_FALSE(hasAllocatedSentinel(group));
    ASSERT_TRUE(group.add(new ThreadHandle));
    EXPECT_TRUE(hasAllocatedSentinel(group));
    group.detachAll();
    EXPECT_FALSE(hasAllocatedSentinel(group));
}

TEST(ThreadGroup, IsUsableAsAStaticObject) {
    ASSERT_TRUE(staticGroup.add(new ThreadHandle));
    EXPECT_EQ(staticGroup.size(), 1U);
    staticGroup.detachAll();
    EXPECT_EQ(staticGroup.size(), 0U);
}

TEST(ThreadGroup, KeepsHandlesInTheOrderOfAdding) {
    Gated threadables[3];
    ThreadGroup group;
    Handles added;
    for (Gated& threadable : threadables) {
        ThreadHandle* handle = newStarted(threadable);
        added.push_back(handle);
        ASSERT_TRUE(group.add(handle));
        threadable.open = true;
    }
    EXPECT_EQ(handlesOf(group), added);
    EXPECT_EQ(group.at(3), nullptr);
    group.joinAll();
}

TEST(ThreadGroup, AddingAHandleAgainLeavesOneNodeAtTheEnd) {
    Gated threadables[3];
    ThreadGroup group;
    ThreadHandle* first = newStarted(threadables[0]);
    ThreadHandle* second = newStarted(threadables[1]);
    ThreadHandle* third = newStarted(threadables[2]);
    for (ThreadHandle* handle : {first, second, third}) {
        ASSERT_TRUE(group.add(handle));
    }
    EXPECT_TRUE(group.add(first));
    EXPECT_EQ(handlesOf(group), (Handles{second, third, first}));
    EXPECT_TRUE(group.add(first));
    EXPECT_EQ(handlesOf(group), (Handles{second, third, first}));
    for (Gated& threadable : threadables) {
        threadable.open = true;
    }
    group.joinAll();
}

TEST(ThreadGroup, AddingANullHandleAgainLeavesOneNodeAtTheEnd) {
    ThreadGroup group;
    auto* first = new ThreadHandle;
    auto* second = new ThreadHandle;
    ASSERT_TRUE(group.add(first));
    ASSERT_TRUE(group.add(second));
    EXPECT_EQ(group.size(), 2U) << "two null handles are not equal";
    EXPECT_TRUE(group.add(first));
    EXPECT_EQ(handlesOf(group), (Handles{second, first}));
}

TEST(ThreadGroup, RefusesANullPointer) {
    ThreadGroup group;
    EXPECT_FALSE(group.add(nullptr));
    EXPECT_EQ(group.size(), 0U);
}

TEST(ThreadGroup, RemoveGivesTheHandleBackToItsCaller) {
    Gated threadables[2];
    ThreadGroup group;
    const std::unique_ptr<ThreadHandle> removed(newStarted(threadables[0]));
    ThreadHandle* kept = newStarted(threadables[1]);
    ASSERT_TRUE(group.add(removed.get()));
    ASSERT_TRUE(group.add(kept));
    group.remove(removed.get());
    EXPECT_EQ(handlesOf(group), Handles{kept});
    EXPECT_FALSE(removed->isNull());
    group.remove(removed.get());
    EXPECT_EQ(handlesOf(group), Handles{kept});
    threadables[0].open = true;
    threadables[1].open = true;
    join(*removed);
    group.joinAll();
}

TEST(ThreadGroup, RemoveOfANullHandleRemovesNothing) {
    Gated threadable;
    threadable.open = true;
    ThreadGroup group;
    ThreadHandle* handle = newStarted(threadable);
    ASSERT_TRUE(group.add(handle));
    group.remove(nullptr);
    EXPECT_EQ(group.size(), 1U);
    group.joinAll();
    group.remove(handle);
    EXPECT_EQ(handlesOf(group), Handles{handle});
}

TEST(ThreadGroup, AHandleThatLeavesForAnEqualOneBelongsToItsCallerAgain) {
    // Two starts that fail leave two handles with the same plain value.
    Gated threadable;
    const auto first = std::make_unique<ThreadHandle>();
    auto* second = new ThreadHandle;
    {
        const NoThreads noThreads;
        EXPECT_NE(start(*first, &threadable), 0);
        EXPECT_NE(start(*second, &threadable), 0);
    }
    ThreadGroup group;
    EXPECT_TRUE(group.add(first.get()));
    EXPECT_TRUE(group.add(second));
    EXPECT_EQ(handlesOf(group), Handles{second});
    EXPECT_FALSE(first->isNull());
}

TEST(ThreadGroup, JoinAllWaitsForEveryThreadAndKeepsTheNodes) {
    constexpr unsigned count = 5;
    Gated threadables[count];
    ThreadGroup group;
    for (Gated& threadable : threadables) {
        ASSERT_TRUE(group.add(newStarted(threadable)));
    }
    std::thread opener([&threadables] {
        for (unsigned index = count; index > 0; --index) {
            threadables[index - 1].open = true;
        }
    });
    group.joinAll();
    for (const Gated& threadable : threadables) {
        EXPECT_TRUE(threadable.finished);
    }
    opener.join();
    ASSERT_EQ(group.size(), count);
    for (unsigned position = 0; position < count; ++position) {
        EXPECT_TRUE(group.at(position)->isNull());
    }
    group.joinAll();
    EXPECT_EQ(group.size(), count);
}

TEST(ThreadGroup, DetachAllLetsTheThreadsRunOnAndLeavesAnUnusedGroup) {
    Gated threadables[2];
    ThreadGroup group;
    for (Gated& threadable : threadables) {
        ASSERT_TRUE(group.add(newStarted(threadable)));
    }
    group.detachAll();
    EXPECT_EQ(group.size(), 0U);
    for (Gated& threadable : threadables) {
        EXPECT_FALSE(threadable.finished);
        threadable.open = true;
        EXPECT_TRUE(waitUntil([&] { return threadable.finished.load(); }));
    }
    group.detachAll();
    ASSERT_TRUE(group.add(new ThreadHandle));
    EXPECT_EQ(group.size(), 1U);
}

TEST(ThreadGroup, DestroyingTheGroupDetachesItsThreads) {
    Gated threadable;
    {
        ThreadGroup group;
        ASSERT_TRUE(group.add(newStarted(threadable)));
    }
    EXPECT_FALSE(threadable.finished);
    threadable.open = true;
    EXPECT_TRUE(waitUntil([&] { return threadable.finished.load(); }));
}

TEST(ThreadGroup, AddWithoutMemoryLeavesTheHandleToItsCaller) {
    ZNORB_SKIP_IF(underSanitizer) << "the sanitizers end a process that has no memory";
    expectEndOfForked(exitedWith(0), [] {
        ThreadGroup unused;
        ThreadGroup used;
        ThreadHandle handle;
        auto* known = new ThreadHandle;
        if (!used.add(known)) {
            return 1;
        }
        useUpMemory();
        const bool refused = !unused.add(&handle) && !used.add(&handle) && !used.add(known);
        const bool unchanged = unused.size() == 0 && used.size() == 1 && used.at(0) == known;
        return refused && unchanged ? 0 : 2;
    });
}

using ThreadGroupAllocations = AllocationTest;

TEST_F(ThreadGroupAllocations, AddForWhichHalfOfTheMemoryIsThereLeavesTheHandleToItsCallerToo) {
    ThreadGroup group;
    ThreadHandle handle;
    {
        const FailingAllocation second(1); // the first one makes the unused group's end
        EXPECT_FALSE(group.add(&handle));
        EXPECT_TRUE(FailingAllocation::hasHappened());
    }
    EXPECT_EQ(group.size(), 0U);
    ASSERT_TRUE(group.add(new ThreadHandle));
    EXPECT_EQ(group.size(), 1U);
}

TEST_F(ThreadGroupAllocations, TheEndFreesItsHandles) {
    const AllocationWatch watch;
    {
        ThreadGroup group;
        ASSERT_TRUE(group.add(new ThreadHandle));
        ASSERT_TRUE(group.add(new ThreadHandle));
    }
    EXPECT_EQ(watch.outstanding(), 0);
}

pthread_t threadOf(const ThreadHandle& handle) {
    return *fieldAt<const pthread_t*>(&handle, 0);
}

TEST(ThreadGroup, JoinsAndDetachesInTheOrderOfAdding) {
    ZNORB_SKIP_IF(underThreadSanitizer) << "the thread sanitizer has its own for these";
    for (const bool isJoined : {true, false}) {
        Gated threadables[5];
        ThreadGroup group;
        std::vector<pthread_t> expected;
        for (Gated& threadable : threadables) {
            ASSERT_TRUE(group.add(newStarted(threadable)));
            expected.push_back(threadOf(*group.at(expected.size())));
            threadable.open = true;
        }
        std::vector<pthread_t> taken;
        const InPlaceOf<pthread_join> joins([&taken](pthread_t thread, void** result) {
            taken.push_back(thread);
            return pthread_join(thread, result);
        });
        const InPlaceOf<pthread_detach> detaches([&taken](pthread_t thread) {
            taken.push_back(thread);
            return pthread_detach(thread);
        });
        isJoined ? group.joinAll() : group.detachAll();
        EXPECT_EQ(taken, expected);
        for (const Gated& threadable : threadables) {
            EXPECT_TRUE(waitUntil([&threadable]() { return threadable.finished.load(); }));
        }
    }
}

} // namespace
