#pragma once

#include <semaphore.h>

#include <string>

/// Routines over POSIX named semaphores, which work between processes and outlive them. A name is made
/// absolute by putting "/" in front of it unless it begins with one. Semaphores are created with count 0 and
/// mode 0644 less the umask. No routine throws; without memory each behaves as for a name that the system
/// refuses.
namespace Common::Synchronization {

/// True when a semaphore of the name existed. When it did not, it does afterwards: the check creates it.
/// False also when the system refuses the name. Every check, and so every other routine here, keeps the
/// handle that it opened until the process ends.
bool semaphoreExists(const std::string& name);

/// Opens the semaphore, creating it when it is missing; `existed` is semaphoreExists' answer. Returns a
/// handle that the caller closes with sem_close, or SEM_FAILED with errno set.
sem_t* openOrCreateSemaphore(const std::string& name, bool& existed);

/// Unlinks the name, so that the next to open it makes a new semaphore. Counts as success, whatever
/// happens: always true.
bool removeSemaphore(const std::string& name);

/// Adds one to the count. False when the semaphore could not be opened or its count is at its highest.
bool postSemaphore(const std::string& name);

/// Waits, through signals, until it can take one from the count. False, at once, when the semaphore could
/// not be opened.
bool waitSemaphore(const std::string& name);

/// Takes the count down to 0, then waits for one more post and takes that too. False, at once, when the
/// semaphore could not be opened.
bool drainSemaphore(const std::string& name);

} // namespace Common::Synchronization
