#pragma once

namespace ORBCOMMON {

/// Base of every object that runs on a thread of its own.
///
/// The owner keeps the object alive until its thread has ended: a thread holds a plain pointer to it
/// and nothing here counts references. See ThreadHandle.h for starting and ending the thread.
class Threadable {
public:
    virtual ~Threadable();

    Threadable(const Threadable&) = delete;
    Threadable& operator=(const Threadable&) = delete;

    /// The thread's body. Called once per started thread, on that thread. It must not throw: an
    /// exception that leaves it ends the process.
    virtual void run() = 0;

    /// Called on the same thread as soon as run() has returned. Does nothing unless overridden.
    virtual void finish();

protected:
    Threadable() = default;
};

} // namespace ORBCOMMON
