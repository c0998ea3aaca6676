#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace ZNORBTEST {

/// How a stand-in for the client program was started.
struct ClientStart {
    std::vector<std::string> words; ///< the argument vector, the program's own name first
    std::string directory;          ///< its working directory
    std::vector<int> descriptors;   ///< the open ones
    std::string table;              ///< the bytes of the shared table at that moment; empty without one
};

/// Puts a stand-in for the client program into the directory: this very test program, which, when it is
/// started under the client's name, writes down how, before main, and ends with status 0.
void installStandInClient(const std::string& directory);

/// Lets clients that are started from the directory wait, after they have written down how they were
/// started, until the test opens the gate. REQUIRES: once per installed stand-in.
void closeGate(const std::string& directory);

/// Releases one client that waits at the gate, or will. False when none comes within the usual bound.
bool openGate(const std::string& directory);

/// Waits until the process, a stand-in that was started from the directory, has written down how.
/// False when it does not within the usual bound.
bool waitForStart(const std::string& directory, pid_t process);

/// REQUIRES: the process has written down how it was started.
ClientStart startOf(const std::string& directory, pid_t process);

/// The processes that were started from the directory, ascending.
std::vector<pid_t> startedFrom(const std::string& directory);

} // namespace ZNORBTEST
