#include "responder/ThreadEnd.h"

#include "responder/TerminationSignal.h"

#include <unistd.h>

#include <atomic>

namespace ZNORBRESPONDER {

namespace {

/// Never destroyed, so that the thread may still touch it while the process's static objects go.
constinit std::atomic<bool> isThreadRunning = false;

void markEnd() {
    isThreadRunning = false;
    isThreadRunning.notify_all();
}

/// Lives as long as the thread that made it; the destructor runs after the thread's entry has returned.
class EndAnnouncement {
public:
    EndAnnouncement() : m_process(getpid()) { isThreadRunning = true; }
    EndAnnouncement(const EndAnnouncement&) = delete;
    EndAnnouncement& operator=(const EndAnnouncement&) = delete;

    ~EndAnnouncement() {
        if (getpid() != m_process) {
            _exit(0);
        }
        (void)holdTermination();
        markEnd();
    }

private:
    pid_t m_process;
};

} // namespace

void expectThread() {
    isThreadRunning = true;
}

void cancelThread() {
    markEnd();
}

void announceThreadEnd() {
    static thread_local EndAnnouncement announcement;
}

void awaitThreadEnd() {
    isThreadRunning.wait(true);
}

} // namespace ZNORBRESPONDER
