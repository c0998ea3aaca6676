#pragma once

#include <cstddef>
#include <iterator>
#include <utility>

namespace Common {

/// The links of one place in a circular list; all there is of a sentinel.
struct ListLink {
    ListLink* next;
    ListLink* previous;
};

template <typename T>
struct ListNode : ListLink {
    ListNode() = default;
    explicit ListNode(const T& copied) : value(copied) {}

    T value;
};

/// A place in a list: a node pointer. It stays valid until its node is removed or its list destroyed.
/// Only the end of a list that was never used is different: it is a null pointer until the first insertion
/// creates the sentinel.
template <typename T, typename Reference, typename Pointer>
class ListIterator {
public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using reference = Reference;
    using pointer = Pointer;

    constexpr ListIterator() noexcept = default;
    explicit constexpr ListIterator(ListLink* node) noexcept : m_node(node) {}

    /// REQUIRES, as `->` and `++` do: the iterator is not the end of its list.
    Reference operator*() const noexcept { return static_cast<ListNode<T>*>(m_node)->value; }
    Pointer operator->() const noexcept { return &**this; }

    ListIterator& operator++() noexcept {
        m_node = m_node->next;
        return *this;
    }

    ListIterator operator++(int) noexcept { // NOLINT(cert-dcl21-cpp): a const result could not be moved
        ListIterator before = *this;
        ++*this;
        return before;
    }

    /// The iterator that reads the same place without the right to change it.
    operator ListIterator<T, const T&, const T*>() const noexcept {
        return ListIterator<T, const T&, const T*>(m_node);
    }

    bool operator==(const ListIterator& other) const noexcept = default;

    /// The bare node, for the list that it belongs to.
    [[nodiscard]] ListLink* node() const noexcept { return m_node; }

private:
    ListLink* m_node = nullptr;
};

/// Circular doubly linked list with a sentinel, in the order in which values were put in. It owns copies
/// of its values.
///
/// A list allocates nothing until the first value is put in; until then there is no sentinel. It needs no
/// constructor at run time, so a static list is usable before any static object has been constructed.
/// When an allocation or the copy of a value throws, the list holds what it held. One thread at a time.
template <typename T>
class list {
public:
    using iterator = ListIterator<T, T&, T*>;
    using const_iterator = ListIterator<T, const T&, const T*>;

    constexpr list() noexcept = default;

    list(const list& other) : list() {
        for (const T& value : other) {
            append(value);
        }
    }

    /// Takes over the values of `other`, which is a list never used afterwards.
    list(list&& other) noexcept { swap(other); }

    list& operator=(const list& other) {
        list(other).swap(*this);
        return *this;
    }

    list& operator=(list&& other) noexcept {
        list(std::move(other)).swap(*this);
        return *this;
    }

    ~list() {
        clear();
        delete m_sentinel;
    }

    /// Iterators stay with the values that they name, and so change lists.
    void swap(list& other) noexcept { std::swap(m_sentinel, other.m_sentinel); }

    [[nodiscard]] iterator begin() noexcept { return iterator(firstLink()); }
    [[nodiscard]] iterator end() noexcept { return iterator(m_sentinel); }
    [[nodiscard]] const_iterator begin() const noexcept { return const_iterator(firstLink()); }
    [[nodiscard]] const_iterator end() const noexcept { return const_iterator(m_sentinel); }

    [[nodiscard]] bool empty() const noexcept { return firstLink() == m_sentinel; }

    /// Counts the values one by one.
    [[nodiscard]] std::size_t size() const noexcept {
        std::size_t count = 0;
        for (const_iterator place = begin(); place != end(); ++place) {
            ++count;
        }
        return count;
    }

    /// The first and the last value. REQUIRES: the list is not empty.
    [[nodiscard]] T& front() noexcept { return *begin(); }
    [[nodiscard]] const T& front() const noexcept { return *begin(); }
    [[nodiscard]] T& last() noexcept { return *iterator(m_sentinel->previous); }
    [[nodiscard]] const T& last() const noexcept { return *const_iterator(m_sentinel->previous); }

    /// Puts a copy of `value` at the end. `value` may be one of the list's own.
    void append(const T& value) { (void)insertBefore(end(), value); }

    /// Puts a value at the end as `new T` makes it: plain bytes are not initialised.
    void appendDefault() {
        createSentinel();
        (void)linkBefore(m_sentinel, new ListNode<T>);
    }

    /// Puts a copy of `value` before `place`, which is a place of this list or its end, and returns the
    /// place of the copy.
    iterator insertBefore(iterator place, const T& value) {
        createSentinel();
        return linkBefore(place == iterator() ? m_sentinel : place.node(), new ListNode<T>(value));
    }

    /// Removes the value at `place`, which is not the end, and returns the place behind it. The value is
    /// unlinked before it is destroyed, so its destructor finds a list that is whole.
    iterator remove(iterator place) noexcept {
        ListLink* const link = place.node();
        ListLink* const next = link->next;
        link->previous->next = next;
        next->previous = link->previous;
        delete static_cast<ListNode<T>*>(link);
        return iterator(next);
    }

    /// Removes the first or the last value, if there is one.
    void removeFirst() noexcept {
        if (!empty()) {
            (void)remove(begin());
        }
    }
    void removeLast() noexcept {
        if (!empty()) {
            (void)remove(iterator(m_sentinel->previous));
        }
    }

    /// Removes every value, first to last.
    void clear() noexcept {
        while (!empty()) {
            removeFirst();
        }
    }

private:
    static iterator linkBefore(ListLink* next, ListNode<T>* node) noexcept {
        node->next = next;
        node->previous = next->previous;
        next->previous->next = node;
        next->previous = node;
        return iterator(node);
    }

    [[nodiscard]] ListLink* firstLink() const noexcept {
        return m_sentinel == nullptr ? nullptr : m_sentinel->next;
    }

    void createSentinel() {
        if (m_sentinel == nullptr) {
            m_sentinel = new ListLink{nullptr, nullptr};
            m_sentinel->next = m_sentinel;
            m_sentinel->previous = m_sentinel;
        }
    }

    ListLink* m_sentinel = nullptr; // null is the flag that there is none yet: the list was never used
};

} // namespace Common
