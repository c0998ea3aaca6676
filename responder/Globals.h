#pragma once

#include "common/processes/GlobalLock.h"
#include "common/processes/ProcessEvent.h"
#include "foundation/containers/Map.h"
#include "foundation/containers/Set.h"
#include "responder/CommandTables.h"
#include "responder/idle/ConfigurationMonitor.h"
#include "responder/idle/WBXResponderMonitor.h"

#include <array>
#include <string>
#include <vector>

/// Every global that several files of the daemon share. They are constructed before `main` in this order and
/// destroyed at exit in the reverse order. All belong to the main thread, except where a line says otherwise.
namespace ZNORBRESPONDER {

/// Kept as a constant of the console's protocol on other platforms; nothing reads it here.
extern const std::string pipeName;

/// What the last `parseCommandLine` found: the commands in the order given, each command's row in the
/// command table, and the names of the flags and value options that were given.
extern std::vector<std::string> parsedCommandList;
extern Common::map<std::string, unsigned> parsedCommandMap;
extern Common::set<std::string> parsedOptionSet;

extern const std::array<FlagRow, 3> flagTable;
extern const std::array<CommandRow, 4> commandTable;

/// Set by the unified responder's thread at the end of its run, or by main when there is none; main waits on
/// it.
extern ORBCOMMON::ProcessEvent mainExitBarrier;

/// Set by the daemon when it is ready; the invoking process waits on it. Shared between both processes.
extern ORBCOMMON::ProcessEvent ORBFrontProcessBarrier;

/// Marks the running instance. Also read by the SIGTERM handler (TerminationSignal.h).
extern ORBCOMMON::GlobalLock appLock;

/// Kept idle: constructed and destroyed, but nothing starts a thread on them.
extern ConfigurationMonitor gConfigMon;
extern WBXResponderMonitor gResponderMonitor;

/// Set by the flags of the same names; accepted and recorded, read by nothing else.
extern bool enableFlag;
extern bool disableFlag;
extern bool silentFlag;

/// Set by `-test` before its responder thread starts; read by the client launcher on that thread.
extern bool gIsTestMode;

} // namespace ZNORBRESPONDER
