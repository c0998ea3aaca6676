#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

/// What /proc tells about processes.
namespace ZNORBTEST {

/// The living processes and zombies whose parent is `parent`.
std::vector<pid_t> childrenOf(pid_t parent);

/// The path of the program that the process runs, with " (deleted)" behind it if the file is gone; empty
/// for a zombie and for no process. Of valgrind or an emulator, the program that it runs.
std::string programOf(pid_t pid);

/// The process' name, at most 15 characters; empty when there is no such process. Zombies keep theirs.
std::string nameOf(pid_t pid);

/// What the process or thread does: 'S' for one that waits, 't' for one that a tracer has stopped; ' ' when
/// it is gone.
char stateOf(pid_t pid);

/// The value of a field in the process' status, such as "SigIgn"; nullopt when there is none.
std::optional<std::string> statusField(pid_t pid, const std::string& field);

/// Where a link in the process' folder leads, such as "cwd" or "fd/0"; empty when there is none.
std::string linkOf(pid_t pid, const std::string& name);

/// All processes that run this very program file.
std::vector<pid_t> processesRunning(const std::string& program);

} // namespace ZNORBTEST
