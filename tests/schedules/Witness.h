#pragma once

#include "tests/schedules/Access.h"

#include <sys/types.h>

#include <set>
#include <string>
#include <vector>

namespace ZNORBSCHEDULES {

/// Looks at the daemon's names between any two steps, without a part in them: neither maps a lock nor makes a
/// name.
class Witness {
public:
    Witness() = default;
    ~Witness();
    Witness(const Witness&) = delete;
    Witness& operator=(const Witness&) = delete;

    /// What has changed since the last look.
    Objects look();

    /// That there is now may be removed although it is held.
    void passOverLock();

    /// What must not be, and has been all the same at some moment: in words, "nothing" if nothing has.
    std::string breaches() const;
    void note(const std::string& breach) { m_breaches.insert(breach); }

    /// "held", "free" or "none".
    std::string lock() const;
    /// Which entries are in use, with what; "none" when there is no table.
    std::string table() const;

private:
    /// One that has or had the lock's name.
    struct SeenLock {
        int file = -1;
        dev_t device = 0;
        ino_t inode = 0;
        int count = 0;
        bool isNamed = true;
        bool isStale = false;
    };

    bool meetLock();
    Objects lookAt(SeenLock& lock);

    std::vector<SeenLock> m_locks;
    std::string m_table = "none";
    std::set<std::string> m_breaches;
};

} // namespace ZNORBSCHEDULES
