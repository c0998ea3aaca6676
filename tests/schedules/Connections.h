#pragma once

#include "tests/schedules/SharedCall.h"

#include <sys/types.h>

#include <deque>
#include <map>
#include <string>

namespace ZNORBSCHEDULES {

/// Who is connected to a daemon, and who waits to be accepted.
class Connections {
public:
    /// One that may connect, at most once.
    void add(pid_t process, const std::string& role) { m_requesters[process] = role; }

    /// Puts what is at the other end of the call's descriptor into the place of `ownConnection`.
    ///
    /// REQUIRES: the process is stopped at the call's start.
    void resolve(SharedCall& shared, pid_t process, const ZNORBTEST::StoppedCall& call) const;

    /// Puts what is first in the queue by now into the place of `nextInQueue`.
    Access withQueue(Access access) const;

    void noteEnd(const SharedCall& shared, pid_t process, long call, long result);

private:
    Objects objectsOf(pid_t process, const ZNORBTEST::StoppedCall& call, int awaited) const;
    Objects all() const;

    std::map<pid_t, std::string> m_requesters;
    std::deque<std::string> m_queue; ///< their connections
};

/// The call for which the process is stopped at its start would not wait.
bool isReady(const SharedCall& shared, pid_t process);

} // namespace ZNORBSCHEDULES
