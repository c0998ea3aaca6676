#include "tests/moments/Outcomes.h"

#include "tests/tracing/CallNames.h"

#include <fnmatch.h>

#include <algorithm>
#include <iterator>

namespace ZNORBMOMENTS {
namespace {

constexpr const char* tooLate = "The last call of a process is made whatever is pending.";
constexpr const char* oneStartFails =
    "SIGTERM leaves the table. The next start fails on it and removes it, the one after that serves.";
constexpr const char* waitsForEver =
    "The invoking process waits without a bound for a daemon that is to be ready. End it.";
constexpr const char* staleLock =
    "SIGKILL leaves what there was: starts are refused until znorb-clean has removed the lock.";
constexpr const char* unnamedLock = "The C library makes a semaphore under a name of chance before it links "
                                    "it to its own. That stays, and is in "
                                    "nobody's way.";
constexpr const char* handlerInTheChild = "A forked child has the daemon's handler until it is the client: "
                                          "its SIGTERM posts the daemon's lock and removes "
                                          "its name. The daemon serves on; the entry stays claimed.";
constexpr const char* entryStaysClaimed = "Nobody looks at how a client ends; the entry stays claimed.";
constexpr const char* lostTable =
    "A table that has been shortened counts as an empty one: no client is started, none asked to exit.";
constexpr const char* notAnswered = "Whoever goes unanswered ends with status 255 and no message.";

// The thread has said that it is done: main may be at its last call by now.
constexpr const char* afterTheWord = "@(futex [23]|rt_sigprocmask 3|madvise *|exit *)";

const ExpectedOutcome outcomes[] = {
    // The neighbours, and signals that change nothing.
    {"@(stop|child|close|shutdown|client|truncate|unlock)", "*", "*", "as ever", "as ever", ""},
    {"@(close|shutdown)", "*", "*", "reply to *([!:;]): given up", "is served all the same",
     "A request that has arrived is served; the reply finds nobody."},
    {"truncate", "*", "*",
     "+(@(client ?: not registered|clients left: [012]|launch ?: nobody|reply to 2nd GET: 0)?(; ))",
     "has no table any more", lostTable},
    {"unlock", "@(stop|responder|main)", "*",
     "QUIT after it: 0; stop: status 2; stop says: The ZN Orbisan daemon is not running. ",
     "is not found by -stop", "A daemon without its lock's name can be ended by QUIT."},
    {"unlock", "clean", "*", "clean says: znorb-clean: removed the stale table /dev/shm/znorb.shvars ",
     "finds the table alone", "What has gone meanwhile is not removed."},

    // SIGTERM to the daemon.
    {"term*", "*", "exit_group *", "as ever", "comes too late", tooLate},
    {"term*", "responder", afterTheWord, "as ever", "comes too late", tooLate},
    {"term*", "intermediate", "*", "as ever", "is held back",
     "SIGTERM is held back here from the first moment to the last."},
    {"term-responder", "@(main|test)", "*", "as ever", "ends with the thread",
     "The responder's thread holds SIGTERM back at its end, and its own signals go with it."},
    {"term*", "@(main|responder)", "*", "?(left: nothing; )main: status 10", "ends with status 10", ""},
    {"term*", "@(main|responder)", "*", "left: ?(socket, )table; main: status 10; next: fails, serves",
     "ends with status 10, leaves the table", oneStartFails},
    {"term*", "@(main|responder)", "*",
     "invoking: waits for ever, SIGKILL; ?(left: nothing; )main: status 10",
     "ends with status 10 before it was ready", waitsForEver},
    {"term*", "@(main|responder)", "*",
     "invoking: waits for ever, SIGKILL; left: ?(socket, )table; main: status 10; next: fails, serves",
     "ends with status 10 before it was ready, leaves the table", waitsForEver},
    {"term*", "@(main|responder)", "*",
     "left: socket, table; main: status 10; next: fails, serves; stop says: ",
     "ends with status 10 before -stop is answered", notAnswered},
    {"term*", "@(main|responder)", "*",
     "left: socket, table; main: status 10; next: fails, serves; stop: status 2; stop says: The ZN Orbisan "
     "daemon is not running. ",
     "ends with status 10 before -stop looks for it", ""},
    {"term*", "@(test|responder)", "*", "?(left: nothing; )test: SIGTERM", "ends by SIGTERM", ""},
    {"term*", "@(test|responder)", "*", "left: ?(socket, )table; next: fails, serves; test: SIGTERM",
     "ends by SIGTERM, leaves the table", oneStartFails},

    // SIGKILL to the daemon.
    {"kill", "responder", afterTheWord, "as ever", "comes too late", tooLate},
    {"kill", "@(main|responder)", "*", "main: SIGKILL", "ends, leaves nothing", ""},
    {"kill", "@(main|responder)", "*",
     "?(count: 0; )?(invoking: waits for ever, SIGKILL; )left: lock?(, socket)?(, table)?(, unnamed lock); "
     "main: SIGKILL; next: refused, cleaned, serves",
     "leaves its lock", staleLock},
    {"kill", "@(main|responder)", "*",
     "count: 0; left: lock, socket?(, table); main: SIGKILL; next: refused, cleaned, serves; stop: status 3; "
     "stop "
     "says: The ZN Orbisan daemon did not respond to the stop command in time. ",
     "leaves its lock, for which -stop waits five seconds", staleLock},
    {"kill", "@(main|responder)", "*",
     "count: 0; left: lock, socket, table; main: SIGKILL; next: refused, cleaned, serves; stop says: ",
     "leaves its lock before -stop is answered", notAnswered},
    {"kill", "main", "*", "count: no lock; invoking: waits for ever, SIGKILL; left: nothing; main: SIGKILL",
     "ends before it was ready", waitsForEver},
    {"kill", "main", "*",
     "count: no lock; invoking: waits for ever, SIGKILL; left: unnamed lock; main: SIGKILL",
     "leaves a lock without a name", unnamedLock},
    {"kill", "@(test|responder)", "*", "?(left: nothing; )test: SIGKILL", "ends, leaves nothing", ""},
    {"kill", "@(test|responder)", "*", "left: ?(socket, )table; next: fails, serves; test: SIGKILL",
     "leaves the table",
     "Test mode has no lock. The next start fails on its table and removes it, the one after that serves."},

    // To the processes around it.
    {"@(term|kill)", "invoking", "*",
     "count: no lock; intermediate: nobody; invoking: @(SIGTERM|SIGKILL); left: nothing; main: nobody",
     "ends before anything is started", ""},
    {"@(term|kill)", "invoking", "*", "invoking: @(SIGTERM|SIGKILL)",
     "ends; the daemon starts without a message", ""},
    {"kill", "intermediate", "*",
     "count: no lock; intermediate: SIGKILL; invoking: waits for ever, SIGKILL; left: nothing; main: nobody",
     "ends before there is a daemon", waitsForEver},
    {"kill", "intermediate", "*", "intermediate: SIGKILL", "ends; the daemon starts as ever", ""},
    {"term", "launch ?", "*", "client ?: not registered; count: 2; launch ?: status 10",
     "takes the lock's name along", handlerInTheChild},
    {"term", "launch ?", "execve *", "client ?: not registered", "the client ends", entryStaysClaimed},
    {"kill", "launch ?", "*", "client ?: not registered; launch ?: SIGKILL", "no client", entryStaysClaimed},
    {"@(term|kill)", "stop", "*", "?(QUIT after it: *([!;]); )stop: @(SIGTERM|SIGKILL)",
     "ends; the daemon quits if it was asked to", ""},
    {"@(term|kill)", "clean", "*",
     "clean: @(SIGTERM|SIGKILL)?(; left: lock, socket?(, table)?(, turn); next: refused, cleaned, serves)",
     "ends; run again it cleans up", "The lock goes last: until then every start is refused."},
    {"@(term|kill)", "wait", "*", "wait: @(SIGTERM|SIGKILL)", "ends", ""},
};

bool matches(const char* pattern, const std::string& text) {
    return fnmatch(pattern, text.c_str(), FNM_EXTMATCH) == 0;
}

} // namespace

const ExpectedOutcome* findOutcome(const Result& result) {
    const Moment& moment = result.moment;
    const Boundary& boundary = moment.boundary;
    const std::string call =
        ZNORBTRACING::callName(boundary.call) + " " + std::to_string(boundary.occurrence);
    const auto* const found =
        std::find_if(std::begin(outcomes), std::end(outcomes), [&](const ExpectedOutcome& row) {
            return matches(row.kind, moment.kind->name) && matches(row.role, boundary.role) &&
                   matches(row.call, call) && matches(row.outcome, result.outcome);
        });
    return result.hasHappened && found != std::end(outcomes) ? found : nullptr;
}

} // namespace ZNORBMOMENTS
