#include "foundation/containers/Map.h"

#include "tests/foundation/containers/Allocations.h"
#include "tests/foundation/containers/CountedKey.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <new>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using Common::map;
using Common::pair;
using ZNORBTEST::AllocationWatch;
using ZNORBTEST::CountedKey;
using ZNORBTEST::FailingAllocation;

namespace {

using MapAllocations = ZNORBTEST::AllocationTest;

using TextMap = map<std::string, std::string>;

const std::string longText(100, 'x'); // too long to be kept without an allocation

template <typename Value>
std::vector<std::string> keysOf(const map<std::string, Value>& entries) {
    std::vector<std::string> keys;
    for (const pair<std::string, Value>& entry : entries) {
        keys.push_back(entry.first);
    }
    return keys;
}

TextMap exampleMap() {
    TextMap entries;
    entries.insert("b", "2");
    entries.insert("a", "1");
    entries.insert("c", "3");
    return entries;
}

/// Keys "k10" to "k19"; the last one inserted is "k15".
map<CountedKey, int> countedMap() {
    map<CountedKey, int> entries;
    for (const int number : {10, 11, 12, 13, 14, 16, 17, 18, 19, 15}) {
        entries.insert(CountedKey("k" + std::to_string(number)), number);
    }
    (void)CountedKey::takeComparisons();
    return entries;
}

struct LessIgnoringCase {
    bool operator()(const std::string& left, const std::string& right) const {
        return std::lexicographical_compare(
            left.begin(), left.end(), right.begin(), right.end(),
            [](unsigned char a, unsigned char b) { return std::tolower(a) < std::tolower(b); });
    }
};

} // namespace

TEST(Map, IteratesInAscendingKeyOrder) {
    const TextMap entries = exampleMap();
    EXPECT_EQ(keysOf(entries), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(entries.size(), 3U);
}

TEST(Map, InsertOfANewKeyReportsItsEntryAndTrue) {
    TextMap entries;
    const pair<TextMap::iterator, bool> result = entries.insert("a", "1");
    EXPECT_TRUE(result.second);
    EXPECT_EQ(result.first->first, "a");
    EXPECT_EQ(result.first->second, "1");
    EXPECT_EQ(result.first, entries.begin());
}

TEST(Map, InsertOfAnExistingKeyReplacesItsValueAndReportsFalse) {
    TextMap entries = exampleMap();
    const pair<TextMap::iterator, bool> result = entries.insert("b", "20");
    EXPECT_FALSE(result.second);
    EXPECT_EQ(result.first->second, "20");
    EXPECT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries.find("b")->second, "20");
}

TEST_F(MapAllocations, AllocatesNothingUntilItsFirstUse) {
    const AllocationWatch watch;
    {
        TextMap entries;
        EXPECT_TRUE(entries.empty());
        EXPECT_EQ(entries.size(), 0U);
        EXPECT_EQ(entries.begin(), entries.end());
        EXPECT_EQ(entries.find("a"), entries.end());
        entries.clear();
        const TextMap copy = entries;
        EXPECT_TRUE(copy.empty());
    }
    EXPECT_EQ(watch.allocations(), 0);
}

TEST(Map, FindReturnsTheEntryOrTheEnd) {
    TextMap entries = exampleMap();
    EXPECT_EQ(entries.find("a")->second, "1");
    EXPECT_EQ(entries.find("c")->second, "3");
    EXPECT_EQ(entries.find("d"), entries.end());
    EXPECT_EQ(entries.find(""), entries.end());
}

TEST(Map, FindInAConstMapReadsTheSameEntries) {
    const TextMap entries = exampleMap();
    const TextMap::const_iterator found = entries.find("b");
    EXPECT_EQ(found->second, "2");
    EXPECT_EQ(entries.find("c")->second, "3"); // the key inserted last
    EXPECT_TRUE((std::is_same_v<decltype(*found), const pair<std::string, std::string>&>));
    EXPECT_EQ(entries.find("x"), entries.end());
}

TEST(Map, ValuesAreChangedThroughIterators) {
    TextMap entries = exampleMap();
    entries.find("b")->second = "20";
    for (pair<std::string, std::string>& entry : entries) {
        entry.second += "!";
    }
    EXPECT_EQ(entries.find("b")->second, "20!");
}

TEST(Map, KeysAreEqualOnlyWithTheSameLengthAndBytes) {
    map<std::string, unsigned> entries;
    entries.insert("key", 1);
    EXPECT_TRUE(entries.insert("Key", 2).second);
    EXPECT_TRUE(entries.insert("key ", 3).second);
    EXPECT_TRUE(entries.insert(std::string("key\0", 4), 4).second);
    EXPECT_TRUE(entries.insert("", 5).second);
    EXPECT_EQ(entries.find("key")->second, 1U);
    EXPECT_EQ(keysOf(entries), (std::vector<std::string>{"", "Key", "key", std::string("key\0", 4), "key "}));
}

