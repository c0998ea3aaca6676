#pragma once

#include "common/threads/ThreadHandle.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>

#include <atomic>

namespace ZNORBTEST {

/// Runs a monitor on a thread of its own, to its end.
template <typename Monitor>
void runOnThread() {
    class ObservedMonitor : public Monitor {
    public:
        void finish() override {
            Monitor::finish();
            isFinished = true;
        }

        std::atomic<bool> isFinished = false;
    };
    ObservedMonitor monitor;
    ORBCOMMON::ThreadHandle handle;
    ASSERT_EQ(ORBCOMMON::start(handle, &monitor), 0);
    EXPECT_TRUE(waitUntil([&monitor]() { return monitor.isFinished.load(); }));
    ORBCOMMON::join(handle);
}

} // namespace ZNORBTEST
