#include "tests/support/SelectRecorder.h"

#include <sys/select.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>

namespace ZNORBTEST {
namespace {

constexpr long nanosecondsPerSecond = 1'000'000'000;
constexpr long nanosecondsPerMicrosecond = 1000;
constexpr int missingDescriptor = -1; // as a failure: not an error of the system's

struct State {
    std::mutex mutex;
    std::condition_variable called;
    bool isRecording = false;
    long divisor = 1;
    int error = 0;
    unsigned failures = 0;
    unsigned skipped = 0;
    std::vector<SelectRecorder::Call> calls;
};

/// Made by the first call, which may come before main, and never destroyed.
State& state() {
    static State* const instance = new State;
    return *instance;
}

void reset(State& current) {
    current.divisor = 1;
    current.error = 0;
    current.failures = 0;
    current.skipped = 0;
    current.calls.clear();
}

void script(int error, unsigned times, unsigned skipped) {
    State& current = state();
    const std::lock_guard<std::mutex> lock(current.mutex);
    current.error = error;
    current.failures = times;
    current.skipped = skipped;
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

/// What the recorder wants of one call.
struct Steering {
    int error = 0; ///< 0: wait
    long divisor = 1;
};

Steering record(const SelectRecorder::Call& call) {
    State& current = state();
    const std::lock_guard<std::mutex> lock(current.mutex);
    if (!current.isRecording) {
        return {};
    }
    current.calls.push_back(call);
    current.called.notify_all();
    if (current.failures == 0 || current.skipped > 0) {
        current.skipped -= current.skipped > 0 ? 1 : 0;
        return {0, current.divisor};
    }
    --current.failures;
    return {current.error, current.divisor};
}

/// The C library's `select`, but for the divided time-out. Like it, leaves the time that was not used.
int waitDivided(int highestPlusOne, fd_set* reading, fd_set* writing, fd_set* exceptional, timeval* timeout,
                long divisor) {
    if (timeout == nullptr) {
        return static_cast<int>(
            syscall(SYS_pselect6, highestPlusOne, reading, writing, exceptional, nullptr, nullptr));
    }
    timespec rest = {timeout->tv_sec / divisor, timeout->tv_sec % divisor * (nanosecondsPerSecond / divisor) +
                                                    timeout->tv_usec * nanosecondsPerMicrosecond / divisor};
    const long result = syscall(SYS_pselect6, highestPlusOne, reading, writing, exceptional, &rest, nullptr);
    *timeout = {rest.tv_sec, rest.tv_nsec / nanosecondsPerMicrosecond};
    return static_cast<int>(result);
}

void clear(fd_set* set) {
    if (set != nullptr) {
        FD_ZERO(set);
    }
}

} // namespace

SelectRecorder::SelectRecorder() {
    State& current = state();
    const std::lock_guard<std::mutex> lock(current.mutex);
    reset(current);
    current.isRecording = true;
}

SelectRecorder::~SelectRecorder() {
    State& current = state();
    const std::lock_guard<std::mutex> lock(current.mutex);
    reset(current);
    current.isRecording = false;
}

void SelectRecorder::divideWaitsBy(long divisor) {
    State& current = state();
    const std::lock_guard<std::mutex> lock(current.mutex);
    current.divisor = divisor;
}

void SelectRecorder::fail(int error, unsigned times, unsigned skipped) {
    script(error, times, skipped);
}

void SelectRecorder::returnOneWithoutDescriptor() {
    script(missingDescriptor, 1, 0);
}

std::vector<SelectRecorder::Call> SelectRecorder::calls() {
    State& current = state();
    const std::lock_guard<std::mutex> lock(current.mutex);
    return current.calls;
}

bool SelectRecorder::awaitCalls(std::size_t count) {
    State& current = state();
    std::unique_lock<std::mutex> lock(current.mutex);
    return current.called.wait_for(lock, std::chrono::seconds(30),
                                   [&current, count]() { return current.calls.size() >= count; });
}

} // namespace ZNORBTEST

extern "C" int select(int nfds, fd_set* readfds, fd_set* writefds, fd_set* exceptfds, timeval* timeout) {
    const ZNORBTEST::SelectRecorder::Call call = {
        nfds, ZNORBTEST::members(nfds, readfds), writefds == nullptr && exceptfds == nullptr,
        timeout != nullptr ? timeout->tv_sec : -1, timeout != nullptr ? timeout->tv_usec : 0};
    const ZNORBTEST::Steering steering = ZNORBTEST::record(call);
    if (steering.error == 0) {
        return ZNORBTEST::waitDivided(nfds, readfds, writefds, exceptfds, timeout, steering.divisor);
    }
    ZNORBTEST::clear(readfds);
    ZNORBTEST::clear(writefds);
    ZNORBTEST::clear(exceptfds);
    if (steering.error == ZNORBTEST::missingDescriptor) {
        return 1;
    }
    errno = steering.error;
    return -1;
}
