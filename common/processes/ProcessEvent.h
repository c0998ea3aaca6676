#pragma once

#include <ctime>

namespace ORBCOMMON {

/// A manual-reset event: once set it stays signalled, for every waiter, until it is reset.
///
/// Its state lives in a block of its own, on the heap for the threads of one process, or in an
/// anonymous shared mapping, so that the parent and the child of a later fork() wait on and signal the
/// same event. All operations but setOwner() may be called from any thread; the destructor only when
/// nobody uses this object any more.
///
/// Hand-over across fork(): the creator calls setOwner(false) before it forks and, in the process that
/// is to destroy the mutex and the condition, setOwner(true) afterwards. Every process releases its own
/// view of the block.
///
/// The destructor of an owner blocks while some thread still waits on the event, a thread that is
/// interrupted by a signal handler included: no handler may run static destructors over one.
class ProcessEvent {
public:
    /// `processShared` chooses the shared mapping. Without memory for a heap block the object has no
    /// state: every operation then fails with EINVAL or false. Failures to initialise the mutex or the
    /// condition are not detected.
    ProcessEvent(bool initiallySignalled, bool processShared);
    ~ProcessEvent();

    ProcessEvent(const ProcessEvent&) = delete;
    ProcessEvent& operator=(const ProcessEvent&) = delete;

    /// Signals the event and releases every waiter. Nothing more happens when it is signalled already.
    /// Returns 0, or the error number of the lock (nothing changed) or of the unlock.
    int set();

    /// Makes the event not signalled. Returns as set() does.
    int reset();

    /// Waits without limit until the event is signalled, which it then stays. False when the lock, the
    /// waiting itself or the unlock failed.
    bool wait();

    /// As wait(), until `deadline` at the latest: a point in time in whole seconds since the epoch, not
    /// a duration. True when the event is signalled already, however late it is, or is signalled before
    /// the deadline. False when the deadline passed first, also when the signal coincides with it, and
    /// on every failure. A deadline before the epoch has passed.
    bool timedWait(std::time_t deadline);

    /// Whether this object destroys the mutex and the condition at its end. Releasing the memory does
    /// not depend on it.
    void setOwner(bool owner);

private:
    struct StateBlock;

    /// Null when there was no memory.
    StateBlock* m_block = nullptr;
    bool m_owner = true;
};

} // namespace ORBCOMMON
