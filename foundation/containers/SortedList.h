#pragma once

#include "foundation/containers/List.h"

#include <cstddef>
#include <utility>

namespace Common {

/// What map and set have in common: a list of entries in ascending order of their keys, and a one-entry
/// lookup cache that makes it cheap to look up the key inserted last.
///
/// `KeyOf` is a function object that gives an entry's key, `Less` the order; two keys are the same when
/// `==` says so. Lookups are linear: the containers are meant for a handful of entries. Nothing is
/// allocated before the first insertion, and an insertion that throws changes nothing. A copy has entries
/// of its own and starts with an empty cache. One thread at a time.
template <typename Entry, typename Key, typename KeyOf, typename Less>
class SortedList {
public:
    using iterator = typename list<Entry>::iterator;
    using const_iterator = typename list<Entry>::const_iterator;

    SortedList() = default;
    SortedList(const SortedList& other) : m_entries(other.m_entries) {}
    SortedList(SortedList&& other) noexcept { swap(other); }
    ~SortedList() = default;

    SortedList& operator=(const SortedList& other) {
        SortedList(other).swap(*this);
        return *this;
    }

    SortedList& operator=(SortedList&& other) noexcept {
        SortedList(std::move(other)).swap(*this);
        return *this;
    }

    void swap(SortedList& other) noexcept {
        m_entries.swap(other.m_entries);
        std::swap(m_cacheValid, other.m_cacheValid);
        std::swap(m_cachedKey, other.m_cachedKey);
        std::swap(m_cachedEntry, other.m_cachedEntry);
    }

    [[nodiscard]] iterator begin() noexcept { return m_entries.begin(); }
    [[nodiscard]] iterator end() noexcept { return m_entries.end(); }
    [[nodiscard]] const_iterator begin() const noexcept { return m_entries.begin(); }
    [[nodiscard]] const_iterator end() const noexcept { return m_entries.end(); }
    [[nodiscard]] bool empty() const noexcept { return m_entries.empty(); }
    [[nodiscard]] std::size_t size() const noexcept { return m_entries.size(); }

    /// The entry of the key, or the end.
    [[nodiscard]] iterator find(const Key& key) {
        return isCached(key) ? m_cachedEntry : scan(begin(), end(), key);
    }
    [[nodiscard]] const_iterator find(const Key& key) const {
        return isCached(key) ? const_iterator(m_cachedEntry) : scan(begin(), end(), key);
    }

    /// Puts a copy of the entry in its place, and its key into the cache. REQUIRES: find() of the entry's
    /// key is the end.
    iterator insertNew(const Entry& entry) {
        Key key(KeyOf()(entry)); // copied first: once the entry is linked nothing may fail
        m_cachedEntry = m_entries.insertBefore(firstNotLess(key), entry);
        std::swap(m_cachedKey, key);
        m_cacheValid = true;
        return m_cachedEntry;
    }

    void clear() noexcept {
        m_cacheValid = false;
        m_entries.clear();
    }

private:
    [[nodiscard]] bool isCached(const Key& key) const { return m_cacheValid && m_cachedKey == key; }

    /// Reads every entry up to the one that is looked for, past greater keys as well.
    template <typename Iterator>
    static Iterator scan(Iterator place, Iterator end, const Key& key) {
        while (place != end && !(KeyOf()(*place) == key)) {
            ++place;
        }
        return place;
    }

    iterator firstNotLess(const Key& key) {
        iterator place = begin();
        while (place != end() && Less()(KeyOf()(*place), key)) {
            ++place;
        }
        return place;
    }

    list<Entry> m_entries;
    bool m_cacheValid = false;
    Key m_cachedKey{}; // a copy of the key inserted last
    iterator m_cachedEntry;
};

} // namespace Common
