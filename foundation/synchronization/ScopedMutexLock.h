#pragma once

#include "foundation/synchronization/NonCopyable.h"

namespace Common::Synchronization {

/// Holds a lock for as long as it lives. `Lock` has lock() and unlock(): ProcessMutex or
/// RecursiveProcessMutex. The lock stays its owner's and must outlive the guard.
template <typename Lock>
// NOLINTNEXTLINE(cppcoreguidelines-special-member-functions): NonCopyable deletes the others
class ScopedMutexLock : private NonCopyable {
public:
    explicit ScopedMutexLock(Lock& lock) : m_lock(&lock) { m_lock->lock(); }
    ~ScopedMutexLock() override { m_lock->unlock(); }

private:
    Lock* m_lock;
};

} // namespace Common::Synchronization
