#pragma once

#include "foundation/synchronization/NonCopyable.h"

#include <semaphore.h>

#include <cstdint>
#include <memory>
#include <string>

namespace Common::Synchronization {

/// A named lock between processes, kept in a POSIX named semaphore: whoever created the semaphore holds
/// the lock, and unlinking it releases the lock. A holder that is killed leaves the lock taken until
/// somebody unlinks the name.
///
/// One thread at a time uses one object. An object that was copied into a child by fork is held there
/// too, and releases the lock when the child unlocks or destroys it.
// NOLINTNEXTLINE(cppcoreguidelines-special-member-functions): NonCopyable deletes the others
class Mutex : private NonCopyable {
public:
    /// A lock of this name, unlocked; the system is not asked yet. Throws std::bad_alloc when memory runs
    /// out.
    explicit Mutex(std::string name);

    /// Unlocks.
    ~Mutex() override;

    /// Takes the lock if it is free, and never waits. True when this object holds the lock now, also when
    /// it held it before; false when the semaphore exists already or cannot be created. Each call of an
    /// object that does not hold the lock tries again.
    bool tryLock();

    /// Releases the lock if this object holds it. True when the object is unlocked now; false after a
    /// tryLock that failed.
    bool unlock();

    /// Unlocks, then waits on the semaphore of the name, created with count 0 when it is missing, until
    /// somebody posts it (postSemaphore). The semaphore stays, so the lock counts as taken afterwards.
    /// True when a post was taken, false, at once, when the semaphore could not be opened.
    bool unlockAndWait();

private:
    enum class State : std::int32_t { Held = 0, FailedToLock = 1, Unlocked = 2 };

    State m_state = State::Unlocked;
    std::string m_name;
    std::unique_ptr<sem_t*> m_semaphore; // the open handle while held, else null
};

} // namespace Common::Synchronization
