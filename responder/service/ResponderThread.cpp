#include "responder/service/ResponderThread.h"

#include "common/threads/SignalMask.h"
#include "responder/Globals.h"

#include <unistd.h>

namespace ZNORBRESPONDER {

ResponderThread::ResponderThread() : m_monitor(&mainExitBarrier), m_process(getpid()) {}

void ResponderThread::start() {
    setRunning(true);
    if (ORBCOMMON::start(m_handle, this) != 0) {
        setRunning(false);
        (void)mainExitBarrier.set(); // nobody else ever will
    }
}

void ResponderThread::awaitEnd() {
    (void)mainExitBarrier.wait();
    (void)pthread_mutex_lock(&m_mutex);
    while (m_isRunning) {
        (void)pthread_cond_wait(&m_ended, &m_mutex);
    }
    (void)pthread_mutex_unlock(&m_mutex);
}

void ResponderThread::run() {
    m_monitor.run();
}

void ResponderThread::finish() {
    m_monitor.finish();
    if (getpid() != m_process) {
        _exit(0);
    }
    (void)ORBCOMMON::holdTermination();
    setRunning(false);
}

void ResponderThread::setRunning(bool isRunning) {
    (void)pthread_mutex_lock(&m_mutex);
    m_isRunning = isRunning;
    (void)pthread_cond_signal(&m_ended);
    (void)pthread_mutex_unlock(&m_mutex);
}

} // namespace ZNORBRESPONDER
