#pragma once

#include "common/threads/Threadable.h"
#include "tests/support/Waiting.h"

#include <atomic>

namespace ZNORBTEST {

/// Runs until it is let go.
class Gated : public ORBCOMMON::Threadable {
public:
    void run() override {
        (void)waitUntil([this] { return open.load(); });
        ++runs;
    }
    void finish() override { finished = true; }

    std::atomic<bool> open{false};
    std::atomic<bool> finished{false};
    std::atomic<int> runs{0};
};

} // namespace ZNORBTEST
