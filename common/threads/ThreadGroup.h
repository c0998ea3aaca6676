#pragma once

/// Several thread handles that are joined or detached together.
///
/// The group owns the heap handles it is given until they are removed. It has no lock: one thread uses
/// it. The handles stand in a circular doubly linked list whose sentinel is allocated by the first
/// add(), so that an unused group allocates nothing.
namespace ORBCOMMON {

class ThreadHandle;

class ThreadGroup {
public:
    constexpr ThreadGroup() = default;

    /// detachAll()
    ~ThreadGroup();

    ThreadGroup(const ThreadGroup&) = delete;
    ThreadGroup& operator=(const ThreadGroup&) = delete;
    ThreadGroup(ThreadGroup&&) = delete;
    ThreadGroup& operator=(ThreadGroup&&) = delete;

    /// Puts a handle made with `new` at the end and takes ownership of it. A node that already stands
    /// for this handle or for its thread goes first; a different handle object that leaves the group in
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

    [[nodiscard]] unsigned size() const;

    /// The handle at `position`, counted from 0 in the order of adding; null beyond the last one. It
    /// stays the group's.
    [[nodiscard]] ThreadHandle* at(unsigned position) const;

private:
    struct Node;

    /// False when there is no memory.
    bool createSentinel();

    /// The first node, or the sentinel (null in an unused group) when there is none.
    [[nodiscard]] Node* first() const;

    /// Returns the node that followed.
    static Node* unlinkAndDelete(Node* node);

    /// Takes out the nodes that hold the same thread as `handle` and, with `sameObjectToo`, those that
    /// stand for the very object: a null handle is equal to nothing, yet must not be owned twice.
    void removeNodes(const ThreadHandle* handle, bool sameObjectToo);

    /// Null while m_hasSentinel is false.
    Node* m_sentinel = nullptr;
    bool m_hasSentinel = false;
};

} // namespace ORBCOMMON
