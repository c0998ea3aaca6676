#pragma once

#include "foundation/synchronization/NonCopyable.h"

#include <semaphore.h>

#include <string>

namespace ORBCOMMON {

/// What the C library makes of a named semaphore's name: the path of a file that begins so, and goes on with
/// the name without its leading slashes.
#ifdef __GLIBC__
inline constexpr char semaphoreFiles[] = "/dev/shm/sem.";
#else
inline constexpr char semaphoreFiles[] = "/dev/shm/";
#endif

/// A system-wide lock, held in a POSIX named semaphore whose count is 1 when free and 0 when held.
///
/// A daemon creates it already held and keeps it for its whole life; other processes find out whether
/// the daemon runs by opening the same name and probing it. The semaphore's count and its name are all
/// that processes share. A name that a killed process left behind stays until somebody removes it.
///
/// The object has no lock of its own: one thread uses it, and a signal handler of that process may call
/// abandon(), and only that.
class GlobalLock : private Common::NonCopyable {
public:
    /// Takes the semaphore's name, by custom with a leading "/", and touches nothing.
    explicit GlobalLock(std::string name);

    /// Closes the semaphore; an owner that has it open also unlinks the name.
    ~GlobalLock() override;

    GlobalLock(const GlobalLock&) = delete;
    GlobalLock& operator=(const GlobalLock&) = delete;

    /// Makes a new semaphore, held by this object when `lockNow` is true, and owns its name. True when
    /// it is open; true at once when it was open before, created or not. False when the name exists or
    /// cannot be made: creating never attaches to what is there.
    bool create(bool lockNow);

    /// Opens the semaphore of that name and never makes one. True when it is open.
    bool openExisting();

    /// Takes the lock when it is free, without waiting; `takeOwnership` then also makes this object the
    /// owner of the name. True when this object holds the lock, from now or from before.
    bool tryLock(bool takeOwnership);

    /// True when this object or somebody else holds the lock. False when it is free, is not open or cannot be
    /// probed, as when the name's file is too short for a semaphore. A free lock is held for a moment by the
    /// probing.
    bool isHeld();

    /// Gives the lock back when this object holds it. `disown` also gives up owning the name.
    void unlock(bool disown);

    /// Gives the lock back when held and closes the semaphore. The name stays, and so does owning it.
    void close();

    /// close(), and unlinks the name when this object owns it or `force` is true, open or not. Handles
    /// that others have open go on working on the nameless semaphore.
    void remove(bool force);

    /// For a signal handler that is about to end the process: leaves to other processes what
    /// remove(true) does, the lock given back and the name gone, by async-signal-safe calls alone. It
    /// allocates, locks and closes nothing and leaves this object as it was. The caller makes sure that
    /// it interrupts no other operation on this object. Failures are ignored: nobody is left to tell.
    void abandon() const noexcept;

private:
    std::string m_name;
    /// A semaphore handle is open.
    bool m_open = false;
    /// This object made the semaphore or took ownership of it, and unlinks the name.
    bool m_owner = false;
    /// This object holds the semaphore's count; false while not open.
    bool m_locked = false;
    /// SEM_FAILED while not open.
    sem_t* m_handle = SEM_FAILED;
};

} // namespace ORBCOMMON
