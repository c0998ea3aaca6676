#pragma once

#include "foundation/synchronization/NonCopyable.h"

#include <pthread.h>

#include <memory>

namespace Common::Synchronization {

/// A plain mutex between the threads of one process; despite the name it is not shared between
/// processes. Not recursive: a thread that locks it twice waits for itself for ever.
///
/// The results of the thread calls are not looked at: with default attributes they can only fail when the
/// caller breaks the rules below.
// NOLINTNEXTLINE(cppcoreguidelines-special-member-functions): NonCopyable deletes the others
class ProcessMutex : private NonCopyable {
public:
    /// Throws std::bad_alloc when there is no memory for the mutex; nothing is left behind then.
    ProcessMutex();

    /// REQUIRES: nobody holds the mutex or waits for it.
    ~ProcessMutex() override;

    /// Waits until the calling thread holds the mutex.
    void lock();

    /// REQUIRES: the calling thread holds the mutex.
    void unlock();

private:
    std::unique_ptr<pthread_mutex_t> m_mutex; // on the heap: its address never changes
};

} // namespace Common::Synchronization
