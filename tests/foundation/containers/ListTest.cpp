#include "foundation/containers/List.h"

#include "tests/support/Allocations.h"

#include <algorithm>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

using Common::list;
using namespace ZNORBTEST;

namespace {

using ListAllocations = AllocationTest;

constinit list<std::string> staticList; // needs no initialisation at run time

const std::string longText(100, 'x'); // too long to be kept without an allocation

template <typename T>
std::vector<T> valuesOf(const list<T>& values) {
    std::vector<T> result;
    for (const T& value : values) {
        result.push_back(value);
    }
    return result;
}

/// Whether the links lead round the list in both directions.
template <typename T>
bool linksAreWhole(const list<T>& values) {
    if (values.begin().node() == nullptr) {
        return values.end().node() == nullptr;
    }
    const Common::ListLink* const sentinel = values.end().node();
    const Common::ListLink* link = sentinel;
    do {
        if (link->next->previous != link || link->previous->next != link) {
            return false;
        }
        link = link->next;
    } while (link != sentinel);
    return true;
}

list<int> listOf(std::initializer_list<int> numbers) {
    list<int> result;
    for (const int number : numbers) {
        result.append(number);
    }
    return result;
}

/// Looks, while it is destroyed, at the list that it is in.
class Witness {
public:
    Witness(list<Witness>& home, std::vector<std::size_t>& sizes) : m_home(&home), m_sizes(&sizes) {}
    Witness(const Witness& other) : m_home(other.m_home), m_sizes(other.m_sizes), m_isInList(true) {}
    Witness& operator=(const Witness&) = delete;
    ~Witness() {
        if (m_isInList) {
            m_sizes->push_back(linksAreWhole(*m_home) ? m_home->size() : 1000);
        }
    }

private:
    list<Witness>* m_home;
    std::vector<std::size_t>* m_sizes;
    bool m_isInList = false;
};

/// Cannot be copied after the given number of copies.
class Fragile {
public:
    explicit Fragile(int& copiesLeft) : m_copiesLeft(&copiesLeft) {}
    Fragile(const Fragile& other) : m_copiesLeft(other.m_copiesLeft) {
        if ((*m_copiesLeft)-- == 0) {
            throw std::bad_alloc();
        }
    }
    Fragile& operator=(const Fragile&) = default;
    ~Fragile() = default;

private:
    int* m_copiesLeft;
};

TEST(List, RemovesAValueInItsMiddleAndNamesThePlaceBehind) {
    list<int> values = listOf({1, 2, 3});
    auto place = ++values.begin();
    place = values.remove(place);
    EXPECT_EQ(*place, 3);
    EXPECT_EQ(valuesOf(values), (std::vector<int>{1, 3}));
    EXPECT_TRUE(linksAreWhole(values));
}

TEST(List, RemovesItsFirstAndItsLastValueByTheirPlaces) {
    list<int> values = listOf({1, 2});
    EXPECT_EQ(*values.remove(values.begin()), 2);
    EXPECT_EQ(values.remove(values.begin()), values.end());
    EXPECT_TRUE(values.empty());
    EXPECT_TRUE(linksAreWhole(values));
}

} // namespace

TEST_F(ListAllocations, AllocatesNothingBeforeTheFirstValue) {
    const AllocationWatch watch;
    list<std::string> unused;
    EXPECT_TRUE(unused.empty());
    EXPECT_EQ(unused.size(), 0U);
    EXPECT_EQ(unused.begin(), unused.end());
    EXPECT_EQ(std::as_const(unused).begin(), std::as_const(unused).end());
    unused.clear();
    unused.removeFirst();
    const list<std::string> copy = unused;
    unused = copy;
    EXPECT_EQ(watch.allocations(), 0);
}

TEST_F(ListAllocations, FirstValueBringsTheSentinel) {
    const AllocationWatch watch;
    list<int> numbers;
    numbers.append(1);
    EXPECT_EQ(watch.allocations(), 2);
    numbers.append(2);
    EXPECT_EQ(watch.allocations(), 3);
}

TEST(List, StaticListIsUsableWithoutAConstructorAtRunTime) {
    staticList.append("a");
    EXPECT_EQ(valuesOf(staticList), (std::vector<std::string>{"a"}));
    staticList.clear();
    EXPECT_TRUE(staticList.empty());
}

