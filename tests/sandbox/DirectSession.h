#pragma once

#include <functional>
#include <string>

namespace ZNORBTEST {

/// A session on the machine's own names, for root where namespaces are forbidden. One at a time.
///
/// Owner: runSandboxed(), on the caller's only thread.
class DirectSession {
public:
    DirectSession() = default;
    ~DirectSession();
    DirectSession(const DirectSession&) = delete;
    DirectSession& operator=(const DirectSession&) = delete;

    /// Waits for its turn, makes sure that no daemon and none of its names are there, and leaves a mark in
    /// /opt/zn by which a later session recognises leftovers of this one. Returns why it must not or
    /// cannot begin, or an empty text.
    std::string begin(int lockSeconds);

    /// Runs the body in a child; returns its wait status. Signals that ask this process to end, end the
    /// child.
    int run(const std::function<void()>& runner);

    /// Ends the processes that the session left running, and removes its names and its mark.
    void end();

private:
    bool tryLock();
    std::string takeLock(int seconds);

    std::string m_lockPath;
    int m_lock = -1; ///< the locked file's descriptor
    bool m_begun = false;
};

} // namespace ZNORBTEST
