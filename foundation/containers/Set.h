#pragma once

#include "foundation/containers/Less.h"
#include "foundation/containers/Pair.h"
#include "foundation/containers/SortedList.h"

#include <cstddef>

namespace Common {

/// A place in a set. The key must not be changed through it, because the order depends on it.
template <typename Key, typename Reference, typename Pointer>
class SetIterator : public ListIterator<Key, Reference, Pointer> {
    using Place = ListIterator<Key, Reference, Pointer>;

public:
    constexpr SetIterator() noexcept = default;
    /// The same place, as the list of keys has it.
    constexpr SetIterator(const Place& place) noexcept : Place(place) {}

    SetIterator& operator++() noexcept {
        Place::operator++();
        return *this;
    }

    SetIterator operator++(int) noexcept { // NOLINT(cert-dcl21-cpp): a const result could not be moved
        return Place::operator++(0);
    }

    /// The iterator that reads the same place without the right to change it.
    operator SetIterator<Key, const Key&, const Key*>() const noexcept {
        return SetIterator<Key, const Key&, const Key*>(*this);
    }
};

/// Keys in ascending order, each once; see SortedList for cost, copies and failures. Iterators stay valid
/// until the set is cleared, assigned to or destroyed.
template <typename Key>
class set {
    struct KeyItself {
        const Key& operator()(const Key& key) const { return key; }
    };
    using Keys = SortedList<Key, Key, KeyItself, less<Key>>;

public:
    using iterator = SetIterator<Key, Key&, Key*>;
    using const_iterator = SetIterator<Key, const Key&, const Key*>;

    set() = default;
    set(const set&) = default;
    set(set&&) noexcept = default;
    set& operator=(const set&) = default;
    set& operator=(set&&) noexcept = default;
    virtual ~set() = default;

    /// Puts the key in. Returns its place, and true when it is new, false when it was there already.
    pair<iterator, bool> insert(const Key& key) {
        const iterator known = m_keys.find(key);
        if (known != m_keys.end()) {
            return {known, false};
        }
        return {m_keys.insertNew(key), true};
    }

    /// The place of the key, or end().
    [[nodiscard]] iterator find(const Key& key) { return m_keys.find(key); }
    [[nodiscard]] const_iterator find(const Key& key) const { return m_keys.find(key); }

    [[nodiscard]] iterator begin() noexcept { return m_keys.begin(); }
    [[nodiscard]] iterator end() noexcept { return m_keys.end(); }
    [[nodiscard]] const_iterator begin() const noexcept { return m_keys.begin(); }
    [[nodiscard]] const_iterator end() const noexcept { return m_keys.end(); }

    [[nodiscard]] bool empty() const noexcept { return m_keys.empty(); }
    /// Counts the keys one by one.
    [[nodiscard]] std::size_t size() const noexcept { return m_keys.size(); }
    void clear() noexcept { m_keys.clear(); }

private:
    Keys m_keys;
};

} // namespace Common