TEST(List, KeepsTheOrderOfAppending) {
    const list<int> numbers = listOf({3, 1, 2});
    EXPECT_EQ(valuesOf(numbers), (std::vector<int>{3, 1, 2}));
    EXPECT_EQ(numbers.size(), 3U);
    EXPECT_FALSE(numbers.empty());
    EXPECT_TRUE(linksAreWhole(numbers));
}

TEST(List, FirstAndLastValueAreAtHand) {
    list<int> numbers = listOf({3, 1, 2});
    EXPECT_EQ(numbers.front(), 3);
    EXPECT_EQ(numbers.last(), 2);
    numbers.front() = 30;
    numbers.last() = 20;
    EXPECT_EQ(std::as_const(numbers).front(), 30);
    EXPECT_EQ(std::as_const(numbers).last(), 20);
}

TEST(List, InsertsBeforeAPlace) {
    list<int> numbers = listOf({1, 3});
    const list<int>::iterator inserted = numbers.insertBefore(++numbers.begin(), 2);
    EXPECT_EQ(*inserted, 2);
    (void)numbers.insertBefore(numbers.begin(), 0);
    (void)numbers.insertBefore(numbers.end(), 4);
    EXPECT_EQ(valuesOf(numbers), (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_TRUE(linksAreWhole(numbers));
}

TEST(List, InsertsBeforeTheEndOfAListThatWasNeverUsed) {
    list<int> numbers;
    const list<int>::iterator end = numbers.end();
    (void)numbers.insertBefore(end, 1);
    (void)numbers.insertBefore(end, 2);
    EXPECT_EQ(valuesOf(numbers), (std::vector<int>{1, 2}));
}

TEST(List, AppendsACopyOfItsOwnValue) {
    list<std::string> texts;
    texts.append(longText);
    texts.append(texts.front());
    EXPECT_EQ(valuesOf(texts), (std::vector<std::string>{longText, longText}));
}

TEST(List, RemovesTheFirstOrTheLastValue) {
    const std::pair<void (list<int>::*)(), int> removals[] = {{&list<int>::removeFirst, 2},
                                                              {&list<int>::removeLast, 1}};
    for (const auto& [remove, left] : removals) {
        list<int> unused;
        (unused.*remove)();
        EXPECT_TRUE(linksAreWhole(unused));
        list<int> numbers = listOf({1, 2});
        (numbers.*remove)();
        EXPECT_EQ(valuesOf(numbers), (std::vector<int>{left}));
        EXPECT_TRUE(linksAreWhole(numbers));
        (numbers.*remove)();
        EXPECT_TRUE(numbers.empty());
        (numbers.*remove)();
        EXPECT_TRUE(linksAreWhole(numbers));
    }
}

TEST(List, AppendsAValueInPlace) {
    list<std::string> texts;
    texts.appendDefault();
    texts.last() = "b";
    EXPECT_EQ(valuesOf(texts), (std::vector<std::string>{"b"}));
    texts.appendDefault();
    EXPECT_EQ(valuesOf(texts), (std::vector<std::string>{"b", ""}));
    EXPECT_TRUE(linksAreWhole(texts));
}

TEST(List, UnlinksAValueBeforeItDestroysIt) {
    std::vector<std::size_t> sizes;
    list<Witness> witnesses;
    for (int i = 0; i < 3; ++i) {
        witnesses.append(Witness(witnesses, sizes));
    }
    witnesses.removeLast();
    witnesses.clear();
    EXPECT_EQ(sizes, (std::vector<std::size_t>{2, 1, 0}));
}

TEST(List, IsUsableAfterClear) {
    list<int> numbers = listOf({1, 2});
    const list<int>::iterator end = numbers.end();
    numbers.clear();
    EXPECT_TRUE(numbers.empty());
    EXPECT_EQ(numbers.end(), end);
    numbers.append(3);
    EXPECT_EQ(valuesOf(numbers), (std::vector<int>{3}));
}

TEST_F(ListAllocations, DestructorFreesEveryNodeAndTheSentinel) {
    const AllocationWatch watch;
    {
        list<std::string> texts;
        texts.append(longText);
        texts.append(longText);
        EXPECT_EQ(watch.outstanding(), 5);
    }
    EXPECT_EQ(watch.outstanding(), 0);
}

TEST(List, CopiesAreIndependent) {
    const list<int> original = listOf({1, 2});
    list<int> copy = original;
    copy.front() = 10;
    copy.append(3);
    EXPECT_EQ(valuesOf(original), (std::vector<int>{1, 2}));
    EXPECT_EQ(valuesOf(copy), (std::vector<int>{10, 2, 3}));
    EXPECT_TRUE(linksAreWhole(copy));
}

TEST(List, AssignmentReplacesTheValuesButForTheSame) {
    list<int> target = listOf({1, 2});
    const list<int>& same = target;
    target = same;
    EXPECT_EQ(valuesOf(target), (std::vector<int>{1, 2}));
    const list<int> source = listOf({3});
    target = source;
    EXPECT_EQ(valuesOf(target), (std::vector<int>{3}));
    EXPECT_EQ(valuesOf(source), (std::vector<int>{3}));
    EXPECT_TRUE(linksAreWhole(target));
}

TEST(List, MoveHandsTheValuesOver) {
    list<int> source = listOf({1, 2});
    const int* const first = &source.front();
    list<int> target = std::move(source);
    EXPECT_TRUE(source.empty()); // NOLINT(bugprone-use-after-move): the contract says what it is now
    source = std::move(target);
    EXPECT_EQ(&source.front(), first);
    EXPECT_EQ(valuesOf(source), (std::vector<int>{1, 2}));
}

TEST_F(ListAllocations, FailedAllocationLeavesTheListAsItWas) {
    const AllocationWatch watch;
    {
        list<std::string> unused;
        list<std::string> used;
        used.append("a");
        for (list<std::string>* const texts : {&unused, &used}) {
            const std::vector<std::string> before = valuesOf(*texts);
            long failures = 0;
            for (bool appended = false; !appended; ++failures) {
                const FailingAllocation failure(failures);
                try {
                    texts->append(longText);
                    appended = true;
                } catch (const std::bad_alloc&) {
                    EXPECT_EQ(texts->size(), before.size());
                    EXPECT_TRUE(linksAreWhole(*texts));
                }
            }
            EXPECT_GE(failures, 2);
            EXPECT_EQ(texts->last(), longText);
        }
    }
    EXPECT_EQ(watch.outstanding(), 0);
}

TEST_F(ListAllocations, FailedCopyOfAListLeavesNothingBehind) {
    int copiesLeft = 100;
    list<Fragile> original;
    for (int i = 0; i < 3; ++i) {
        original.append(Fragile(copiesLeft));
    }
    const AllocationWatch watch;
    copiesLeft = 2;
    EXPECT_THROW(list<Fragile>{original}, std::bad_alloc);
    copiesLeft = 2;
    list<Fragile> target;
    EXPECT_THROW(target = original, std::bad_alloc);
    EXPECT_TRUE(target.empty());
    EXPECT_EQ(original.size(), 3U);
    EXPECT_EQ(watch.outstanding(), 0);
}

TEST(List, IteratorFollowsNextAndYieldsTheValue) {
    list<std::string> texts;
    texts.append("a");
    texts.append("bc");
    list<std::string>::iterator place = texts.begin();
    EXPECT_EQ(*place++, "a");
    EXPECT_EQ(place->size(), 2U);
    EXPECT_EQ(++place, texts.end());
}

TEST(List, ValuesAreChangedThroughIteratorsAndReadThroughConstOnes) {
    list<int> numbers = listOf({1, 2});
    for (int& number : numbers) {
        number *= 10;
    }
    const list<int>::const_iterator first = numbers.begin();
    EXPECT_EQ(*first, 10);
    EXPECT_TRUE((std::is_same_v<decltype(*first), const int&>));
    EXPECT_FALSE((std::is_convertible_v<list<int>::const_iterator, list<int>::iterator>));
}

TEST(List, WorksWithTheStandardAlgorithms) {
    const list<int> numbers = listOf({4, 5, 6});
    EXPECT_EQ(*std::find(numbers.begin(), numbers.end(), 5), 5);
    EXPECT_EQ(std::find(numbers.begin(), numbers.end(), 7), numbers.end());
    EXPECT_EQ(std::distance(numbers.begin(), numbers.end()), 3);
}
