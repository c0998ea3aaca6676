#include "foundation/containers/Map.h"

#include "tests/support/Allocations.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <new>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

using namespace Common;
using namespace ZNORBTEST;

namespace {

using MapAllocations = AllocationTest;

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

struct LessIgnoringCase {
    bool operator()(const std::string& left, const std::string& right) const {
        return std::lexicographical_compare(
            left.begin(), left.end(), right.begin(), right.end(),
            [](unsigned char a, unsigned char b) { return std::tolower(a) < std::tolower(b); });
    }
};

} // namespace

TEST(Map, InsertOfAnExistingKeyReplacesItsValueAndReportsFalse) {
    TextMap entries = exampleMap();
    const pair<TextMap::iterator, bool> result = entries.insert("b", "20");
    EXPECT_FALSE(result.second);
    EXPECT_EQ(result.first->second, "20");
    EXPECT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries.find("b")->second, "20");
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

TEST(Map, CopyHasValuesOfItsOwn) {
    const TextMap original = exampleMap();
    TextMap copy(original);
    EXPECT_FALSE(copy.insert("c", "30").second);
    EXPECT_EQ(copy.find("c")->second, "30");
    EXPECT_EQ(original.find("c")->second, "3");
}

TEST(Map, TakesKeyAndValueFromItsOwnEntries) {
    TextMap entries;
    entries.insert("a", longText);
    entries.insert("a", entries.find("a")->second);
    EXPECT_EQ(entries.find("a")->second, longText);
    entries.insert(entries.find("a")->second, entries.find("a")->first);
    EXPECT_EQ(entries.find(longText)->second, "a");
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