TEST(Map, OrdersBytesAsUnsignedCharacters) {
    map<std::string, char> entries;
    entries.insert("\xff", 'f');
    entries.insert("z", 'z');
    entries.insert("\x80", '8');
    EXPECT_EQ(keysOf(entries), (std::vector<std::string>{"z", "\x80", "\xff"}));
}

TEST(Map, SamenessIsDecidedByEqualityAndOrderByLess) {
    map<std::string, int, LessIgnoringCase> entries;
    entries.insert("b", 1);
    entries.insert("a", 2);
    EXPECT_TRUE(entries.insert("A", 3).second);
    std::vector<std::string> keys;
    for (const auto& entry : entries) {
        keys.push_back(entry.first);
    }
    // Of keys that the order does not tell apart, the later one comes first.
    EXPECT_EQ(keys, (std::vector<std::string>{"A", "a", "b"}));
}

TEST(Map, LookingUpTheKeyInsertedLastTakesOneComparison) {
    map<CountedKey, int> entries = countedMap();
    EXPECT_EQ(entries.find(CountedKey("k15"))->second, 15);
    EXPECT_EQ(CountedKey::takeComparisons(), 1);
    EXPECT_EQ(std::as_const(entries).find(CountedKey("k15"))->second, 15);
    EXPECT_EQ(CountedKey::takeComparisons(), 1);
    EXPECT_FALSE(entries.insert(CountedKey("k15"), 150).second);
    EXPECT_EQ(CountedKey::takeComparisons(), 1);
}

TEST(Map, ReplacingAValueLeavesTheCacheAsItWas) {
    map<CountedKey, int> entries = countedMap();
    EXPECT_FALSE(entries.insert(CountedKey("k11"), 110).second);
    (void)CountedKey::takeComparisons();
    EXPECT_EQ(entries.find(CountedKey("k15"))->second, 15);
    EXPECT_EQ(CountedKey::takeComparisons(), 1);
    EXPECT_EQ(entries.find(CountedKey("k11"))->second, 110);
    EXPECT_EQ(CountedKey::takeComparisons(), 1 + 2);
}

TEST(Map, LookupDoesNotStopAtGreaterKeys) {
    map<CountedKey, int> entries = countedMap();
    EXPECT_EQ(entries.find(CountedKey("a")), entries.end());
    EXPECT_EQ(CountedKey::takeComparisons(), 1 + 10);
}

TEST(Map, FindsEachKeyRightAfterInsertingIt) {
    map<std::string, unsigned> entries;
    for (unsigned number = 0; number < 50; ++number) {
        const std::string key = std::to_string(number * 37 % 50);
        EXPECT_TRUE(entries.insert(key, number).second);
        ASSERT_NE(entries.find(key), entries.end());
        EXPECT_EQ(entries.find(key)->second, number);
    }
}

TEST(Map, BehavesLikeAnOrderedDictionaryOverManyInsertions) {
    std::mt19937 random(20240607);
    map<std::string, unsigned> entries;
    std::map<std::string, unsigned> expected;
    for (unsigned step = 0; step < 2000; ++step) {
        const std::string key = std::to_string(random() % 300);
        EXPECT_EQ(entries.insert(key, step).second, expected.insert_or_assign(key, step).second);
        const std::string wanted = std::to_string(random() % 300);
        ASSERT_EQ(entries.find(wanted) != entries.end(), expected.contains(wanted));
    }
    ASSERT_EQ(entries.size(), expected.size());
    auto entry = entries.begin();
    for (const auto& [key, value] : expected) {
        EXPECT_EQ(entry->first, key);
        EXPECT_EQ(entry->second, value);
        ++entry;
    }
}

TEST(Map, ClearForgetsTheEntriesAndTheCache) {
    TextMap entries = exampleMap();
    entries.clear();
    EXPECT_TRUE(entries.empty());
    EXPECT_EQ(entries.find("c"), entries.end());
    EXPECT_TRUE(entries.insert("c", "4").second);
    EXPECT_EQ(entries.find("c")->second, "4");
}

TEST(Map, CopyHasEntriesAndACacheOfItsOwn) {
    TextMap copy;
    {
        TextMap original = exampleMap();
        copy = original;
        TextMap another(original);
        EXPECT_FALSE(another.insert("c", "30").second);
        EXPECT_EQ(another.find("c")->second, "30");
        EXPECT_EQ(original.find("c")->second, "3");
    }
    EXPECT_EQ(copy.find("c")->second, "3");
    EXPECT_FALSE(copy.insert("c", "31").second);
    EXPECT_TRUE(copy.insert("d", "4").second);
    EXPECT_EQ(keysOf(copy), (std::vector<std::string>{"a", "b", "c", "d"}));
}

