#pragma once

#include "packaging/tools/ProcFiles.h"

#include <sys/types.h>

#include <string>
#include <vector>

/// What /proc tells about running responders. Names and files that the daemon leaves in the file system prove
/// nothing about it: its socket file is never removed, and its lock outlives a SIGKILL.
///
/// Needs root. What is found belongs to root, as every responder does: other users cannot stand in the way.
namespace ZNORBTOOLS {

/// Where the responder is installed, seen from this program: <prefix>/sbin/<this program> and
/// <prefix>/usr/sbin/<this program> belong to <prefix>/opt/zn/znorb/bin/znorbresponder.
std::string installedResponder();

/// True when the process runs the executable, or ran it before an upgrade or a removal took its file away.
/// False when the process has ended, a zombie included; when it has a /dev/shm of its own, since the
/// responder of a container has nothing to do with ours; and for `-stop`, which only visits.
bool runsResponder(pid_t process, const std::string& executable, Doubt& doubt);

/// False when the process has ended, a zombie included.
bool runsAnything(pid_t process);

/// Every process for which runsResponder() is true, in no order; test mode and clients that could not be
/// executed included.
std::vector<pid_t> findResponders(const std::string& executable, Doubt& doubt);

/// Every other process that has the file mapped, `-stop` excepted; for responders that were started from
/// elsewhere.
std::vector<pid_t> findUsers(const std::string& path, Doubt& doubt);

/// True when the process has a socket that listens at the path.
bool listensAt(pid_t process, const std::string& path, Doubt& doubt);

/// Every other process that listens at the path and shares our /dev/shm, as far as it is in our network
/// namespace.
std::vector<pid_t> findListeners(const std::string& path, Doubt& doubt);

} // namespace ZNORBTOOLS
