#pragma once

#include <pthread.h>

#include <memory>

namespace ORBCOMMON {

class Threadable;

/// The identifier of one started thread, and the few operations on it.
///
/// A handle is owned and used by one thread, the one that starts it; it has no lock. It is single-use:
/// null, then started, then joined or detached and null again.
class ThreadHandle {
public:
    constexpr ThreadHandle() = default;

    /// Detaches whatever is still held, so that no identifier and no ended thread is left behind.
    ~ThreadHandle();

    ThreadHandle(const ThreadHandle&) = delete;
    ThreadHandle& operator=(const ThreadHandle&) = delete;

    /// True when the handle holds no identifier: never started, joined or detached. A handle whose
    /// thread could not be created still holds one.
    [[nodiscard]] bool isNull() const { return m_thread == nullptr; }

private:
    friend int start(ThreadHandle& handle, Threadable* threadable);
    friend void join(ThreadHandle& handle);
    friend void detach(ThreadHandle& handle);
    friend bool holdSameThread(const ThreadHandle* left, const ThreadHandle* right);

    /// Null when there is no thread.
    std::unique_ptr<pthread_t> m_thread;
};

/// Starts a thread that calls run() and then finish() on `threadable`, which must not be null and must
/// outlive the thread. `handle` must be null. Returns 0 when the thread was started, else the error
/// number of the creation; the handle then holds an identifier that names no thread, and join() or
/// detach() frees it. ENOMEM with a null handle when there was no memory for the identifier.
int start(ThreadHandle& handle, Threadable* threadable);

/// Waits until the thread has ended and makes the handle null; nothing on a null handle. Failures of
/// the system call (the calling thread's own handle, for one) are ignored on purpose.
void join(ThreadHandle& handle);

/// Lets the thread run on by itself and makes the handle null; nothing on a null handle. Failures of
/// the system call are ignored on purpose.
void detach(ThreadHandle& handle);

/// True when both handles hold an identifier and the two are the same plain value. A null pointer and
/// a null handle are equal to nothing, not even to themselves.
bool holdSameThread(const ThreadHandle* left, const ThreadHandle* right);

/// Blocks the calling thread for `count` milliseconds. A signal handler that runs meanwhile cuts the
/// sleep short.
void sleepMilliseconds(unsigned count);

} // namespace ORBCOMMON
