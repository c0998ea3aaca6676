#include "responder/CommandLine.h"
#include "responder/ExitStatus.h"
#include "responder/Globals.h"
#include "responder/StandardDescriptors.h"
#include "responder/StartStop.h"
#include "responder/TestConsole.h"
#include "responder/UserMessage.h"

#include <unistd.h>

#include <exception>
#include <string>
#include <vector>

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
    const std::vector<std::string> words(argv + (argc > 0 ? 1 : 0), argv + argc);
    return parseCommandLine(words, {commandTable.data(), commandTable.size()},
                            {flagTable.data(), flagTable.size()}, {});
}

int dispatch() {
    std::vector<std::string> commands;
    Common::set<std::string> options;
    getParsedCommandLine(commands, options);
    if (commands.empty() || commands.front().empty()) {
        return otherEndStatus;
    }
    if (commands.front() == "test") {
        return runTestConsole();
    }
    if (commands.front() == "d") {
        return startDaemon();
    }
    return commands.front() == "stop" ? stopDaemon() : otherEndStatus;
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
