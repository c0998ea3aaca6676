#include "common/processes/GlobalLock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

namespace ORBCOMMON {

namespace {

/// Deliberate: opening takes the right to write, so a name is of use to its own user alone.
constexpr mode_t nameMode = 0644;

/// The longest name of which the C library makes a path.
constexpr std::size_t prefixLength = sizeof(semaphoreFiles) - 1;
constexpr std::size_t longestName = NAME_MAX - (prefixLength - (sizeof("/dev/shm/") - 1));

/// Writes the path of the semaphore's file into `path`. False when the name is one that the C library
/// refuses, so that no file outside its folder is ever meant. Async-signal-safe.
bool semaphoreFile(const char* name, char (&path)[prefixLength + longestName + 1]) {
    while (*name == '/') {
        ++name;
    }
    const std::size_t length = strnlen(name, longestName + 1);
    if (length == 0 || length > longestName || memchr(name, '/', length) != nullptr) {
        return false;
    }
    memcpy(path, semaphoreFiles, prefixLength);
    memcpy(path + prefixLength, name, length);
    path[prefixLength + length] = '\0';
    return true;
}

/// Whether the semaphore's memory can be read. Somebody else may have put a file into the name's place that
/// is too short for a semaphore: the C library opens it all the same, and the first access would end the
/// process. Where the system cannot be asked, the answer is yes.
bool isBacked(sem_t* semaphore) {
    sem_t copy;
    const iovec destination{&copy, sizeof(copy)};
    const iovec source{semaphore, sizeof(copy)};
    return process_vm_readv(getpid(), &destination, 1, &source, 1, 0) != -1 || errno != EFAULT;
}

/// sem_trywait() for a semaphore that somebody else may have made. Returns 0 or the error.
int takeAtOnce(sem_t* semaphore) {
    if (!isBacked(semaphore)) {
        return EINVAL;
    }
    return sem_trywait(semaphore) == 0 ? 0 : errno;
}

} // namespace

GlobalLock::GlobalLock(std::string name) : m_name(std::move(name)) {}

GlobalLock::~GlobalLock() {
    if (m_open) {
        remove(false);
    }
}

bool GlobalLock::create(bool lockNow) {
    if (m_open) {
        return true;
    }
    const unsigned initialCount = lockNow ? 0 : 1;
    m_handle = sem_open(m_name.c_str(), O_CREAT | O_EXCL, nameMode, initialCount);
    if (m_handle == SEM_FAILED) {
        return false;
    }
    m_open = true;
    m_owner = true;
    m_locked = lockNow;
    return true;
}

bool GlobalLock::openExisting() {
    if (m_open) {
        return true;
    }
    m_handle = sem_open(m_name.c_str(), 0);
    m_open = m_handle != SEM_FAILED;
    return m_open;
}

bool GlobalLock::tryLock(bool takeOwnership) {
    if (!m_open || m_locked || takeAtOnce(m_handle) != 0) {
        return m_locked;
    }
    m_locked = true;
    if (takeOwnership) {
        m_owner = true;
    }
    return true;
}

bool GlobalLock::isHeld() {
    if (!m_open || m_locked) {
        return m_locked;
    }
    if (const int error = takeAtOnce(m_handle); error != 0) {
        return error == EAGAIN;
    }
    m_locked = true;
    unlock(false);
    return false;
}

void GlobalLock::unlock(bool disown) {
    if (m_locked) {
        (void)sem_post(m_handle);
        m_locked = false;
    }
    if (disown) {
        m_owner = false;
    }
}

void GlobalLock::close() {
    if (!m_open) {
        return;
    }
    unlock(false);
    (void)sem_close(m_handle);
    m_handle = SEM_FAILED;
    m_open = false;
}

void GlobalLock::remove(bool force) {
    close();
    if (m_owner || force) {
        (void)sem_unlink(m_name.c_str());
        m_owner = false;
    }
}

void GlobalLock::abandon() const noexcept {
    if (m_locked) {
        (void)sem_post(m_handle);
    }
    char path[prefixLength + longestName + 1];
    if (semaphoreFile(m_name.c_str(), path)) {
        (void)unlink(path);
    }
}

} // namespace ORBCOMMON
