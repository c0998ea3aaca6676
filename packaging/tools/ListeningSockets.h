#pragma once

#include "packaging/tools/ProcFiles.h"

#include <sys/types.h>

#include <string>
#include <vector>

/// Who listens at a path.
namespace ZNORBTOOLS {

/// The sockets that listen at the path in the process's network namespace, as links in /proc name them, such
/// as "socket:[123]". Others may have made up some of them: the name of a socket may hold line ends, and
/// behind them what looks like another socket's line.
std::vector<std::string> listeningSockets(const std::string& process, const std::string& path, Doubt& doubt);

/// True when one of the process's descriptors is one of these sockets, listens at the path and was made by
/// root. Where the socket cannot be looked at it is believed to.
bool holdsAny(pid_t process, const std::vector<std::string>& sockets, const std::string& path, Doubt& doubt);

} // namespace ZNORBTOOLS
