#include "foundation/synchronization/ProcessMutex.h"

namespace Common::Synchronization {

ProcessMutex::ProcessMutex() : m_mutex(std::make_unique<pthread_mutex_t>()) {
    (void)pthread_mutex_init(m_mutex.get(), nullptr);
}

ProcessMutex::~ProcessMutex() {
    (void)pthread_mutex_destroy(m_mutex.get());
}

void ProcessMutex::lock() {
    (void)pthread_mutex_lock(m_mutex.get());
}

void ProcessMutex::unlock() {
    (void)pthread_mutex_unlock(m_mutex.get());
}

} // namespace Common::Synchronization
