#include "foundation/synchronization/ScopedMutexLock.h"

#include "foundation/synchronization/ProcessMutex.h"
#include "foundation/synchronization/RecursiveProcessMutex.h"
#include "tests/support/ObservedThread.h"

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>

using Common::NonCopyable;
using namespace Common::Synchronization;
using ZNORBTEST::ObservedThread;

namespace {

template <typename Lock>
class ScopedMutexLockOver : public testing::Test {};

using Locks = testing::Types<ProcessMutex, RecursiveProcessMutex>;

/// Writes down what is done to it.
class RecordingLock {
public:
    void lock() { m_calls += 'L'; }
    void unlock() { m_calls += 'U'; }
    [[nodiscard]] const std::string& calls() const { return m_calls; }

private:
    std::string m_calls;
};

} // namespace

TYPED_TEST_SUITE(ScopedMutexLockOver, Locks);

TYPED_TEST(ScopedMutexLockOver, KeepsOthersOutUntilItsScopeEnds) {
    TypeParam mutex;
    std::optional<ScopedMutexLock<TypeParam>> guard(mutex);
    const ObservedThread other([&] { const ScopedMutexLock<TypeParam> otherGuard(mutex); });
    EXPECT_TRUE(other.fallsAsleep());
    guard.reset();
    EXPECT_TRUE(other.finishes());
}

TYPED_TEST(ScopedMutexLockOver, ReleasesWhenAnExceptionLeavesItsScope) {
    TypeParam mutex;
    try {
        const ScopedMutexLock<TypeParam> guard(mutex);
        throw std::runtime_error("out");
    } catch (const std::runtime_error&) {
        const ObservedThread other([&] { const ScopedMutexLock<TypeParam> otherGuard(mutex); });
        EXPECT_TRUE(other.finishes());
    }
}

TEST(ScopedMutexLock, LocksOnceAndUnlocksOnce) {
    RecordingLock lock;
    {
        const ScopedMutexLock<RecordingLock> guard(lock);
        EXPECT_EQ(lock.calls(), "L");
    }
    EXPECT_EQ(lock.calls(), "LU");
}

TEST(ScopedMutexLock, GuardsOverARecursiveLockNest) {
    RecursiveProcessMutex mutex;
    std::optional<ScopedMutexLock<RecursiveProcessMutex>> outer(mutex);
    const ObservedThread other([&] { const ScopedMutexLock<RecursiveProcessMutex> guard(mutex); });
    { const ScopedMutexLock<RecursiveProcessMutex> inner(mutex); }
    EXPECT_TRUE(other.fallsAsleep());
    outer.reset();
    EXPECT_TRUE(other.finishes());
}

TEST(ScopedMutexLock, IsAPrivateNonCopyableWithOneField) {
    using Guard = ScopedMutexLock<ProcessMutex>;
    EXPECT_TRUE((std::is_base_of_v<NonCopyable, Guard>));
    EXPECT_FALSE((std::is_convertible_v<Guard*, NonCopyable*>));
    EXPECT_FALSE(std::is_copy_constructible_v<Guard>);
    EXPECT_FALSE((std::is_convertible_v<ProcessMutex&, Guard>));
    EXPECT_EQ(sizeof(Guard), sizeof(NonCopyable) + sizeof(void*));
}
