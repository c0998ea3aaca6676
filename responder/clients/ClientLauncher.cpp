#include "responder/clients/ClientLauncher.h"

#include "common/log/Logger.h"
#include "common/processes/ProcessRunner.h"
#include "responder/Globals.h"
#include "responder/RuntimeNames.h"
#include "responder/paths/InstallationPaths.h"
#include "responder/table/ClientTable.h"

#include <cstdio>
#include <new>
#include <vector>

namespace ZNORBRESPONDER {

namespace {

std::vector<std::string> clientArguments(std::uint16_t index, const std::string& language,
                                         const std::string& timeout) {
    char number[21] = {};
    (void)std::snprintf(number, sizeof number, "%u", static_cast<unsigned>(index));

    std::vector<std::string> arguments;
    if (gIsTestMode) {
        arguments.emplace_back("-v");
    }
    arguments.insert(arguments.end(), {"-lang", language, "-wbx", "-index", number});
    if (!timeout.empty()) {
        arguments.insert(arguments.end(), {"-timeout", timeout});
    }
    return arguments;
}

/// As a failed fork when there is no memory for the arguments.
pid_t runClient(std::uint16_t index, const std::string& language, const std::string& timeout) {
    try {
        return ORBCOMMON::runProcess(clientProgram, getBinaryPath(productWord, ""),
                                     clientArguments(index, language, timeout), false);
    } catch (const std::bad_alloc&) {
        return noProcess;
    }
}

} // namespace

pid_t startClient(SharedVariables* table, std::uint16_t& index, const std::string& language,
                  const std::string& timeout) {
    if (!claimEntry(*table, index)) {
        return noProcess;
    }
    return launchClient(index, language, timeout);
}

pid_t launchClient(std::uint16_t index, const std::string& language, const std::string& timeout) {
    const pid_t process = runClient(index, language, timeout);
    ORBCOMMON::Logger::log("New process created: %d", process);
    return process;
}

} // namespace ZNORBRESPONDER
