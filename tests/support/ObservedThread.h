#pragma once

#include <sys/types.h>

#include <atomic>
#include <thread>
#include <utility>

namespace ZNORBTEST {

/// A thread of which a test can learn that it is blocked. Joined at the end; a thread that does not end
/// within the usual bound of waits ends the test program.
class ObservedThread {
public:
    template <typename Body>
    explicit ObservedThread(Body body)
        : m_thread([this, body = std::move(body)] {
              m_id = currentThreadId();
              body();
              m_finished = true;
          }) {}
    ~ObservedThread();

    /// Waits until the thread sleeps in the kernel. False when it ends instead, or after the usual bound.
    [[nodiscard]] bool fallsAsleep() const;

    /// Waits until the body has returned. False after the usual bound.
    [[nodiscard]] bool finishes() const;

    /// How often the thread has gone to sleep so far; -1 when it cannot be told.
    [[nodiscard]] long timesAsleep() const;

    [[nodiscard]] pthread_t handle() { return m_thread.native_handle(); }

private:
    static pid_t currentThreadId();
    [[nodiscard]] bool sleepsNow() const;

    std::atomic<pid_t> m_id{0};
    std::atomic<bool> m_finished{false};
    std::thread m_thread;
};

} // namespace ZNORBTEST
