#include "foundation/containers/Set.h"

#include "tests/foundation/containers/Allocations.h"
#include "tests/foundation/containers/CountedKey.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using Common::pair;
using Common::set;
using ZNORBTEST::AllocationWatch;
using ZNORBTEST::CountedKey;
using ZNORBTEST::FailingAllocation;

namespace {

using SetAllocations = ZNORBTEST::AllocationTest;

using TextSet = set<std::string>;

const std::string longText(100, 'x'); // too long to be kept without an allocation

std::vector<std::string> keysOf(const TextSet& keys) {
    std::vector<std::string> result;
    for (const std::string& key : keys) {
        result.push_back(key);
    }
    return result;
}

TextSet exampleSet() {
    TextSet keys;
    keys.insert("b");
    keys.insert("a");
    keys.insert("c");
    return keys;
}

class ObservedSet : public TextSet {
public:
    explicit ObservedSet(bool& destroyed) : m_destroyed(&destroyed) {}
    ObservedSet(const ObservedSet&) = delete;
    ObservedSet& operator=(const ObservedSet&) = delete;
    ~ObservedSet() override { *m_destroyed = true; }

private:
    bool* m_destroyed;
};

} // namespace

TEST(Set, IteratesInAscendingOrder) {
    const TextSet keys = exampleSet();
    EXPECT_EQ(keysOf(keys), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(keys.size(), 3U);
}

TEST(Set, InsertReportsWhetherTheKeyIsNew) {
    TextSet keys;
    const pair<TextSet::iterator, bool> first = keys.insert("a");
    EXPECT_TRUE(first.second);
    EXPECT_EQ(*first.first, "a");
    const pair<TextSet::iterator, bool> second = keys.insert("a");
    EXPECT_FALSE(second.second);
    EXPECT_EQ(second.first, first.first);
    EXPECT_EQ(keys.size(), 1U);
}

TEST(Set, FindReturnsThePlaceOrTheEnd) {
    TextSet keys = exampleSet();
    EXPECT_EQ(*keys.find("b"), "b");
    EXPECT_EQ(keys.find("d"), keys.end());
    const TextSet& constKeys = keys;
    EXPECT_EQ(*constKeys.find("a"), "a");
    EXPECT_EQ(constKeys.find("d"), constKeys.end());
}

TEST_F(SetAllocations, AllocatesNothingUntilItsFirstUse) {
    const AllocationWatch watch;
    {
        TextSet keys;
        EXPECT_TRUE(keys.empty());
        EXPECT_EQ(keys.size(), 0U);
        EXPECT_EQ(keys.begin(), keys.end());
        EXPECT_EQ(keys.find("a"), keys.end());
        keys.clear();
        const TextSet copy = keys;
        EXPECT_TRUE(copy.empty());
    }
    EXPECT_EQ(watch.allocations(), 0);
}

TEST(Set, LookingUpTheKeyInsertedLastTakesOneComparison) {
    set<CountedKey> keys;
    for (const char* const text : {"a", "b", "d", "c"}) {
        keys.insert(CountedKey(text));
    }
    keys.insert(CountedKey("a"));
    (void)CountedKey::takeComparisons();
    EXPECT_NE(keys.find(CountedKey("c")), keys.end());
    EXPECT_EQ(CountedKey::takeComparisons(), 1);
    EXPECT_EQ(keys.find(CountedKey("A")), keys.end());
    EXPECT_EQ(CountedKey::takeComparisons(), 1 + 4);
}

TEST(Set, CopyHasKeysAndACacheOfItsOwn) {
    TextSet assigned;
    assigned.insert("old");
    {
        const TextSet original = exampleSet();
        assigned = original;
        TextSet copy(original);
        EXPECT_FALSE(copy.insert("c").second);
        EXPECT_TRUE(copy.insert("d").second);
        EXPECT_EQ(original.find("d"), original.end());
    }
    EXPECT_EQ(assigned.find("old"), assigned.end());
    EXPECT_EQ(*assigned.find("c"), "c");
    EXPECT_TRUE(assigned.insert("d").second);
    EXPECT_EQ(keysOf(assigned), (std::vector<std::string>{"a", "b", "c", "d"}));
}

TEST(Set, AssignmentToItselfKeepsTheKeys) {
    TextSet keys = exampleSet();
    const TextSet& same = keys;
    keys = same;
    EXPECT_EQ(keysOf(keys), (std::vector<std::string>{"a", "b", "c"}));
}

TEST(Set, MoveHandsKeysAndCacheOver) {
    TextSet source = exampleSet();
    TextSet target = std::move(source);
    EXPECT_EQ(source.find("c"), source.end()); // NOLINT(bugprone-use-after-move): it is empty now
    EXPECT_TRUE(source.insert("c").second);
    EXPECT_EQ(*target.find("c"), "c");
    EXPECT_EQ(target.size(), 3U);
}

TEST(Set, ClearForgetsTheKeysAndTheCache) {
    TextSet keys = exampleSet();
    keys.clear();
    EXPECT_TRUE(keys.empty());
    EXPECT_EQ(keys.find("c"), keys.end());
    EXPECT_TRUE(keys.insert("c").second);
}

TEST_F(SetAllocations, FailedInsertionChangesNothing) {
    const AllocationWatch watch;
    {
        TextSet keys;
        keys.insert("m");
        long failures = 0;
        for (bool inserted = false; !inserted; ++failures) {
            const FailingAllocation failure(failures);
            try {
                inserted = keys.insert(longText).second;
            } catch (const std::bad_alloc&) {
                EXPECT_EQ(keysOf(keys), (std::vector<std::string>{"m"}));
                EXPECT_EQ(*keys.find("m"), "m");
            }
        }
        EXPECT_GE(failures, 4); // the cached key, the node and its text, and then none
        EXPECT_EQ(keysOf(keys), (std::vector<std::string>{"m", longText}));
    }
    EXPECT_EQ(watch.outstanding(), 0);
}

TEST(Set, IsNotConvertibleButDestroysDerivedObjects) {
    EXPECT_FALSE((std::is_base_of_v<Common::Convertible, TextSet>));
    bool destroyed = false;
    std::unique_ptr<TextSet> keys = std::make_unique<ObservedSet>(destroyed);
    keys.reset();
    EXPECT_TRUE(destroyed);
}

TEST(Set, IteratorIsASetIterator) {
    using Expected = Common::SetIterator<std::string, std::string&, std::string*>;
    EXPECT_TRUE((std::is_same_v<TextSet::iterator, Expected>));
    EXPECT_TRUE((std::is_same_v<decltype(*TextSet::const_iterator()), const std::string&>));
}
