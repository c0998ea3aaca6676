#pragma once

#include "common/threads/ThreadHandle.h"
#include "responder/service/UnifiedResponderMonitor.h"

namespace ZNORBRESPONDER {

/// The unified responder and the one thread that works on it, as the start sequence and the test console
/// hold them on main's stack. Main thread only; the object must outlive the thread's work, that is,
/// `awaitEnd` must have returned before it is destroyed.
class ResponderThread {
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
    UnifiedResponderMonitor m_monitor;
    ORBCOMMON::ThreadHandle m_handle;
};

} // namespace ZNORBRESPONDER
