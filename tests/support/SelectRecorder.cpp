#include "tests/support/SelectRecorder.h"

#include "tests/support/Matchers.h"
#include "tests/support/Waiting.h"

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace ZNORBTEST {
namespace {

constexpr int missingDescriptor = -1; // as a failure: not an error of the system's

struct State {
    long divisor = 1;
    int error = 0;
    unsigned failures = 0;
    unsigned skipped = 0;
    std::vector<SelectRecorder::Call> calls;
};

/// Of the recorder that lives; static, as a thread may still wait when it goes.
State s_state;
std::mutex s_mutex;
std::condition_variable s_called;

void script(int error, unsigned times, unsigned skipped) {
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_state.error = error;
    s_state.failures = times;
    s_state.skipped = skipped;
}

std::vector<int> members(int highestPlusOne, const fd_set* set) {
    std::vector<int> result;
    for (int descriptor = 0; set != nullptr && descriptor < highestPlusOne; ++descriptor) {
        if (FD_ISSET(descriptor, set)) {
            result.push_back(descriptor);
        }
    }
    return result;
}

/// Notes the call; returns with what it is to fail, or 0, and by how much its wait is to be divided.
std::pair<int, long> record(const SelectRecorder::Call& call) {
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_state.calls.push_back(call);
    s_called.notify_all();
    if (s_state.failures == 0 || s_state.skipped > 0) {
        s_state.skipped -= s_state.skipped > 0 ? 1 : 0;
        return {0, s_state.divisor};
    }
    --s_state.failures;
    return {s_state.error, s_state.divisor};
}

void divide(timeval& timeout, long divisor) {
    const auto microseconds = (timeout.tv_sec * 1'000'000 + timeout.tv_usec) / divisor;
    timeout = {microseconds / 1'000'000, microseconds % 1'000'000};
}

int recordAndSelect(int highestPlusOne, fd_set* reading, fd_set* writing, fd_set* exceptional,
                    timeval* timeout) {
    const auto [error, divisor] = record(
        {highestPlusOne, members(highestPlusOne, reading), writing == nullptr && exceptional == nullptr,
         timeout != nullptr ? timeout->tv_sec : -1, timeout != nullptr ? timeout->tv_usec : 0});
    if (error == 0) {
        if (timeout != nullptr) {
            divide(*timeout, divisor);
        }
        return ::select(highestPlusOne, reading, writing, exceptional, timeout);
    }
    for (fd_set* const set : {reading, writing, exceptional}) {
        if (set != nullptr) {
            FD_ZERO(set);
        }
    }
    if (error == missingDescriptor) {
        return 1;
    }
    errno = error;
    return -1;
}

} // namespace

SelectRecorder::SelectRecorder() : m_waits(recordAndSelect) {
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_state = State();
}

void SelectRecorder::divideWaitsBy(long divisor) {
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_state.divisor = divisor;
}

void SelectRecorder::fail(int error, unsigned times, unsigned skipped) {
    script(error, times, skipped);
}

void SelectRecorder::returnOneWithoutDescriptor() {
    script(missingDescriptor, 1, 0);
}

std::vector<SelectRecorder::Call> SelectRecorder::calls() {
    const std::lock_guard<std::mutex> lock(s_mutex);
    return s_state.calls;
}

bool SelectRecorder::awaitCalls(std::size_t count) {
    std::unique_lock<std::mutex> lock(s_mutex);
    return s_called.wait_for(lock, usualBound, [count]() { return s_state.calls.size() >= count; });
}

testing::Matcher<const SelectRecorder::Call&> isWaitFor(int descriptor, long seconds) {
    using Call = SelectRecorder::Call;
    return AllOf(Field("reading", &Call::reading, ElementsAre(descriptor)),
                 Field("highestPlusOne", &Call::highestPlusOne, descriptor + 1),
                 Field("onlyReading", &Call::onlyReading, true), Field("seconds", &Call::seconds, seconds),
                 Field("microseconds", &Call::microseconds, 0));
}

} // namespace ZNORBTEST
