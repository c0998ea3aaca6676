#pragma once

#include "common/processes/ProcessEvent.h"

#include <pthread.h>

#include <cstdint>
#include <cstring>
#include <ctime>

namespace ZNORBTEST {

/// What an event and its block look like in memory. The tests use it to look at the flags and to act as
/// another user of the mutex and the condition.
struct BlockView {
    std::uint8_t destroyed;
    std::uint8_t signalled;
    std::uint8_t shared;
    pthread_mutex_t mutex;
    pthread_cond_t condition;
};

struct EventView {
    BlockView* block;
    bool owner;
};

static_assert(sizeof(EventView) == sizeof(ORBCOMMON::ProcessEvent));

inline EventView viewOf(const ORBCOMMON::ProcessEvent& event) {
    EventView view{};
    std::memcpy(&view, static_cast<const void*>(&event), sizeof(view));
    return view;
}

inline std::time_t inSeconds(int seconds) {
    return std::time(nullptr) + seconds;
}

} // namespace ZNORBTEST
