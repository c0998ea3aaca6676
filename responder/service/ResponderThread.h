#pragma once

#include "common/threads/ThreadHandle.h"
#include "common/threads/Threadable.h"
#include "responder/service/UnifiedResponderMonitor.h"

#include <pthread.h>
#include <sys/types.h>

namespace ZNORBRESPONDER {

/// The unified responder and the one thread that works on it, as the start sequence and the test console
/// hold them on main's stack. `start` and `awaitEnd` are main's; `awaitEnd` must have returned before the
/// object of a started thread is destroyed, which lets the thread go.
///
/// How main learns that the thread, which is never joined, has nothing left to do: the responder sets
/// `mainExitBarrier` early. After it, it still logs, and unmaps and unlinks the shared table; a process that
/// ended then would leave the table behind, and the next start would fail on it. So the thread announces its
/// end when the responder's `run` and `finish` have returned. Before that it holds SIGTERM back, so that from
/// the announcement on only main can take it.
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

private:
    void run() override;

    /// Announces the end. Not run(): behind that, the thread's entry still comes back to this object.
    void finish() override;

    void setRunning(bool isRunning);

    UnifiedResponderMonitor m_monitor;
    ORBCOMMON::ThreadHandle m_handle;
    const pid_t m_process; ///< the one that made this object, not a copy of it

    // Need no destruction: once main has seen the end, this object may go while the thread leaves its unlock.
    pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t m_ended = PTHREAD_COND_INITIALIZER;
    bool m_isRunning = false; ///< guarded by m_mutex
};

} // namespace ZNORBRESPONDER
