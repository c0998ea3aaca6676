#pragma once

#include "common/threads/ThreadHandle.h"
#include "common/threads/Threadable.h"
#include "responder/service/UnifiedResponderMonitor.h"

#include <pthread.h>
#include <sys/types.h>

namespace ZNORBRESPONDER {

/// The unified responder and the one thread that works on it, as the start sequence and the test console
/// hold them on main's stack. `start`, `awaitEnd` and `detach` are main's; `awaitEnd` must have returned
/// before the object is destroyed.
///
/// How main learns that the detached thread has nothing left to do: the responder sets `mainExitBarrier`
/// early. After it, it still logs, and unmaps and unlinks the shared table; a process that ended then would
/// leave the table behind, and the next start would fail on it. So the thread announces its end, after the
/// responder's `run` and `finish` have returned, as its last act. From then on it also holds SIGTERM back, so
/// that only main can take it.
///
/// A failed execution leaves a copy of the process in which only this thread runs. There is no main to tell:
/// the thread's end is then the end of that process, with status 0, as a last thread's end is; but without
/// destructors, which would wait for the main thread that was never copied.
class ResponderThread : private ORBCOMMON::Threadable {
public:
    ResponderThread();

    /// Starts the thread. When no thread can be started the responder counts as ended at once.
    void start();

    /// Blocks until the responder has signalled `mainExitBarrier` and its thread has nothing left to do:
    /// the shared table is gone.
    void awaitEnd();

    /// Lets the thread go; it is never joined.
    void detach();

private:
    void run() override;
    void finish() override;

    void announceEnd();

    UnifiedResponderMonitor m_monitor;
    ORBCOMMON::ThreadHandle m_handle;
    const pid_t m_process; ///< the one that made this object, not a copy of it

    /// Statically initialised and never destroyed: whoever has seen the end may let them go at once.
    pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t m_ended = PTHREAD_COND_INITIALIZER;
    bool m_isRunning = false; ///< guarded by m_mutex
};

} // namespace ZNORBRESPONDER