TEST(Map, AssignmentForgetsTheOldEntriesAndTheirCache) {
    TextMap entries;
    entries.insert("old", "1");
    entries = exampleMap();
    EXPECT_EQ(entries.find("old"), entries.end());
    const TextMap source = exampleMap();
    entries.insert("newer", "2");
    entries = source;
    EXPECT_EQ(entries.find("newer"), entries.end());
    EXPECT_EQ(entries.find(""), entries.end());
    EXPECT_EQ(entries.size(), 3U);
}

TEST(Map, AssignmentToItselfKeepsTheEntries) {
    TextMap entries = exampleMap();
    const TextMap& same = entries;
    entries = same;
    EXPECT_EQ(keysOf(entries), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(entries.find("c")->second, "3");
}

TEST(Map, MoveHandsEntriesAndCacheOver) {
    TextMap source = exampleMap();
    TextMap target = std::move(source);
    EXPECT_EQ(source.find("c"), source.end()); // NOLINT(bugprone-use-after-move): it is empty now
    EXPECT_TRUE(source.insert("c", "5").second);
    EXPECT_EQ(target.find("c")->second, "3");
    target = std::move(source);
    EXPECT_EQ(keysOf(target), (std::vector<std::string>{"c"}));
    EXPECT_EQ(target.find("c")->second, "5");
}

TEST(Map, CacheIsValidAfterAMove) {
    map<CountedKey, int> source = countedMap();
    map<CountedKey, int> target = std::move(source);
    EXPECT_EQ(target.find(CountedKey("k15"))->second, 15);
    EXPECT_EQ(CountedKey::takeComparisons(), 1);
}

TEST(Map, TakesKeyAndValueFromItsOwnEntries) {
    TextMap entries;
    entries.insert("a", longText);
    entries.insert("a", entries.find("a")->second);
    EXPECT_EQ(entries.find("a")->second, longText);
    entries.insert(entries.find("a")->second, entries.find("a")->first);
    EXPECT_EQ(entries.find(longText)->second, "a");
}

TEST_F(MapAllocations, FailedInsertionChangesNothing) {
    const std::string otherText(100, 'b');
    const AllocationWatch watch;
    {
        map<std::string, std::string> entries;
        entries.insert("m", "1");
        long failures = 0;
        for (bool inserted = false; !inserted; ++failures) {
            const FailingAllocation failure(failures);
            try {
                inserted = entries.insert(otherText, longText).second;
            } catch (const std::bad_alloc&) {
                EXPECT_EQ(entries.size(), 1U);
                EXPECT_EQ(entries.find("m"), entries.begin());
                EXPECT_EQ(entries.find(otherText), entries.end());
            }
        }
        EXPECT_GE(failures, 5); // the cached key, the entry's two texts, the node and its two texts
        EXPECT_EQ(keysOf(entries).size(), 2U);
        EXPECT_EQ(entries.find(otherText)->second, longText);
    }
    EXPECT_EQ(watch.outstanding(), 0);
}

TEST_F(MapAllocations, FailedFirstInsertionLeavesAnEmptyMap) {
    const AllocationWatch watch;
    {
        map<std::string, std::string> entries;
        long failures = 0;
        for (bool inserted = false; !inserted; ++failures) {
            const FailingAllocation failure(failures);
            try {
                inserted = entries.insert("a", "1").second;
            } catch (const std::bad_alloc&) {
                EXPECT_TRUE(entries.empty());
                EXPECT_EQ(entries.find("a"), entries.end());
            }
        }
        EXPECT_EQ(failures, 3); // the sentinel, the node, and then none
    }
    EXPECT_EQ(watch.outstanding(), 0);
}

TEST_F(MapAllocations, FailedAssignmentKeepsEntriesAndCache) {
    TextMap source;
    source.insert("k", longText);
    TextMap target = exampleMap();
    {
        const FailingAllocation failure(2);
        EXPECT_THROW(target = source, std::bad_alloc);
    }
    EXPECT_EQ(keysOf(target), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(target.find("c")->second, "3");
}

TEST_F(MapAllocations, DestructorFreesEveryNodeAndTheSentinel) {
    const AllocationWatch watch;
    {
        TextMap entries = exampleMap();
        entries.insert(longText, longText);
        EXPECT_GT(watch.outstanding(), 0);
    }
    EXPECT_EQ(watch.outstanding(), 0);
}

TEST(Map, MapsAndInsertionResultsAreConvertibleWithAnEmptyText) {
    TextMap entries;
    const pair<TextMap::iterator, bool> result = entries.insert("a", "1");
    for (const Common::Convertible* const root :
         std::initializer_list<const Common::Convertible*>{&entries, &result, &*result.first}) {
        EXPECT_EQ(root->toString(), "");
    }
}

TEST(Map, IteratorIsAListIteratorOverPairs) {
    using Entry = pair<std::string, unsigned>;
    using Map = map<std::string, unsigned>;
    EXPECT_TRUE((std::is_same_v<Map::iterator, Common::ListIterator<Entry, Entry&, Entry*>>));
    EXPECT_TRUE((std::is_same_v<Map, map<std::string, unsigned, Common::less<std::string>>>));
}
