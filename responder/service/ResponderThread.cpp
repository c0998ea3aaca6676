#include "responder/service/ResponderThread.h"

#include "responder/Globals.h"
#include "responder/service/ThreadEnd.h"

namespace ZNORBRESPONDER {

ResponderThread::ResponderThread() : m_monitor(&mainExitBarrier) {}

void ResponderThread::start() {
    expectThread();
    if (ORBCOMMON::start(m_handle, &m_monitor) != 0) {
        cancelThread();
        (void)mainExitBarrier.set(); // nobody else ever will
    }
}

void ResponderThread::awaitEnd() {
    (void)mainExitBarrier.wait();
    awaitThreadEnd();
}

void ResponderThread::detach() {
    ORBCOMMON::detach(m_handle);
}

} // namespace ZNORBRESPONDER
