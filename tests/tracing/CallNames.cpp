#include "tests/tracing/CallNames.h"

#include "tests/tracing/SystemCalls.h"

#include <sys/syscall.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace ZNORBTRACING {
namespace {

/// Those that the faults leave out.
constexpr std::pair<long, const char*> otherNames[] = {
    {SYS_exit, "exit"},
    {SYS_exit_group, "exit_group"},
    {SYS_flock, "flock"},
    {SYS_futex, "futex"},
    {SYS_getdents64, "getdents64"},
    {SYS_geteuid, "geteuid"},
    {SYS_getpid, "getpid"},
    {SYS_getppid, "getppid"},
    {SYS_getrandom, "getrandom"},
    {SYS_gettid, "gettid"},
    {SYS_kill, "kill"},
    {SYS_rt_sigreturn, "rt_sigreturn"},
    {SYS_set_tid_address, "set_tid_address"},
    {SYS_umask, "umask"},
#ifdef SYS_arch_prctl
    {SYS_arch_prctl, "arch_prctl"},
    {SYS_lstat, "lstat"},
    {SYS_pause, "pause"},
#endif
};

} // namespace

std::string callName(long number) {
    const SystemCall* known = findSystemCall(number);
    if (known != nullptr) {
        return known->name;
    }
    const auto* const other = std::find_if(std::begin(otherNames), std::end(otherNames),
                                           [number](const auto& entry) { return entry.first == number; });
    return other != std::end(otherNames) ? other->second : "call " + std::to_string(number);
}

} // namespace ZNORBTRACING
