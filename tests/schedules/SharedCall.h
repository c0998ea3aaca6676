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
    bool isFamilyAffair = false;   ///< with those who share its memory
    bool isBoundaryBehind = false; ///< others may go before what the thread does next without a call
    Access access{};
};

/// REQUIRES: the thread is stopped at the call's start.
SharedCall examine(pid_t thread, const ZNORBTEST::StoppedCall& call);

/// One of those in which a thread may wait for others.
bool canWaitIn(long call);

} // namespace ZNORBSCHEDULES
