#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace ZNORBFAULTS {

/// What a life showed to the outside: questions and their answers, all texts.
using Observation = std::map<std::string, std::string>;

/// What differs from a life without a fault, in words; "as ever" when nothing does.
std::string difference(const Observation& usual, const Observation& seen);

/// How a process ended, as its parent is told.
std::string describeEnd(int waitStatus);

/// "0 /dev/null, 3 socket" and so on.
std::string descriptorsOf(pid_t pid);

std::string octal(mode_t mode);

/// "/dev/shm/sem.aB3xYz" is another in every life. Where the daemon shares the machine's names with others,
/// only those that may be its own.
std::vector<std::string> withoutChance(const std::vector<std::string>& names);

} // namespace ZNORBFAULTS
