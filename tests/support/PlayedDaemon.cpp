#include "tests/support/PlayedDaemon.h"

#include <gtest/gtest.h>

namespace ZNORBTEST {

PlayedDaemon::PlayedDaemon(const std::string& reply)
    : m_lock(daemonLock, 0),
      m_server({4, reply.empty() ? std::vector<std::string>{} : std::vector<std::string>{reply}, false},
               "/var/run/znorb.socket") {
    EXPECT_TRUE(m_lock.isOpen());
}

PlayedDaemon::~PlayedDaemon() {
    if (m_release.joinable()) {
        m_release.join();
    }
    (void)sem_unlink(daemonLock);
}

void PlayedDaemon::releaseAfterAnswer(Milliseconds delay) {
    m_release = std::thread([this, delay]() {
        (void)m_server.waitForServed(1);
        std::this_thread::sleep_for(delay);
        releaseLock();
    });
}

} // namespace ZNORBTEST
