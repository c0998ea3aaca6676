#pragma once

#include "tests/support/Waiting.h"

#include <sys/types.h>

#include <chrono>
#include <ctime>
#include <iosfwd>

namespace ZNORBTEST {

/// What such a clock shows: of this process, of another, or of a thread.
std::chrono::nanoseconds processorTimeOn(clockid_t clock);

/// What a process used of the time in which it was looked at.
struct ProcessorUse {
    std::chrono::nanoseconds used;    ///< by all threads together
    std::chrono::nanoseconds watched; ///< by the clock
    std::chrono::nanoseconds unit;    ///< in which the kernel counts: a clock tick where it is no better

    /// At most a hundredth; where the kernel counts in clock ticks two of them are allowed in any case.
    bool isWaiting() const;
};
std::ostream& operator<<(std::ostream& stream, const ProcessorUse& use);

/// Watches the process for this long. Other programs may keep the processors busy meanwhile: what is measured
/// is what the process used, not how fast it was.
ProcessorUse watchProcessor(pid_t pid, Milliseconds stretch);

} // namespace ZNORBTEST
