#include "tests/schedules/SharedCall.h"

#include "tests/tracing/CallNames.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cstdlib>
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

const Objects everything = {lockName,   lockCount,      sharedTable, listener,
                            queuesHead, allConnections, processList, pendingSignals};

const PlainCall plainCalls[] = {
    {SYS_pselect6, {{ownConnection}, {}}},
#ifdef SYS_select
    {SYS_select, {{ownConnection}, {}}},
#endif
    {SYS_accept4, {{}, {nextInQueue}}},
    {SYS_bind, {{}, {listener, processList}}},
    {SYS_listen, {{}, {listener, processList}}},
    {SYS_connect, {{}, {ownConnection}}},
    {SYS_sendto, {{}, {ownConnection}}},
    {SYS_recvfrom, {{}, {ownConnection, sharedTable}}}, // which tells what to serve
    {SYS_shutdown, {{}, {ownConnection}}},
    {SYS_execve, {{}, {processList}}},
    {SYS_exit_group, {{}, {processList}}},
    {SYS_kill, {{}, everything}},
    {SYS_process_vm_readv, {{lockCount}, {}}}, // which is looked at behind it
    {SYS_futex, {}},
    {SYS_clock_nanosleep, {{}, {sleepersClock}}},
};

constexpr long waitingCalls[] = {
    SYS_futex,  SYS_pselect6, SYS_accept4, SYS_recvfrom, SYS_connect, SYS_flock, SYS_wait4, SYS_ppoll,
#ifdef SYS_select
    SYS_select, SYS_pause,    SYS_poll,
#endif
};

bool isSelect(long call) {
#ifdef SYS_select
    return call == SYS_pselect6 || call == SYS_select;
#else
    return call == SYS_pselect6;
#endif
}

/// The daemon's names, and for znorb-clean the processes; "" for all others.
std::string objectNamed(const std::string& path) {
    const bool isProcess = path.starts_with("/proc/") && path.find_first_of("0123456789") == 6;
    const bool isLookedAt = path.ends_with("/maps") || path.ends_with("/status");
    return path.ends_with("/sem.znorb.appLock")                                       ? lockName
           : path.ends_with("/znorb.shvars")                                          ? sharedTable
           : path.ends_with("/znorb.socket")                                          ? listener
           : path == "/proc" || path == "/proc/net/unix" || (isProcess && isLookedAt) ? processList
                                                                                      : "";
}

/// Who looks at the processes looks at what they have open and mapped, too.
Access accessTo(const std::string& name, bool isChange) {
    if (name == processList) {
        return {everything, {}};
    }
    if (name.empty()) {
        return {};
    }
    return isChange ? Access{{}, {name}} : Access{{name}, {}};
}

/// A client writes into the table that it opens.
bool isChange(const PathCall& row, const StoppedCall& call, const std::string& name) {
    const std::uint64_t changing = O_CREAT | (name == sharedTable ? O_WRONLY | O_RDWR : 0);
    return row.number == SYS_openat ? (call.arguments[2] & changing) != 0 : row.number != SYS_newfstatat;
}

/// Whoever waits with select() does so for one descriptor, the highest.
int awaitedBy(const StoppedCall& call) {
    const int first = static_cast<int>(call.arguments[0]);
    return isSelect(call.number)                                       ? first - 1
           : call.number == SYS_accept4 || call.number == SYS_recvfrom ? first
                                                                       : -1;
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
        const std::string file = ZNORBTEST::readText(thread, call.arguments[path->argument]);
        const std::string name = objectNamed(file);
        result.lookedAt = file.starts_with("/proc/") ? std::atoi(file.c_str() + 6) : 0;
        result.place += " " + name;
        result.isBoundaryBehind = name == lockName && path->isRemoval; // its count is let go without a call
        result.access = accessTo(name, isChange(*path, call, name));
        if (call.number == SYS_openat && !name.empty() && name != processList) {
            (void)result.access.writes.insert(processList); // of whom znorb-clean looks what they have mapped
        }
        result.behind.writes = result.isBoundaryBehind ? Objects{lockCount} : Objects();
    }
    const auto* const plain = std::find_if(std::begin(plainCalls), std::end(plainCalls),
                                           [&](const PlainCall& row) { return row.number == call.number; });
    if (plain != std::end(plainCalls)) {
        result.access = plain->access;
        result.isMemorysAffair = call.number == SYS_futex;
    }
    result.awaited = awaitedBy(call);
    if (call.number == SYS_clone || call.number == SYS_clone3) {
        result.isMemorysAffair = isThreadsBirth(thread, call);
        result.access = result.isMemorysAffair ? Access() : Access{{}, {processList}};
    }
    return result;
}

bool canWaitIn(long call) {
    return std::find(std::begin(waitingCalls), std::end(waitingCalls), call) != std::end(waitingCalls);
}

} // namespace ZNORBSCHEDULES
