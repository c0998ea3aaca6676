#include "responder/Globals.h"
#include "responder/commands/CommandLine.h"
#include "responder/commands/ExitStatus.h"
#include "responder/commands/StandardDescriptors.h"
#include "responder/commands/StartStop.h"
#include "responder/commands/TestConsole.h"
#include "responder/commands/UserMessage.h"

#include <unistd.h>

#include <algorithm>
#include <exception>
#include <string>
#include <vector>

using namespace ZNORBRESPONDER;

namespace {

bool isRoot() {
    if (geteuid() == 0) {
        return true;
    }
    tellUser(STDERR_FILENO, "ERROR: You must be root to use this application");
    return false;
}

bool parse(int argc, char** argv) {
    const std::vector<std::string> words(argv + std::min(argc, 1), argv + argc); // argc may be 0
    return parseCommandLine(words, commandTable, flagTable, {});
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
