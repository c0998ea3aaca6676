#pragma once

#include "tests/support/ListeningPeer.h"
#include "tests/support/Names.h"
#include "tests/support/Onlooker.h"

#include <string>
#include <thread>
#include <vector>

namespace ZNORBTEST {

/// Whether the C library has made a semaphore's file under this path, which it then links to its name.
inline bool isUnfinishedSemaphore(const std::string& path) {
    constexpr std::string_view prefix = "/dev/shm/sem.";
    return path.starts_with(prefix) && path.size() == prefix.size() + 6;
}

/// What a daemon shows to those who stop it: the held lock, and a socket that takes "QUIT" and answers it.
/// The name of the lock goes only with this.
class PlayedDaemon {
public:
    /// An empty reply closes the connection without one.
    explicit PlayedDaemon(const std::string& reply);
    ~PlayedDaemon();

    void releaseLock() const { m_lock.post(); }

    /// Lets go of the lock when the request has been answered and `delay` has passed.
    void releaseAfterAnswer(Milliseconds delay);

    std::vector<std::string> received() const { return m_server.received(); }

private:
    const Onlooker m_lock;
    ListeningPeer m_server;
    std::thread m_release;
};

} // namespace ZNORBTEST
