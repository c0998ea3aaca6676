#include "common/threads/SignalMask.h"

#include "tests/support/ForkedChild.h"
#include "tests/support/SignalMask.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <thread>

namespace {

using namespace ORBCOMMON;
using namespace ZNORBTEST;

constexpr int delivered = 10;
constexpr int survived = 77;

/// In a process of its own: from here on SIGTERM ends it with `delivered`.
void endOnTermination() {
    (void)std::signal(SIGTERM, [](int) { _exit(delivered); });
}

TEST(SignalMask, HoldingReturnsTheMaskThatWasInForce) {
    ASSERT_FALSE(isHeldBack(currentMask()));
    const sigset_t first = holdTermination();
    const sigset_t second = holdTermination();
    EXPECT_TRUE(isHeldBack(currentMask()));
    EXPECT_FALSE(isHeldBack(first));
    EXPECT_TRUE(isHeldBack(second));
    restoreSignalMask(first);
    EXPECT_FALSE(isHeldBack(currentMask()));
}

TEST(SignalMask, HoldingAddsToTheMaskAndRestoringBringsItBack) {
    sigset_t user;
    (void)sigemptyset(&user);
    (void)sigaddset(&user, SIGUSR1);
    sigset_t original;
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &user, &original), 0);
    const sigset_t before = holdTermination();
    const sigset_t held = currentMask();
    EXPECT_EQ(sigismember(&held, SIGUSR1), 1);
    EXPECT_TRUE(isHeldBack(held));
    restoreSignalMask(before);
    const sigset_t after = currentMask();
    EXPECT_EQ(sigismember(&after, SIGUSR1), 1);
    EXPECT_FALSE(isHeldBack(after));
    restoreSignalMask(original);
}

/// Leaves nothing but ones on the stack below the caller.
[[gnu::noinline]] void soilStack() {
    volatile unsigned char bytes[4096];
    for (volatile unsigned char& byte : bytes) {
        byte = 0xff;
    }
}

TEST(SignalMask, HoldingAddsNothingButTermination) {
    const sigset_t original = currentMask();
    soilStack();
    const sigset_t before = holdTermination();
    const sigset_t held = currentMask();
    restoreSignalMask(before);
    for (int number = 1; number < 32; ++number) {
        EXPECT_EQ(sigismember(&held, number) == 1, number == SIGTERM || sigismember(&original, number) == 1)
            << number;
    }
}

TEST(SignalMask, HeldSignalIsDeliveredWhenTheMaskIsRestoredAndNotBefore) {
    const SharedReport<std::atomic<bool>> wasHeld;
    expectEndOfForked(exitedWith(delivered), [&wasHeld]() {
        endOnTermination();
        const sigset_t mask = holdTermination();
        (void)raise(SIGTERM);
        *wasHeld = true;
        restoreSignalMask(mask);
        return survived;
    });
    EXPECT_TRUE(*wasHeld);
}

TEST(SignalMask, ThreadAndProcessThatAreMadeMeanwhileHoldItBackToo) {
    const sigset_t before = holdTermination();
    EXPECT_TRUE(holdsInForked([]() { return isHeldBack(currentMask()); }));
    bool isHeldOnThread = false;
    std::thread([&isHeldOnThread]() { isHeldOnThread = isHeldBack(currentMask()); }).join();
    EXPECT_TRUE(isHeldOnThread);
    restoreSignalMask(before);
}

TEST(SignalMask, OtherThreadsGoOnTakingIt) {
    std::atomic<bool> isHeld = false;
    std::atomic<bool> isHeldElsewhere = true;
    std::thread other([&]() {
        isHeld.wait(false);
        isHeldElsewhere = isHeldBack(currentMask());
    });
    const sigset_t before = holdTermination();
    isHeld = true;
    isHeld.notify_all();
    other.join();
    EXPECT_FALSE(isHeldElsewhere);
    restoreSignalMask(before);
}

TEST(SignalMask, ClearedMaskHoldsNothingBackWhateverWasInherited) {
    EXPECT_TRUE(holdsInForked([]() {
        sigset_t all;
        (void)sigfillset(&all);
        (void)pthread_sigmask(SIG_SETMASK, &all, nullptr);
        clearSignalMask();
        const sigset_t mask = currentMask();
        int held = 0;
        for (int number = 1; number < 32; ++number) {
            held += sigismember(&mask, number);
        }
        return held == 0;
    }));
}

TEST(SignalMask, ClearingTheMaskDeliversWhatWasHeldBack) {
    expectEndOfForked(exitedWith(delivered), []() {
        endOnTermination();
        (void)holdTermination();
        (void)raise(SIGTERM);
        clearSignalMask();
        return survived;
    });
}

} // namespace
