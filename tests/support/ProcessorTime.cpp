#include "tests/support/ProcessorTime.h"

#include "tests/support/Files.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <string>
#include <thread>

namespace ZNORBTEST {
namespace {

using std::chrono::nanoseconds;

nanoseconds oneTick() {
    return nanoseconds(std::chrono::seconds(1)) / std::max(sysconf(_SC_CLK_TCK), 1L);
}

/// From a line of "stat": user and system time are its 14th and 15th field, the 12th and 13th behind the
/// name.
nanoseconds ticksIn(const std::string& stat) {
    unsigned long user = 0;
    unsigned long system = 0;
    const std::size_t end = stat.rfind(')');
    if (end != std::string::npos) {
        (void)std::sscanf(stat.c_str() + end + 1, "%*s %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu",
                          &user, &system);
    }
    return oneTick() * static_cast<long>(user + system);
}

/// Of all threads of the process, in nanoseconds; 0 where the kernel keeps no such count.
nanoseconds exactTimeOf(const std::string& process) {
    nanoseconds sum(0);
    for (const std::string& thread : namesIn(process + "/task")) {
        const std::string count = readFileIfAny(process + "/task/" + thread + "/schedstat");
        sum += nanoseconds(std::strtoll(count.c_str(), nullptr, 10));
    }
    return sum;
}

nanoseconds timeOf(const std::string& process, bool isExact) {
    return isExact ? exactTimeOf(process) : ticksIn(readFileIfAny(process + "/stat"));
}

} // namespace

nanoseconds processorTimeOn(clockid_t clock) {
    timespec used = {};
    (void)clock_gettime(clock, &used);
    return std::chrono::seconds(used.tv_sec) + nanoseconds(used.tv_nsec);
}

bool ProcessorUse::isWaiting() const {
    return used <= std::max(watched / 100, 2 * unit);
}

std::ostream& operator<<(std::ostream& stream, const ProcessorUse& use) {
    return stream << use.used.count() << " ns of processor time in " << use.watched.count() << " ns";
}

ProcessorUse watchProcessor(pid_t pid, Milliseconds stretch) {
    const std::string process = "/proc/" + std::to_string(pid);
    const bool isExact = exactTimeOf(process).count() > 0;
    const auto begin = std::chrono::steady_clock::now();
    const nanoseconds before = timeOf(process, isExact);
    std::this_thread::sleep_for(stretch);
    const nanoseconds used = timeOf(process, isExact) - before;
    return {used, std::chrono::steady_clock::now() - begin, isExact ? nanoseconds(1) : oneTick()};
}

} // namespace ZNORBTEST
