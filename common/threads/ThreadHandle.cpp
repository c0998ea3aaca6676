#include "common/threads/ThreadHandle.h"

#include "common/threads/Threadable.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <new>

namespace ORBCOMMON {

namespace {

/// The value that no thread of this C library has; the system calls must not be given it.
constexpr pthread_t noThread = 0;

} // namespace

extern "C" {
static void* threadEntry(void* argument) {
    auto* threadable = static_cast<Threadable*>(argument);
    threadable->run();
    threadable->finish();
    return nullptr;
}
}

ThreadHandle::~ThreadHandle() {
    detach(*this);
}

int start(ThreadHandle& handle, Threadable* threadable) {
    handle.m_thread.reset(new (std::nothrow) pthread_t(noThread));
    if (handle.m_thread == nullptr) {
        return ENOMEM;
    }
    const int result = pthread_create(handle.m_thread.get(), nullptr, threadEntry, threadable);
    if (result != 0) {
        // A failed creation leaves an undefined value behind, which callers that ignore the result
        // would hand to join() or detach().
        *handle.m_thread = noThread;
    }
    return result;
}

void join(ThreadHandle& handle) {
    if (handle.m_thread == nullptr) {
        return;
    }
    if (*handle.m_thread != noThread) {
        (void)pthread_join(*handle.m_thread, nullptr);
    }
    handle.m_thread.reset();
}

void detach(ThreadHandle& handle) {
    if (handle.m_thread == nullptr) {
        return;
    }
    if (*handle.m_thread != noThread) {
        (void)pthread_detach(*handle.m_thread);
    }
    handle.m_thread.reset();
}

bool holdSameThread(const ThreadHandle* left, const ThreadHandle* right) {
    if (left == nullptr || right == nullptr || left->isNull() || right->isNull()) {
        return false;
    }
    return *left->m_thread == *right->m_thread;
}

void sleepMilliseconds(unsigned count) {
    // In steps whose microseconds fit into the argument of usleep.
    constexpr unsigned longestStep = 1'000'000;
    constexpr unsigned microseconds = 1000;
    while (count > longestStep) {
        (void)usleep(longestStep * microseconds);
        count -= longestStep;
    }
    (void)usleep(count * microseconds);
}

} // namespace ORBCOMMON
