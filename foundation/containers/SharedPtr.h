#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace Common {

/// Shared owner of one heap object. The last owner to go destroys it.
///
/// The counter is atomic: owners of the same object may be copied and destroyed on several threads at
/// once. One shared_ptr object, like the object it points to, is for one thread at a time.
template <typename T>
class shared_ptr {
public:
    /// Owns nothing and allocates nothing.
    constexpr shared_ptr() noexcept = default;

    /// Takes over `object`, which came from `new` and may be null. Should the counter's allocation fail,
    /// `object` is deleted and std::bad_alloc is thrown: the caller never has to clean up.
    explicit shared_ptr(T* object) : m_object(object), m_count(newCounter(object)) {}

    shared_ptr(const shared_ptr& other) noexcept : m_object(other.m_object), m_count(other.m_count) {
        if (m_count != nullptr) {
            m_count->fetch_add(1, std::memory_order_relaxed);
        }
    }

    /// Takes over the share of `other`, which owns nothing afterwards.
    shared_ptr(shared_ptr&& other) noexcept { swap(other); }

    shared_ptr& operator=(const shared_ptr& other) noexcept {
        shared_ptr(other).swap(*this);
        return *this;
    }

    shared_ptr& operator=(shared_ptr&& other) noexcept {
        shared_ptr(std::move(other)).swap(*this);
        return *this;
    }

    ~shared_ptr() { release(); }

    void swap(shared_ptr& other) noexcept {
        std::swap(m_object, other.m_object);
        std::swap(m_count, other.m_count);
    }

    /// The object, or null. The shared_ptr still owns it.
    [[nodiscard]] T* get() const noexcept { return m_object; }

    /// REQUIRES, as `->` does: the object is not null.
    T& operator*() const noexcept { return *m_object; }
    T* operator->() const noexcept { return m_object; }

    /// True when there is an object.
    explicit operator bool() const noexcept { return m_object != nullptr; }

private:
    using Counter = std::atomic<std::uint32_t>;

    static Counter* newCounter(T* object) {
        try {
            return new Counter(1);
        } catch (...) {
            delete object;
            throw;
        }
    }

    void release() noexcept {
        if (m_count != nullptr && m_count->fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete m_object;
            delete m_count;
        }
    }

    T* m_object = nullptr;
    Counter* m_count = nullptr; // null only when no object was ever given
};

} // namespace Common
