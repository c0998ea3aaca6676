#include "tests/support/ObservedThread.h"

#include "tests/support/Waiting.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace ZNORBTEST {

ObservedThread::~ObservedThread() {
    if (!finishes()) {
        ADD_FAILURE() << "a thread of the test does not end";
        std::abort();
    }
    m_thread.join();
}

bool ObservedThread::fallsAsleep() const {
    constexpr int sightings = 5; // in a row: a short wait on the way to the long one does not count
    int seen = 0;
    (void)waitUntil([&] {
        seen = sleepsNow() ? seen + 1 : 0;
        return seen == sightings || m_finished;
    });
    return seen == sightings && !m_finished;
}

bool ObservedThread::finishes() const {
    return waitUntil([this] { return m_finished.load(); });
}

long ObservedThread::timesAsleep() const {
    const std::string label = "voluntary_ctxt_switches:";
    std::ifstream file("/proc/self/task/" + std::to_string(m_id) + "/status");
    std::string line;
    while (std::getline(file, line)) {
        if (line.starts_with(label)) {
            return std::stol(line.substr(label.size()));
        }
    }
    return -1;
}

pid_t ObservedThread::currentThreadId() {
    return gettid();
}

bool ObservedThread::sleepsNow() const {
    std::ifstream file("/proc/self/task/" + std::to_string(m_id) + "/stat");
    std::string line;
    std::getline(file, line);
    const std::size_t nameEnd = line.rfind(')');
    return nameEnd != std::string::npos && line.compare(nameEnd, 3, ") S") == 0;
}

} // namespace ZNORBTEST
