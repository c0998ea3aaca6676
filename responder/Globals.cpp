#include "responder/Globals.h"

#include "responder/RuntimeNames.h"

#include <new>

namespace ZNORBRESPONDER {

namespace {

/// Empty without memory for it: before main there is nobody to catch an exception.
std::string newPipeName() noexcept {
    try {
        return R"(\\.\pipe\ZNORBWBXResponder)";
    } catch (const std::bad_alloc&) {
        return {};
    }
}

} // namespace

const std::string pipeName = newPipeName();

std::vector<std::string> parsedCommandList;
Common::map<std::string, unsigned> parsedCommandMap;
Common::set<std::string> parsedOptionSet;

const std::array<FlagRow, 3> flagTable = {{
    {"enable", &enableFlag},
    {"disable", &disableFlag},
    {"silent", &silentFlag},
}};

const std::array<CommandRow, 4> commandTable = {{
    {"d", "", "", ""},
    {"stop", "", "", ""},
    {"test", "", "", ""},
    {"", "", "", ""},
}};

ORBCOMMON::ProcessEvent mainExitBarrier(false, false);
ORBCOMMON::ProcessEvent ORBFrontProcessBarrier(false, true);
ORBCOMMON::GlobalLock appLock(applicationLockName);

ConfigurationMonitor gConfigMon;
WBXResponderMonitor gResponderMonitor;

bool enableFlag = false;
bool disableFlag = false;
bool silentFlag = false;
bool gIsTestMode = false;

} // namespace ZNORBRESPONDER
