#include "foundation/containers/SharedPtr.h"

#include "tests/support/Allocations.h"
#include "tests/support/Layout.h"
#include "tests/support/OnThreads.h"

#include <cstdint>
#include <new>
#include <string>
#include <type_traits>

using Common::shared_ptr;
using namespace ZNORBTEST;

namespace {

using SharedPtrAllocations = AllocationTest;

class Base {
public:
    explicit Base(int& destroyed) : m_destroyed(&destroyed) {}
    Base(const Base&) = delete;
    Base& operator=(const Base&) = delete;
    virtual ~Base() { *m_destroyed += 1; }

private:
    int* m_destroyed;
};

class Derived : public Base {
public:
    Derived(int& baseDestroyed, int& derivedDestroyed)
        : Base(baseDestroyed), m_destroyed(&derivedDestroyed) {}
    Derived(const Derived&) = delete;
    Derived& operator=(const Derived&) = delete;
    ~Derived() override { *m_destroyed += 1; }

private:
    int* m_destroyed;
};

struct Link {
    int number;
    shared_ptr<Link> next;
};

} // namespace

TEST_F(SharedPtrAllocations, DefaultOwnsNothingAndAllocatesNothing) {
    const AllocationWatch watch;
    {
        const shared_ptr<int> empty;
        const shared_ptr<int> copy = empty; // NOLINT(performance-unnecessary-copy-initialization)
        EXPECT_EQ(copy.get(), nullptr);
        EXPECT_FALSE(copy);
    }
    EXPECT_EQ(watch.allocations(), 0);
}

TEST(SharedPtr, GivesAccessToTheObject) {
    const shared_ptr<std::string> text(new std::string("text"));
    EXPECT_EQ(*text, "text");
    EXPECT_EQ(text->size(), 4U);
    EXPECT_EQ(text.get(), &*text);
    EXPECT_TRUE(text);
}

TEST(SharedPtr, IsTwoPointersInSize) {
    EXPECT_EQ(sizeof(shared_ptr<std::string>), 2 * sizeof(void*));
}

TEST(SharedPtr, DoesNotTakeABarePointerUnasked) {
    EXPECT_FALSE((std::is_convertible_v<int*, shared_ptr<int>>));
}

TEST(SharedPtr, LastOwnerDestroysTheObject) {
    int destroyed = 0;
    {
        const shared_ptr<Base> first(new Base(destroyed));
        {
            const shared_ptr<Base> second = first;
            EXPECT_EQ(second.get(), first.get());
        }
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 1);
}

TEST_F(SharedPtrAllocations, LastOwnerFreesTheObjectAndTheCounter) {
    const AllocationWatch watch;
    {
        const shared_ptr<int> first(new int(1));
        const shared_ptr<int> second = first; // NOLINT(performance-unnecessary-copy-initialization)
        EXPECT_EQ(watch.outstanding(), 2);
        EXPECT_EQ(*second, 1);
    }
    EXPECT_EQ(watch.outstanding(), 0);
}

TEST(SharedPtr, DestroysADerivedObjectThroughItsVirtualDestructor) {
    int baseDestroyed = 0;
    int derivedDestroyed = 0;
    { const shared_ptr<Base> owner(new Derived(baseDestroyed, derivedDestroyed)); }
    EXPECT_EQ(baseDestroyed, 1);
    EXPECT_EQ(derivedDestroyed, 1);
}

TEST_F(SharedPtrAllocations, ReleasingTheLastOwnerOfANullObjectFreesOnlyTheCounter) {
    const AllocationWatch watch;
    {
        const shared_ptr<Base> first(nullptr);
        const shared_ptr<Base> second = first; // NOLINT(performance-unnecessary-copy-initialization)
        EXPECT_EQ(watch.allocations(), 1);
        EXPECT_FALSE(second);
    }
    EXPECT_EQ(watch.allocations(), 1);
    EXPECT_EQ(watch.outstanding(), 0);
}

TEST(SharedPtr, AssignmentReleasesWhatWasOwnedBeforeButForTheSame) {
    int firstDestroyed = 0;
    int secondDestroyed = 0;
    shared_ptr<Base> owner(new Base(firstDestroyed));
    const shared_ptr<Base>& same = owner;
    owner = same;
    EXPECT_EQ(firstDestroyed, 0);
    EXPECT_TRUE(owner);
    {
        const shared_ptr<Base> other(new Base(secondDestroyed));
        owner = other;
        EXPECT_EQ(owner.get(), other.get());
    }
    EXPECT_EQ(firstDestroyed, 1);
    EXPECT_EQ(secondDestroyed, 0) << "the copy outlives the original";
    EXPECT_TRUE(owner);
    owner = shared_ptr<Base>();
    EXPECT_EQ(secondDestroyed, 1);
    EXPECT_FALSE(owner);
}

TEST(SharedPtr, AssignsFromAnOwnerInsideTheObjectThatIsReleased) {
    shared_ptr<Link> chain(new Link{1, shared_ptr<Link>(new Link{2, {}})});
    chain = chain->next;
    EXPECT_EQ(chain->number, 2);
}

TEST(SharedPtr, MoveHandsTheShareOver) {
    int destroyed = 0;
    shared_ptr<Base> source(new Base(destroyed));
    const Base* const object = source.get();
    shared_ptr<Base> target = std::move(source);
    EXPECT_EQ(target.get(), object);
    EXPECT_FALSE(source); // NOLINT(bugprone-use-after-move): the contract says what it is now
    source = std::move(target);
    EXPECT_EQ(source.get(), object);
    EXPECT_EQ(destroyed, 0);
}

TEST_F(SharedPtrAllocations, FailedCounterAllocationDeletesTheObject) {
    int destroyed = 0;
    Base* const object = new Base(destroyed);
    {
        const FailingAllocation failure(0);
        EXPECT_THROW(shared_ptr<Base>{object}, std::bad_alloc);
    }
    EXPECT_EQ(destroyed, 1);
}

TEST(SharedPtr, OwnersOnSeveralThreadsComeAndGoWithoutLosingTheObject) {
    int destroyed = 0;
    {
        const shared_ptr<Base> owner(new Base(destroyed));
        onThreads(4, [&owner](int) {
            const shared_ptr<Base> mine = owner;
            for (int round = 0; round < 2000; ++round) {
                shared_ptr<Base> copy = mine;
                copy = shared_ptr<Base>();
            }
        });
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 1);
}

TEST(SharedPtr, KeepsTheObjectAndBehindItTheCounterOfItsOwners) {
    const shared_ptr<int> owner(new int(7));
    const auto owners = [&owner]() { return *fieldAt<const std::uint32_t*>(&owner, sizeof(void*)); };
    EXPECT_EQ(fieldAt<int*>(&owner, 0), owner.get());
    EXPECT_EQ(owners(), 1U);
    {
        const shared_ptr<int> second = owner; // NOLINT(performance-unnecessary-copy-initialization)
        EXPECT_EQ(owners(), 2U);
    }
    EXPECT_EQ(owners(), 1U);
}
