#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <string>

namespace ZNORBTEST {

/// A system call at whose start or end a traced thread is stopped.
struct StoppedCall {
    bool isStart = false;
    long number = -1;                         ///< only at its start
    std::array<std::uint64_t, 6> arguments{}; ///< only at its start
    long result = 0;                          ///< only at its end; minus the error number for a failure
};

/// Whether this machine's registers are known here.
bool canChangeCalls();

/// What the thread is stopped at; false when it is not, or is gone.
bool readStoppedCall(pid_t thread, StoppedCall& call);

/// At its start: the kernel will not make the call.
void skipCall(pid_t thread);

/// At its start: replaces an argument.
void setArgument(pid_t thread, unsigned index, std::uint64_t value);

/// At its end: replaces the result.
void setResult(pid_t thread, long value);

/// The text at an address of the thread's process, up to its zero byte and 255 bytes at most.
std::string readText(pid_t thread, std::uint64_t address);

/// The path that a thread is about to unlink; empty at any other stop.
std::string unlinkedBy(pid_t thread, const StoppedCall& call);

/// The 8 bytes at an address of the thread's process; 0 when they cannot be read.
std::uint64_t readWord(pid_t thread, std::uint64_t address);

} // namespace ZNORBTEST
