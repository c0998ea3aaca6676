#pragma once

#include <unistd.h>

namespace ZNORBTEST {

/// Ends the process, and thereby the test and what it traces, when something blocks for that many seconds.
class Watchdog {
public:
    explicit Watchdog(unsigned seconds) { (void)alarm(seconds); }
    ~Watchdog() { (void)alarm(0); }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;
};

} // namespace ZNORBTEST
