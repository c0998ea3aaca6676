#include "responder/service/ThreadEnd.h"

#include "responder/commands/TerminationSignal.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>

namespace ZNORBRESPONDER {

namespace {

/// Never destroyed, so that the thread may still touch them while the process's static objects go.
constinit pthread_mutex_t threadMutex = PTHREAD_MUTEX_INITIALIZER;
constinit pthread_cond_t threadEnded = PTHREAD_COND_INITIALIZER;
constinit bool isThreadRunning = false; ///< guarded by threadMutex

void setThreadRunning(bool isRunning) {
    (void)pthread_mutex_lock(&threadMutex);
    isThreadRunning = isRunning;
    (void)pthread_cond_broadcast(&threadEnded);
    (void)pthread_mutex_unlock(&threadMutex);
}

/// The process in which the thread announced its end. A forked copy of the thread inherits the number.
constinit std::atomic<pid_t> announcedIn = 0;

/// Runs on the thread that announced its end, after its entry has returned.
void endThread(void* /*announcement*/) {
    if (announcedIn != getpid()) {
        _exit(0);
    }
    (void)holdTermination();
    setThreadRunning(false);
}

/// Not a thread_local object: the C library ends the process when it has no memory to note the destructor of
/// one. It keeps the values of a process's first keys in the thread itself.
struct EndKey {
    EndKey() : isMade(pthread_key_create(&key, endThread) == 0) {}

    pthread_key_t key = 0;
    bool isMade;
};

} // namespace

void expectThread() {
    setThreadRunning(true);
}

void cancelThread() {
    setThreadRunning(false);
}

void announceThreadEnd() {
    static const EndKey end;
    if (end.isMade && pthread_getspecific(end.key) != nullptr) {
        return; // announced before
    }
    announcedIn = getpid();
    setThreadRunning(true);
    if (!end.isMade || pthread_setspecific(end.key, &isThreadRunning) != 0) {
        setThreadRunning(false); // nobody would ever hear of it: better that nobody waits
    }
}

void awaitThreadEnd() {
    (void)pthread_mutex_lock(&threadMutex);
    while (isThreadRunning) {
        (void)pthread_cond_wait(&threadEnded, &threadMutex);
    }
    (void)pthread_mutex_unlock(&threadMutex);
}

} // namespace ZNORBRESPONDER
