#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// Starting an external program.
namespace ORBCOMMON {

/// From now on runProcess() forks without taking the C library's locks of memory and streams, and touches
/// half as many pages. There is no way back.
///
/// REQUIRES that from now on only the thread that calls runProcess() allocates or uses streams of the C
/// library. A failed execution leaves a copy of that thread alone: a lock that another thread held at the
/// fork would stay held there for ever.
void forkWithoutLocks();

/// Starts `program` with `arguments` in a process of its own, with `wait` blocking until it has ended; its
/// exit status is discarded.
///
/// With an empty `workingDirectory` the program is searched as the shell would. Otherwise the child changes
/// into that directory and executes workingDirectory + "/" + program. A directory that cannot be entered is
/// ignored: the execution, whose path leads through it, fails then too. A relative directory is applied
/// twice, once by the change and once in the path, so callers pass an absolute one.
///
/// Returns the child's process id. Returns -1 when memory for the arguments ran out, and then nothing was
/// forked or waited for. Returns -1, too, when the fork failed; `wait` then waits for any child of the
/// caller.
///
/// Returns 0 IN THE CHILD when the program could not be executed. The child is kept alive on purpose: a
/// second copy of the caller carries on from the call, and only the 0 tells it that it is the copy.
///
/// The program inherits the caller's signal mask, its ignored signals and every descriptor that is not
/// close-on-exec. Never throws.
[[nodiscard]] pid_t runProcess(const std::string& program, const std::string& workingDirectory,
                               const std::vector<std::string>& arguments, bool wait);

} // namespace ORBCOMMON
