#include "responder/Globals.h"
#include "responder/commands/CommandLine.h"
#include "responder/commands/ExitStatus.h"
#include "responder/commands/StandardDescriptors.h"
#include "responder/commands/StartStop.h"
#include "responder/commands/TestConsole.h"
#include "responder/commands/UserMessage.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

/// What std::terminate calls. The C++ library's own handler would name the exception, and brings 50 KiB for
/// it into the executable. This is the library's variable, which stands before anything runs. A shared C++
/// library keeps its own.
namespace __cxxabiv1 { // NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern std::terminate_handler __terminate_handler;
std::terminate_handler __terminate_handler = std::abort;
} // namespace __cxxabiv1
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

using namespace ZNORBRESPONDER;

namespace {

bool isRoot() {
    if (geteuid() == 0) {
        return true;
    }
    tellUser(stderr, "ERROR: You must be root to use this application");
    return false;
}

bool parse(int argc, char** argv) {
    const std::vector<std::string> words(argv + std::min(argc, 1), argv + argc); // argc may be 0
    return parseCommandLine(words, {commandTable.data(), commandTable.size()},
                            {flagTable.data(), flagTable.size()}, {});
}

int dispatch() {
    std::vector<std::string> commands;
    Common::set<std::string> options;
    getParsedCommandLine(commands, options);
    const std::string command = commands.empty() ? std::string() : commands.front();
    if (command == "test") {
        return runTestConsole();
    }
    if (command == "d") {
        return startDaemon();
    }
    if (command == "stop") {
        return stopDaemon();
    }
    return otherEndStatus;
}

} // namespace

int main(int argc, char** argv) {
    try {
        if (!isRoot()) {
            return notRootStatus;
        }
        fillMissingDescriptors();
        return parse(argc, argv) ? dispatch() : otherEndStatus;
    } catch (const std::exception&) {
        return otherEndStatus; // out of memory before anything was started
    }
}
