#include "foundation/synchronization/Mutex.h"

#include "foundation/synchronization/NamedSemaphore.h"

#include <utility>

namespace Common::Synchronization {

Mutex::Mutex(std::string name) : m_name(std::move(name)), m_semaphore(std::make_unique<sem_t*>(nullptr)) {}

Mutex::~Mutex() {
    (void)unlock();
}

bool Mutex::tryLock() {
    if (m_state == State::Held) {
        return true;
    }
    bool existed = false;
    sem_t* const semaphore = openOrCreateSemaphore(m_name, existed);
    if (semaphore != SEM_FAILED && !existed) {
        *m_semaphore = semaphore;
        m_state = State::Held;
        return true;
    }
    if (semaphore != SEM_FAILED) {
        (void)sem_close(semaphore);
    }
    m_state = State::FailedToLock;
    return false;
}

bool Mutex::unlock() {
    if (m_state == State::Held) {
        (void)sem_close(*m_semaphore);
        (void)sem_unlink(m_name.c_str()); // fails only when somebody else has unlinked the name already
        *m_semaphore = nullptr;
        m_state = State::Unlocked;
    }
    return m_state == State::Unlocked;
}

bool Mutex::unlockAndWait() {
    (void)unlock();
    return waitSemaphore(m_name);
}

} // namespace Common::Synchronization
