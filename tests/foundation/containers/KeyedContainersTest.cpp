#include "foundation/containers/Map.h"
#include "foundation/containers/Set.h"
#include "tests/foundation/containers/CountedKey.h"
#include "tests/support/Allocations.h"

#include <new>
#include <type_traits>
#include <vector>

using namespace Common;
using namespace ZNORBTEST;

namespace {

using Keys = std::vector<std::string>;

const std::string longText(100, 'x'); // too long to be kept without an allocation

// How a test inserts a key, reads one and looks for it in either container. A map has the key's value with
// it, which is the key and an exclamation mark.

template <typename Key>
auto insertInto(set<Key>& keys, const std::string& key) {
    return keys.insert(Key(key));
}

template <typename Key>
auto insertInto(map<Key, std::string>& entries, const std::string& key) {
    return entries.insert(Key(key), key + "!");
}

std::string keyOf(const std::string& key) {
    return key;
}

std::string keyOf(const Common::pair<std::string, std::string>& entry) {
    EXPECT_EQ(entry.second, entry.first + "!");
    return entry.first;
}

template <typename Container>
bool holds(Container& container, const std::string& key) {
    const auto place = container.find(key);
    return place != container.end() && keyOf(*place) == key;
}

template <typename Container>
Keys keysOf(const Container& container) {
    Keys keys;
    for (const auto& entry : container) {
        keys.push_back(keyOf(entry));
    }
    return keys;
}

/// What maps and sets have in common.
template <typename Container>
class KeyedContainer : public testing::Test {
protected:
    static Container containerOf(const Keys& keys) {
        Container container;
        for (const std::string& key : keys) {
            insertInto(container, key);
        }
        return container;
    }
};

template <typename Container>
class KeyedContainerAllocations : public AllocationTest {};

template <typename Container>
class CountedContainer : public testing::Test {};

using Texts = testing::Types<map<std::string, std::string>, set<std::string>>;
using CountedKeys = testing::Types<map<CountedKey, std::string>, set<CountedKey>>;

TYPED_TEST_SUITE(KeyedContainer, Texts);
TYPED_TEST_SUITE(KeyedContainerAllocations, Texts);
TYPED_TEST_SUITE(CountedContainer, CountedKeys);

} // namespace

TYPED_TEST(KeyedContainer, IteratesInAscendingKeyOrder) {
    const TypeParam container = this->containerOf({"b", "a", "c"});
    EXPECT_EQ(keysOf(container), Keys({"a", "b", "c"}));
    EXPECT_EQ(container.size(), 3U);
}

TYPED_TEST(KeyedContainer, InsertReportsThePlaceAndWhetherTheKeyIsNew) {
    TypeParam container;
    const auto first = insertInto(container, "a");
    EXPECT_TRUE(first.second);
    EXPECT_EQ(keyOf(*first.first), "a");
    EXPECT_EQ(first.first, container.begin());
    const auto second = insertInto(container, "a");
    EXPECT_FALSE(second.second);
    EXPECT_EQ(second.first, first.first);
    EXPECT_EQ(container.size(), 1U);
}

TYPED_TEST(KeyedContainer, FindReturnsThePlaceOrTheEnd) {
    TypeParam container = this->containerOf({"b", "a", "c"});
    const TypeParam& constant = container;
    for (const std::string key : {"a", "b", "c"}) {
        EXPECT_TRUE(holds(container, key));
        EXPECT_TRUE(holds(constant, key));
    }
    EXPECT_EQ(container.find("d"), container.end());
    EXPECT_EQ(container.find(""), container.end());
    EXPECT_EQ(constant.find("d"), constant.end());
}

TYPED_TEST(KeyedContainer, KeysAreEqualOnlyWithTheSameLengthAndBytes) {
    TypeParam container = this->containerOf({"key"});
    const std::string withNul("key\0", 4);
    for (const std::string& key : Keys({"Key", "key ", withNul, ""})) {
        EXPECT_TRUE(insertInto(container, key).second) << key;
    }
    EXPECT_TRUE(holds(container, "key"));
    EXPECT_EQ(keysOf(container), Keys({"", "Key", "key", withNul, "key "}));
}

TYPED_TEST(KeyedContainer, OrdersBytesAsUnsignedCharacters) {
    EXPECT_EQ(keysOf(this->containerOf({"\xff", "z", "\x80"})), Keys({"z", "\x80", "\xff"}));
}

TYPED_TEST(KeyedContainer, FindsEachKeyRightAfterInsertingIt) {
    TypeParam container;
    for (unsigned number = 0; number < 50; ++number) {
        const std::string key = std::to_string(number * 37 % 50);
        EXPECT_TRUE(insertInto(container, key).second);
        EXPECT_TRUE(holds(container, key));
    }
}

TYPED_TEST(KeyedContainer, ClearForgetsTheKeysAndTheCache) {
    TypeParam container = this->containerOf({"b", "a", "c"});
    container.clear();
    EXPECT_TRUE(container.empty());
    EXPECT_EQ(container.find("c"), container.end());
    EXPECT_TRUE(insertInto(container, "c").second);
    EXPECT_TRUE(holds(container, "c"));
}

TYPED_TEST(KeyedContainer, CopyHasKeysAndACacheOfItsOwn) {
    TypeParam assigned = this->containerOf({"old"});
    {
        const TypeParam original = this->containerOf({"b", "a", "c"});
        assigned = original;
        TypeParam copy(original);
        EXPECT_FALSE(insertInto(copy, "c").second);
        EXPECT_TRUE(insertInto(copy, "d").second);
        EXPECT_EQ(original.find("d"), original.end());
    }
    EXPECT_EQ(assigned.find("old"), assigned.end());
    EXPECT_TRUE(holds(assigned, "c"));
    EXPECT_FALSE(insertInto(assigned, "c").second);
    EXPECT_TRUE(insertInto(assigned, "d").second);
    EXPECT_EQ(keysOf(assigned), Keys({"a", "b", "c", "d"}));
}

