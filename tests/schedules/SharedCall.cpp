#include "tests/schedules/SharedCall.h"

#include "tests/tracing/CallNames.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/syscall.h>

#include <algorithm>
#include <iterator>

namespace ZNORBSCHEDULES {
namespace {

using ZNORBTEST::StoppedCall;

/// A call that names a file, and in which argument.
struct PathCall {
    long number;
    unsigned argument;
    bool isRemoval;
};

constexpr PathCall pathCalls[] = {
    {SYS_openat, 1, false}, {SYS_newfstatat, 1, false}, {SYS_linkat, 3, false}, {SYS_unlinkat, 1, true},
#ifdef SYS_unlink
    {SYS_unlink, 0, true},  {SYS_link, 1, false},
#endif
};

/// A call that is a boundary whatever it is given.
struct PlainCall {
    long number;
    Access access;
};

constexpr Access onSocket = {Socket, Socket};

constexpr PlainCall plainCalls[] = {
    {SYS_accept4, onSocket},
    {SYS_bind, onSocket},
    {SYS_listen, onSocket},
    {SYS_connect, onSocket},
    {SYS_sendto, onSocket},
    {SYS_recvfrom, {Socket | Table, Socket}}, // a request is served with what the table says
    {SYS_shutdown, onSocket},
    {SYS_execve, {0, Processes}},
    {SYS_exit_group, {0, Socket | Processes}},
    {SYS_kill, {everything, everything}},
    {SYS_process_vm_readv, {Lock, 0}}, // of the lock's count, which is looked at behind it
    {SYS_futex, {}},
    {SYS_clock_nanosleep, {}},
};

/// The waiting ones that look at several things at once have their objects from the call that follows.
constexpr long waitingCalls[] = {
    SYS_futex,  SYS_pselect6, SYS_accept4, SYS_recvfrom, SYS_connect, SYS_flock, SYS_wait4, SYS_ppoll,
#ifdef SYS_select
    SYS_select, SYS_pause,    SYS_poll,
#endif
};

/// The daemon's names, and for znorb-clean the processes; "" for all others.
std::string objectNamed(const std::string& path) {
    const bool isProcess = path.starts_with("/proc/") && path.find_first_of("0123456789") == 6;
    const bool isLookedAt = path.ends_with("/maps") || path.ends_with("/status");
    return path.ends_with("/sem.znorb.appLock")                                       ? "lock"
           : path.ends_with("/znorb.shvars")                                          ? "table"
           : path.ends_with("/znorb.socket")                                          ? "socket"
           : path == "/proc" || path == "/proc/net/unix" || (isProcess && isLookedAt) ? "processes"
                                                                                      : "";
}

Access accessTo(const std::string& name, bool isChange) {
    const unsigned object = name == "lock"     ? Lock
                            : name == "table"  ? Table
                            : name == "socket" ? Socket
                                               : everything;
    return {object, isChange ? object : 0};
}

bool isChange(const PathCall& row, const StoppedCall& call) {
    return row.number == SYS_openat ? (call.arguments[2] & O_CREAT) != 0 : row.number != SYS_newfstatat;
}

bool isThreadsBirth(pid_t thread, const StoppedCall& call) {
    const std::uint64_t flags =
        call.number == SYS_clone3 ? ZNORBTEST::readWord(thread, call.arguments[0]) : call.arguments[0];
    return (flags & CLONE_THREAD) != 0;
}

} // namespace

SharedCall examine(pid_t thread, const StoppedCall& call) {
    SharedCall result = {.place = ZNORBTRACING::callName(call.number)};
    const auto* const path = std::find_if(std::begin(pathCalls), std::end(pathCalls),
                                          [&](const PathCall& row) { return row.number == call.number; });
    if (path != std::end(pathCalls)) {
        const std::string name = objectNamed(ZNORBTEST::readText(thread, call.arguments[path->argument]));
        result.place += " " + name;
        result.isBoundaryBehind = name == "lock" && path->isRemoval; // its count is let go without a call
        result.access = name.empty() ? Access() : accessTo(name, isChange(*path, call));
    }
    const auto* const plain = std::find_if(std::begin(plainCalls), std::end(plainCalls),
                                           [&](const PlainCall& row) { return row.number == call.number; });
    if (plain != std::end(plainCalls)) {
        result.access = plain->access;
        result.isFamilyAffair = plain->access.isNone();
    }
    if (call.number == SYS_clone || call.number == SYS_clone3) {
        result.isFamilyAffair = isThreadsBirth(thread, call);
        result.access = {0, result.isFamilyAffair ? 0U : Processes};
    }
    return result;
}

bool canWaitIn(long call) {
    return std::find(std::begin(waitingCalls), std::end(waitingCalls), call) != std::end(waitingCalls);
}

} // namespace ZNORBSCHEDULES
