#include "tests/support/Waiting.h"

#include <thread>

namespace ZNORBTEST {

bool waitUntil(const std::function<bool()>& condition, Milliseconds bound) {
    const std::chrono::steady_clock::time_point end = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(Milliseconds(2));
    }
    return true;
}

} // namespace ZNORBTEST
