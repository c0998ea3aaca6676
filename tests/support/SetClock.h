#pragma once

#include "tests/support/StandIns.h"

#include <atomic>
#include <ctime>

namespace ZNORBTEST {

/// While it lives, time() shows `start`, and `step` seconds more with each reading.
class SetClock {
public:
    explicit SetClock(std::time_t start, std::time_t step = 0)
        : m_time([this, start, step](std::time_t* result) {
              const std::time_t now = start + step * m_reads++;
              return result != nullptr ? *result = now : now;
          }) {}

    [[nodiscard]] int reads() const { return m_reads; }

private:
    std::atomic<int> m_reads = 0;
    const InPlaceOf<::time> m_time;
};

} // namespace ZNORBTEST
