#include "common/processes/ProcessEvent.h"

#include <pthread.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <new>

namespace ORBCOMMON {

struct ProcessEvent::StateBlock {
    // The mutex and the condition exist no more.
    std::uint8_t destroyed;
    std::uint8_t signalled;
    // The block is an anonymous shared mapping, else it is on the heap.
    std::uint8_t shared;
    pthread_mutex_t mutex;
    pthread_cond_t condition;
};

namespace {

constexpr int noBlockError = EINVAL;

void* mapShared(std::size_t length) {
    return mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
}

/// Failures are not detected: an event whose primitives are unusable fails at its first use.
void initialiseSharedMutex(pthread_mutex_t* mutex) {
    pthread_mutexattr_t attributes;
    (void)pthread_mutexattr_init(&attributes);
    (void)pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    (void)pthread_mutex_init(mutex, &attributes);
    (void)pthread_mutexattr_destroy(&attributes);
}

/// On the default clock, the wall clock, because timedWait() is given seconds since the epoch.
void initialiseSharedCondition(pthread_cond_t* condition) {
    pthread_condattr_t attributes;
    (void)pthread_condattr_init(&attributes);
    (void)pthread_condattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    (void)pthread_cond_init(condition, &attributes);
    (void)pthread_condattr_destroy(&attributes);
}

} // namespace

ProcessEvent::ProcessEvent(bool initiallySignalled, bool processShared) {
    void* memory =
        processShared ? mapShared(sizeof(StateBlock)) : operator new(sizeof(StateBlock), std::nothrow);
    // Tested against null only, on purpose: a failed mapping is not null and ends the process here,
    // before anything waits on an event that does not exist.
    if (memory == nullptr) {
        return;
    }
    m_block = new (memory) StateBlock{};
    m_block->signalled = initiallySignalled ? 1 : 0;
    m_block->shared = processShared ? 1 : 0;
    // Shared between processes in a heap block too: one kind of event.
    initialiseSharedMutex(&m_block->mutex);
    initialiseSharedCondition(&m_block->condition);
}

ProcessEvent::~ProcessEvent() {
    if (m_block == nullptr) {
        return;
    }
    if (m_owner && m_block->destroyed == 0) {
        m_block->destroyed = 1;
        (void)pthread_mutex_destroy(&m_block->mutex);
        (void)pthread_cond_destroy(&m_block->condition);
    }
    if (m_block->shared != 0) {
        (void)munmap(m_block, sizeof(StateBlock));
    } else {
        operator delete(m_block);
    }
    m_block = nullptr;
}

int ProcessEvent::set() {
    if (m_block == nullptr) {
        return noBlockError;
    }
    const int lockError = pthread_mutex_lock(&m_block->mutex);
    if (lockError != 0) {
        return lockError;
    }
    if (m_block->signalled == 0) {
        m_block->signalled = 1;
        (void)pthread_cond_broadcast(&m_block->condition);
    }
    return pthread_mutex_unlock(&m_block->mutex);
}

int ProcessEvent::reset() {
    if (m_block == nullptr) {
        return noBlockError;
    }
    const int lockError = pthread_mutex_lock(&m_block->mutex);
    if (lockError != 0) {
        return lockError;
    }
    m_block->signalled = 0;
    return pthread_mutex_unlock(&m_block->mutex);
}

bool ProcessEvent::wait() {
    if (m_block == nullptr || pthread_mutex_lock(&m_block->mutex) != 0) {
        return false;
    }
    int waitError = 0;
    // An error ends the waiting: one that came back at once would spin here.
    while (m_block->signalled == 0 && waitError == 0) {
        waitError = pthread_cond_wait(&m_block->condition, &m_block->mutex);
    }
    return pthread_mutex_unlock(&m_block->mutex) == 0 && waitError == 0;
}

bool ProcessEvent::timedWait(std::time_t deadline) {
    if (m_block == nullptr || pthread_mutex_lock(&m_block->mutex) != 0) {
        return false;
    }
    const timespec limit{deadline < 0 ? 0 : deadline, 0};
    int waitError = 0;
    // Any error ends the waiting, not the time-out alone: one that came back at once would spin here.
    while (m_block->signalled == 0 && waitError == 0) {
        waitError = pthread_cond_timedwait(&m_block->condition, &m_block->mutex, &limit);
    }
    // False on purpose when the time-out was reported although the event is signalled by now.
    return pthread_mutex_unlock(&m_block->mutex) == 0 && waitError == 0;
}

void ProcessEvent::setOwner(bool owner) {
    m_owner = owner;
}

} // namespace ORBCOMMON
