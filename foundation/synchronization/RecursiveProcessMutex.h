#pragma once

#include "foundation/synchronization/NonCopyable.h"

#include <pthread.h>

#include <cstdint>
#include <memory>

namespace Common::Synchronization {

/// A lock that its owner may take again: for code whose public operations call one another under it.
/// It works between the threads of one process only.
///
/// Threads that want the lock queue on one condition variable and are woken one at a time, each time the
/// owner's depth drops to 0. Which of them gets the lock, or whether a newcomer is faster, is open.
/// The results of the thread calls are not looked at.
// NOLINTNEXTLINE(cppcoreguidelines-special-member-functions): NonCopyable deletes the others
class RecursiveProcessMutex : private NonCopyable {
public:
    /// Throws std::bad_alloc when memory runs out; nothing is left behind then.
    RecursiveProcessMutex();

    /// REQUIRES: nobody holds the lock or waits for it.
    ~RecursiveProcessMutex() override;

    /// Waits until the calling thread owns the lock, and counts one level. Each lock needs an unlock.
    void lock();

    /// Takes one level off; the last level releases the lock and wakes one waiter.
    ///
    /// A stray unlock, from a thread that does not own the lock, counts all the same: it takes a level off
    /// the owner, and the last level releases the owner's lock. Unlocking what nobody holds does nothing.
    void unlock();

private:
    /// Whether the calling thread owns the lock. REQUIRES: the internal mutex is held.
    [[nodiscard]] bool isOwnedByCaller() const;

    std::unique_ptr<pthread_mutex_t> m_mutex; // guards the fields below
    std::uint32_t m_count = 0;                // the owner's depth; 0 exactly when not held
    std::unique_ptr<pthread_cond_t> m_condition;
    std::unique_ptr<pthread_t> m_owner; // means something only while held
    bool m_held = false;
};

} // namespace Common::Synchronization
