#include "packaging/tools/ResponderProcesses.h"
#include "packaging/tools/ToolArguments.h"
#include "responder/RuntimeNames.h"

#include <unistd.h>

#include <climits>
#include <cstdio>
#include <ctime>
#include <string>

/// znorb-wait: waits until a responder takes requests. Neither its start message nor its socket file proves
/// that: the message comes before the socket, and the file outlives the daemon. A socket of the process that
/// listens does.
namespace {

using namespace ZNORBTOOLS;

enum ExitStatus { Ready = 0, Failed = 1, Gone = 2, TimedOut = 3, Unknown = 4 };

enum class State { Ready, Starting, Gone, Unknown };

State stateOf(const std::vector<pid_t>& processes, Doubt& doubt) {
    for (const pid_t process : processes) {
        if (listensAt(process, ZNORBRESPONDER::commandSocketPath, doubt)) {
            return State::Ready;
        }
    }
    if (doubt.exists()) {
        return State::Unknown;
    }
    return processes.empty() ? State::Gone : State::Starting;
}

/// Of whatever responder runs, or of the one process. That may be about to execute the responder, as a
/// service manager's child is at first: only its end ends the wait.
State look(pid_t process, const std::string& executable, Doubt& doubt) {
    if (process == 0) {
        return stateOf(findResponders(executable, doubt), doubt);
    }
    if (runsResponder(process, executable, doubt)) {
        return stateOf({process}, doubt);
    }
    const State state = stateOf({}, doubt);
    return state == State::Gone && runsAnything(process) ? State::Starting : state;
}

int finish(ExitStatus status, const std::string& text) {
    (void)std::fprintf(stderr, "znorb-wait: %s\n", text.c_str());
    return status;
}

int waitFor(pid_t process, const ToolArguments& arguments) {
    timespec start = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &start);
    for (;;) {
        timespec now = {};
        (void)clock_gettime(CLOCK_MONOTONIC, &now); // before the look: the last look comes at the very end
        Doubt doubt(arguments.executable);
        switch (look(process, arguments.executable, doubt)) {
        case State::Ready:
            return Ready;
        case State::Gone:
            return finish(Gone, "the responder does not run");
        case State::Unknown:
            return finish(Unknown, "cannot tell whether the responder runs: " + doubt.text());
        case State::Starting:
            break;
        }
        const long seconds =
            static_cast<long>(now.tv_sec - start.tv_sec) - (now.tv_nsec < start.tv_nsec ? 1 : 0);
        if (seconds >= arguments.seconds) {
            return finish(TimedOut, "the responder does not listen yet");
        }
        const timespec pause = {0, 20'000'000};
        (void)nanosleep(&pause, nullptr);
    }
}

} // namespace

int main(int argc, char** argv) {
    const ToolArguments arguments = parseToolArguments(argc, argv, "t:e:", true);
    if (!arguments.accepted) {
        (void)std::fputs("usage: znorb-wait [-t seconds] [-e executable] [process]\n", stderr);
        return Failed;
    }
    if (geteuid() != 0) {
        return finish(Failed, "only root can tell which processes run the responder");
    }
    if (!arguments.hasProcess) {
        return waitFor(0, arguments);
    }
    if (arguments.process.empty()) { // a service manager's way to say that its process has ended
        return finish(Gone, "the responder does not run");
    }
    const long process = parseNumber(arguments.process, INT_MAX);
    return process > 0 ? waitFor(static_cast<pid_t>(process), arguments)
                       : finish(Failed, "no process id: " + arguments.process);
}
