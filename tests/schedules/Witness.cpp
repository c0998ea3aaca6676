#include "tests/schedules/Witness.h"

#include "tests/support/Files.h"
#include "tests/support/Names.h"
#include "tests/support/SharedTable.h"

#include <fcntl.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace ZNORBSCHEDULES {
namespace {

using namespace ZNORBTEST;

/// Mapped only for the moment: znorb-clean takes whoever maps a lock for a daemon.
int countIn(int file) {
    int count = -1;
    void* const memory = mmap(nullptr, sizeof(sem_t), PROT_READ, MAP_SHARED, file, 0);
    if (memory != MAP_FAILED) {
        (void)sem_getvalue(static_cast<sem_t*>(memory), &count);
        (void)munmap(memory, sizeof(sem_t));
    }
    return count;
}

std::string inWords(unsigned index, const znorb_client_entry& entry) {
    return std::to_string(index) + (entry.in_use != 0 ? " used" : " free") +
           (entry.port != 0 ? " port" : "") + (entry.identifier[0] != '\0' ? " name" : "");
}

std::string describeTable() {
    const std::optional<znorb_shared_table> table = readSharedTable();
    std::string result = table.has_value() ? "" : exists(tableFile) ? "no size" : "none";
    for (unsigned index = 0; table.has_value() && index < std::min<unsigned>(table->count, 4); ++index) {
        result += (result.empty() ? "" : ", ") + inWords(index, table->entries[index]);
    }
    return result.empty() ? "empty" : result;
}

} // namespace

Witness::~Witness() {
    for (const SeenLock& lock : m_locks) {
        (void)close(lock.file);
    }
}

Objects Witness::look() {
    Objects changed;
    if (meetLock()) {
        (void)changed.insert(lockName);
    }
    for (SeenLock& lock : m_locks) {
        changed.merge(lookAt(lock));
    }
    const std::string content = describeTable();
    if (content != std::exchange(m_table, content)) {
        (void)changed.insert(sharedTable);
    }
    return changed;
}

void Witness::passOverLock() {
    (void)meetLock();
    for (SeenLock& lock : m_locks) {
        lock.isStale = true;
    }
}

/// Whether there is one that it has not met yet.
bool Witness::meetLock() {
    struct stat status = {};
    if (stat(lockFile, &status) != 0) {
        return false;
    }
    const bool isKnown = std::any_of(m_locks.begin(), m_locks.end(), [&status](const SeenLock& lock) {
        return lock.inode == status.st_ino && lock.device == status.st_dev;
    });
    if (!isKnown) {
        const int file = open(lockFile, O_RDWR | O_CLOEXEC);
        m_locks.push_back({file, status.st_dev, status.st_ino, countIn(file)});
    }
    return !isKnown;
}

/// What has changed of it. Nobody but the daemon lets go of it, and only when its table is gone; its name
/// goes last.
Objects Witness::lookAt(SeenLock& lock) {
    struct stat status = {};
    const bool isNamed = fstat(lock.file, &status) == 0 && status.st_nlink > 0;
    const int count = countIn(lock.file);
    if (count > lock.count && exists(tableFile)) {
        note("lock let go before the table");
    }
    if (!isNamed && count == 0 && !lock.isStale) {
        note("name gone before the lock");
    }
    Objects changed;
    if (isNamed != std::exchange(lock.isNamed, isNamed)) {
        (void)changed.insert(lockName);
    }
    if (count != std::exchange(lock.count, count)) {
        (void)changed.insert(lockCount);
    }
    return changed;
}

std::string Witness::breaches() const {
    std::string result;
    for (const std::string& breach : m_breaches) {
        result += (result.empty() ? "" : ", ") + breach;
    }
    return result.empty() ? "nothing" : result;
}

std::string Witness::lock() const {
    const auto named =
        std::find_if(m_locks.begin(), m_locks.end(), [](const SeenLock& lock) { return lock.isNamed; });
    return named == m_locks.end() ? "none" : named->count == 0 ? "held" : "free";
}

std::string Witness::table() const {
    return m_table;
}

} // namespace ZNORBSCHEDULES
