#pragma once

#include <chrono>
#include <functional>

namespace ZNORBTEST {

using Milliseconds = std::chrono::milliseconds;

/// How long a test waits for something that is bound to happen: generous, because sanitizers on a busy
/// machine are slow. It is used up only when a test is about to fail.
inline constexpr Milliseconds usualBound{20000};

/// Looks every few milliseconds whether the condition holds; false when it did not within the bound.
bool waitUntil(const std::function<bool()>& condition, Milliseconds bound = usualBound);
inline bool waitUntil(Milliseconds bound, const std::function<bool()>& condition) {
    return waitUntil(condition, bound);
}

} // namespace ZNORBTEST
