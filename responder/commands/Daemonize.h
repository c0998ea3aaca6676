#pragma once

namespace ZNORBRESPONDER {

/// Sends the process to the background by a double fork. True in the invoking process, which must not go
/// on as the daemon; false in the daemon, whose standard descriptors are then "/dev/null", descriptors 3
/// to 255 closed, those above closed in the programs that it executes, and umask 0. The working directory
/// stays.
///
/// The daemon ignores SIGTTOU, SIGTTIN, SIGTSTP and SIGHUP, the invoking process the first three of them;
/// with `ignoreChildren` the daemon ignores SIGCHLD as well.
///
/// A process whose parent is already process 1 does not fork: it goes on as the daemon itself. So does one
/// whose forks fail; failures are not reported.
bool daemonize(bool ignoreChildren);

} // namespace ZNORBRESPONDER
