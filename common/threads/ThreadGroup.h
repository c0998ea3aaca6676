#pragma once

#include "foundation/containers/List.h"

#include <cstddef>

namespace ORBCOMMON {

class ThreadHandle;

/// Several thread handles that are joined or detached together.
///
/// The group owns the heap handles it is given until they are removed. It has no lock: one thread uses
/// it. An unused group allocates nothing.
class ThreadGroup {
public:
    constexpr ThreadGroup() = default;

    /// detachAll()
    ~ThreadGroup();

    ThreadGroup(const ThreadGroup&) = delete;
    ThreadGroup& operator=(const ThreadGroup&) = delete;

    /// Puts a handle made with `new` at the end and takes ownership of it. A node that already stood
    /// for this handle or for its thread is taken out; a different handle object that leaves the group in
    /// this way belongs to its caller again. False when there is no memory or `handle` is null: nothing
    /// changes and the handle stays the caller's.
    bool add(ThreadHandle* handle);

    /// Takes out every node that holds the same thread as `handle` and gives the handle objects back to
    /// the caller undeleted. A null handle, such as one that was joined, is equal to no node and so
    /// removes nothing.
    void remove(const ThreadHandle* handle);

    /// Joins every handle in the group's order. The handles stay in the group, null from then on.
    void joinAll();

    /// Detaches and deletes every handle in the group's order and leaves the group empty and unused.
    void detachAll();

    [[nodiscard]] std::size_t size() const;

    /// The handle at `position`, counted from 0 in the order of adding; null beyond the last one. It
    /// stays the group's.
    [[nodiscard]] ThreadHandle* at(std::size_t position) const;

private:
    Common::list<ThreadHandle*> m_handles; ///< all owned, none null
};

} // namespace ORBCOMMON
