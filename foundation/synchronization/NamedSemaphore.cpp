#include "foundation/synchronization/NamedSemaphore.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>

namespace Common::Synchronization {

namespace {

constexpr mode_t semaphoreMode = 0644;

/// Opens the name made absolute. A name too long for the buffer is cut, and what is left is still longer
/// than any name the system accepts.
sem_t* openSemaphore(const std::string& name, int flags) {
    std::array<char, NAME_MAX + 2> absoluteName{};
    const char* const prefix = name.starts_with('/') ? "" : "/";
    (void)snprintf(absoluteName.data(), absoluteName.size(), "%s%s", prefix, name.c_str());
    return sem_open(absoluteName.data(), flags, semaphoreMode, 0U);
}

enum class Presence { Created, Existed, Refused };

/// Neither handle is closed, on purpose: the process keeps the semaphore mapped.
Presence checkPresence(const std::string& name) {
    if (openSemaphore(name, O_CREAT | O_EXCL) != SEM_FAILED) {
        return Presence::Created;
    }
    return openSemaphore(name, O_CREAT) != SEM_FAILED ? Presence::Existed : Presence::Refused;
}

bool waitThroughSignals(sem_t* semaphore) {
    int result = -1;
    do {
        result = sem_wait(semaphore);
    } while (result == -1 && errno == EINTR);
    return result == 0;
}

} // namespace

bool semaphoreExists(const std::string& name) {
    return checkPresence(name) == Presence::Existed;
}

sem_t* openOrCreateSemaphore(const std::string& name, bool& existed) {
    const Presence presence = checkPresence(name);
    existed = presence == Presence::Existed;
    // After a refusal an open that does succeed would pass somebody else's semaphore off as a new one.
    return presence == Presence::Refused ? SEM_FAILED : openSemaphore(name, O_CREAT);
}

bool removeSemaphore(const std::string& name) {
    bool existed = false;
    sem_t* const semaphore = openOrCreateSemaphore(name, existed);
    if (semaphore != SEM_FAILED) {
        (void)sem_close(semaphore);
    }
    (void)sem_unlink(name.c_str()); // the name as it was given; a failure counts as success too
    return true;
}

bool postSemaphore(const std::string& name) {
    bool existed = false;
    sem_t* const semaphore = openOrCreateSemaphore(name, existed);
    if (semaphore == SEM_FAILED) {
        return false;
    }
    const bool posted = sem_post(semaphore) == 0;
    (void)sem_close(semaphore);
    return posted;
}

bool waitSemaphore(const std::string& name) {
    bool existed = false;
    sem_t* const semaphore = openOrCreateSemaphore(name, existed);
    if (semaphore == SEM_FAILED) {
        return false;
    }
    const bool taken = waitThroughSignals(semaphore);
    (void)sem_close(semaphore);
    return taken;
}

bool drainSemaphore(const std::string& name) {
    bool existed = false;
    sem_t* const semaphore = openOrCreateSemaphore(name, existed);
    if (semaphore == SEM_FAILED) {
        return false;
    }
    while (sem_trywait(semaphore) == 0) {
        // one count less
    }
    const bool taken = waitThroughSignals(semaphore);
    (void)sem_close(semaphore);
    return taken;
}

} // namespace Common::Synchronization
