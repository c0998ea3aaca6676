#include "tests/sandbox/OrphanRecord.h"

#include <sys/mman.h>

#include <algorithm>

namespace ZNORBTEST {

static_assert(std::atomic<pid_t>::is_always_lock_free && std::atomic<std::size_t>::is_always_lock_free,
              "the record is shared between processes");

OrphanRecord* OrphanRecord::createShared() {
    void* memory =
        mmap(nullptr, sizeof(OrphanRecord), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED ? nullptr : new (memory) OrphanRecord();
}

void OrphanRecord::add(pid_t pid, int waitStatus) {
    const std::size_t count = m_count.load();
    Entry& entry = m_entries[count % capacity];
    entry.pid.store(pid);
    entry.waitStatus.store(waitStatus);
    m_count.store(count + 1); // only now does find() look at the entry
}

std::optional<int> OrphanRecord::find(pid_t pid) const {
    const std::size_t count = m_count.load();
    const std::size_t oldest = count - std::min(count, capacity);
    for (std::size_t i = count; i > oldest; --i) {
        const Entry& entry = m_entries[(i - 1) % capacity];
        if (entry.pid.load() == pid) {
            return entry.waitStatus.load();
        }
    }
    return std::nullopt;
}

} // namespace ZNORBTEST