TYPED_TEST(KeyedContainer, AssignmentForgetsTheOldKeysAndTheirCache) {
    TypeParam container = this->containerOf({"old"});
    container = this->containerOf({"b", "a", "c"});
    EXPECT_EQ(container.find("old"), container.end());
    const TypeParam source = this->containerOf({"b", "a", "c"});
    insertInto(container, "newer");
    container = source;
    EXPECT_EQ(container.find("newer"), container.end());
    EXPECT_EQ(container.find(""), container.end());
    EXPECT_EQ(container.size(), 3U);
}

TYPED_TEST(KeyedContainer, AssignmentToItselfKeepsTheKeys) {
    TypeParam container = this->containerOf({"b", "a", "c"});
    const TypeParam& same = container;
    container = same;
    EXPECT_EQ(keysOf(container), Keys({"a", "b", "c"}));
    EXPECT_TRUE(holds(container, "c"));
}

TYPED_TEST(KeyedContainer, MoveHandsKeysAndCacheOver) {
    TypeParam source = this->containerOf({"b", "a", "c"});
    TypeParam target = std::move(source);
    EXPECT_EQ(source.find("c"), source.end()); // NOLINT(bugprone-use-after-move): it is empty now
    EXPECT_TRUE(insertInto(source, "c").second);
    EXPECT_TRUE(holds(target, "c"));
    EXPECT_EQ(target.size(), 3U);
    target = std::move(source);
    EXPECT_EQ(keysOf(target), Keys({"c"}));
    EXPECT_TRUE(holds(target, "c"));
}

TYPED_TEST(KeyedContainerAllocations, AreNoneUntilTheFirstUse) {
    const AllocationWatch watch;
    {
        TypeParam container;
        EXPECT_TRUE(container.empty());
        EXPECT_EQ(container.size(), 0U);
        EXPECT_EQ(container.begin(), container.end());
        EXPECT_EQ(container.find("a"), container.end());
        container.clear();
        const TypeParam copy = container;
        EXPECT_TRUE(copy.empty());
    }
    EXPECT_EQ(watch.allocations(), 0);
}

TYPED_TEST(KeyedContainerAllocations, LeaveEverythingAsItWasWhenAnInsertionFails) {
    // The cached key, the node and its text, and then none; a map's entry has two texts before the node does.
    constexpr long fewest = std::is_same_v<TypeParam, set<std::string>> ? 4 : 5;
    const AllocationWatch watch;
    {
        TypeParam container;
        insertInto(container, "m");
        long failures = 0;
        for (bool inserted = false; !inserted; ++failures) {
            const FailingAllocation failure(failures);
            try {
                inserted = insertInto(container, longText).second;
            } catch (const std::bad_alloc&) {
                EXPECT_EQ(keysOf(container), Keys({"m"}));
                EXPECT_EQ(container.find("m"), container.begin());
                EXPECT_EQ(container.find(longText), container.end());
            }
        }
        EXPECT_GE(failures, fewest);
        EXPECT_EQ(keysOf(container), Keys({"m", longText}));
        EXPECT_TRUE(holds(container, longText));
    }
    EXPECT_EQ(watch.outstanding(), 0);
}

TYPED_TEST(KeyedContainerAllocations, AreGivenBackByTheDestructor) {
    const AllocationWatch watch;
    {
        TypeParam container;
        insertInto(container, "a");
        insertInto(container, longText);
        EXPECT_GT(watch.outstanding(), 0);
    }
    EXPECT_EQ(watch.outstanding(), 0);
}

TYPED_TEST(CountedContainer, LookingUpTheKeyInsertedLastTakesOneComparisonAndAnyOtherAll) {
    TypeParam container;
    for (const std::string key : {"a", "b", "d", "e", "c"}) {
        insertInto(container, key);
    }
    (void)CountedKey::takeComparisons();
    EXPECT_NE(container.find(CountedKey("c")), container.end());
    EXPECT_EQ(CountedKey::takeComparisons(), 1);
    EXPECT_NE(std::as_const(container).find(CountedKey("c")), container.end());
    EXPECT_EQ(CountedKey::takeComparisons(), 1);
    EXPECT_FALSE(insertInto(container, "c").second);
    EXPECT_EQ(CountedKey::takeComparisons(), 1);
    EXPECT_EQ(container.find(CountedKey("A")), container.end());
    EXPECT_EQ(CountedKey::takeComparisons(), 1 + 5) << "it does not stop at greater keys";
    insertInto(container, "a");
    (void)CountedKey::takeComparisons();
    EXPECT_NE(container.find(CountedKey("c")), container.end());
    EXPECT_EQ(CountedKey::takeComparisons(), 1) << "a key that was there does not change the cache";
    EXPECT_NE(container.find(CountedKey("b")), container.end());
    EXPECT_EQ(CountedKey::takeComparisons(), 1 + 2);
}

TYPED_TEST(CountedContainer, CacheIsValidAfterAMove) {
    TypeParam source;
    insertInto(source, "a");
    insertInto(source, "b");
    TypeParam target = std::move(source);
    (void)CountedKey::takeComparisons();
    EXPECT_NE(target.find(CountedKey("b")), target.end());
    EXPECT_EQ(CountedKey::takeComparisons(), 1);
}
