#pragma once

#include "responder/table/SharedVariables.h"

#include <sys/types.h>

#include <cstdint>
#include <string>

/// Starting instances of the client program. Called on the unified responder's thread only, one request
/// at a time. The clients are never waited for: SIGCHLD is ignored while requests are served.
namespace ZNORBRESPONDER {

/// What stands for a process that was not started.
inline constexpr pid_t noProcess = -1;

/// Claims an entry of the table, stores its number into `index` and launches a client for it. Returns
/// what `launchClient` returns; `noProcess`, with `index` and table untouched and nothing launched, when
/// the table is full. The table is not owned and must not be null.
pid_t startClient(SharedVariables* table, std::uint16_t& index, const std::string& language,
                  const std::string& timeout);

/// Starts the client program of the executable's directory for the entry, with the language passed on
/// even when it is empty and the time-out only when it is not. Returns the new process's id, -1 when
/// nothing could be started, and 0 in the child when the program cannot be executed: the child then goes
/// on as a second daemon from here. Logs the id in each case.
pid_t launchClient(std::uint16_t index, const std::string& language, const std::string& timeout);

} // namespace ZNORBRESPONDER
