#pragma once

#include <pthread.h>

/// For tests of what happens when the system has nothing left to give.
namespace ZNORBTEST {

/// Uses up what memory the process can get, of every small size too, because the allocator keeps each in a
/// store of its own; for a process that ends right after. Not under a sanitizer, which would end it.
void useUpMemory();

/// From here on this process can fork no more; a privileged one gives up being it for that. False when it
/// still can.
bool forbidForks() noexcept;

/// Makes every creation of a thread fail while it lives: no stack of the default size can be had.
class NoThreads {
public:
    NoThreads();
    ~NoThreads();
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

private:
    pthread_attr_t m_before{};
};

} // namespace ZNORBTEST
