#pragma once

namespace ZNORBTEST {

// The daemon's names on a machine.
inline constexpr const char* socketPath = "/var/run/znorb.socket";
inline constexpr const char* tableFile = "/dev/shm/znorb.shvars";
inline constexpr const char* lockFile = "/dev/shm/sem.znorb.appLock";
inline constexpr const char* daemonLock = "/znorb.appLock"; ///< as sem_open() takes it

} // namespace ZNORBTEST
