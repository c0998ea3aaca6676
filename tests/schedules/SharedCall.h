#pragma once

#include "tests/schedules/Access.h"
#include "tests/support/StoppedCall.h"

#include <sys/types.h>

#include <string>

namespace ZNORBSCHEDULES {

/// What others have to do with a system call. One that nobody else can notice is no boundary between two
/// steps.
struct SharedCall {
    std::string place{};           ///< "unlink lock" and the like
    bool isMemorysAffair = false;  ///< with those who share its memory
    bool isBoundaryBehind = false; ///< others may go before what the thread does next without a call
    int awaited = -1;              ///< the descriptor for which the call waits
    pid_t lookedAt = 0;            ///< the process in whose folder the file lies
    Access access{};               ///< of the call and of what the thread does next without one
    Access behind{};               ///< of the latter alone
};

/// REQUIRES: the thread is stopped at the call's start.
SharedCall examine(pid_t thread, const ZNORBTEST::StoppedCall& call);

/// One of those in which a thread may wait for others.
bool canWaitIn(long call);

} // namespace ZNORBSCHEDULES
