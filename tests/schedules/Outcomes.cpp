#include "tests/schedules/Outcomes.h"

#include <fnmatch.h>

#include <algorithm>
#include <iterator>

namespace ZNORBSCHEDULES {
namespace {

constexpr const char* raced =
    "The probe and the creation of the lock are two steps. A second `-d` that comes in between runs without "
    "the name, "
    "finds the table in its way, ends, and takes the names of lock and table with it (docs/ARCHITECTURE.md).";
constexpr const char* refused = "The lock's name is there until the other daemon has ended.";
constexpr const char* notAnswered = "Whoever goes unanswered ends with status 255 and no message.";
constexpr const char* leavesTable =
    "SIGTERM leaves the table. The next start fails on it and removes it, the one after that serves.";
constexpr const char* oneOfTwo = "Whichever of the two daemons takes the `QUIT` shuts the socket down for "
                                 "both; the other one can then be ended by "
                                 "SIGTERM only (docs/ARCHITECTURE.md).";

const ExpectedOutcome outcomes[] = {
    {"start-start",
     "-d ?: 0, has started; -d ? daemon: runs; -d ?: 2, refused; left: lock, socket, table; lock: held; "
     "socket: answers; wrong: nothing",
     "one starts, the other is refused", ""},
    {"start-start",
     "-d ?: 2, refused; -d ?: 0, has started; -d ? daemon: runs; left: lock, socket, table; lock: held; "
     "socket: answers; wrong: nothing",
     "one starts, the other is refused", ""},
    {"start-start",
     "-d ?: 0, has started; -d ? daemon: @(runs|255); -d ?: 0, has started; -d ? daemon: @(runs|255); left: "
     "socket; "
     "lock: none; socket: answers; wrong: @(nothing|name gone before the lock)",
     "both say that they have started, one serves without names", raced},

    {"start-end",
     "-d: 2, refused; QUIT: 0; left: socket; lock: none; old daemon: 255; socket: nobody listens; wrong: "
     "nothing",
     "is refused", refused},
    {"start-end",
     "-d: 0, has started; -d daemon: runs; QUIT: 0; left: lock, socket, table; lock: held; old daemon: 255; "
     "socket: answers; wrong: nothing",
     "starts after the other's end", ""},

    {"start-stop",
     "-d: 0, has started; -d daemon: 255; -stop: 255, has stopped; left: socket; lock: none; socket: nobody "
     "listens; "
     "wrong: nothing",
     "starts and is stopped", ""},
    {"start-stop",
     "-d: 0, has started; -d daemon: runs; -stop: 2, not running; left: lock, socket, table; lock: held; "
     "socket: answers; wrong: nothing",
     "`-stop` comes too early for the lock", ""},
    {"start-stop",
     "-d: 0, has started; -d daemon: runs; -stop: 255, silent; left: lock, socket, table; lock: held; "
     "socket: answers; wrong: nothing",
     "`-stop` comes too early for the socket", notAnswered},

    {"stop-start",
     "-d: 2, refused; -stop: 255, has stopped; left: socket; lock: none; old daemon: 255; socket: nobody "
     "listens; "
     "wrong: nothing",
     "is refused", refused},
    {"stop-start",
     "-d: 0, has started; -d daemon: runs; -stop: 255, has stopped; left: lock, socket, table; lock: held; "
     "old daemon: 255; socket: answers; wrong: nothing",
     "starts after the other's end", ""},

    {"stop-stop",
     "-stop ?: 255, @(silent|has stopped); -stop ?: 255, @(silent|has stopped); left: socket; lock: none; "
     "old daemon: 255; socket: nobody listens; wrong: nothing",
     "one stops it, the other goes unanswered", notAnswered},
    {"stop-stop",
     "-stop ?: @(2, not running|255, has stopped); -stop ?: @(2, not running|255, has stopped); left: "
     "socket; "
     "lock: none; old daemon: 255; socket: nobody listens; wrong: nothing",
     "one stops it, the other finds nobody", ""},

    {"stop-term",
     "-stop: 255, has stopped; SIGTERM: silent; left: socket; lock: none; old daemon: @(10|255); "
     "socket: nobody listens; wrong: nothing",
     "the daemon quits, or is ended behind that", ""},
    {"stop-term",
     "-stop: 2, not running; SIGTERM: silent; left: socket, table; lock: none; old daemon: 10; "
     "socket: nobody listens; wrong: lock let go before the table",
     "ends by SIGTERM before `-stop` looks for it", leavesTable},
    {"stop-term",
     "-stop: 255, @(silent|has stopped); SIGTERM: silent; left: socket?(, table); lock: none; old daemon: "
     "10; "
     "socket: nobody listens; wrong: lock let go before the table",
     "ends by SIGTERM while `-stop` asks it to quit", leavesTable},

    {"get-quit",
     "GET: 0; QUIT: 0; left: socket; lock: none; old daemon: 255; old launch 1: becomes the client; "
     "socket: nobody listens; wrong: nothing",
     "launches a client, then quits", "A client that has not filled in its port yet is not asked to exit."},
    {"get-quit",
     "GET: @(none|no connection); QUIT: 0; left: socket; lock: none; old daemon: 255; socket: nobody "
     "listens; "
     "wrong: nothing",
     "quits first", "Whoever comes later is not served."},

    {"get-client",
     "GET: 0; client: silent; left: lock, socket, table; lock: held; old daemon: runs; "
     "old launch 1: becomes the client; old launch 2: becomes the client; socket: answers; table: 0 used; "
     "wrong: nothing",
     "gets the entry that has been freed, empty", ""},
    {"get-client",
     "GET: 1; client: silent; left: lock, socket, table; lock: held; old daemon: runs; "
     "old launch 1: becomes the client; old launch 2: becomes the client; socket: answers; "
     "table: 0 free port name, 1 used; wrong: nothing",
     "gets the next entry, since the first is still in use", ""},

    {"clean-start",
     "-d: 2, refused; left: socket; lock: none; old daemon: SIGKILL; socket: nobody listens; wrong: nothing; "
     "znorb-clean: 0, *",
     "is refused, then all is removed", "The stale lock goes last: until then every start is refused."},
    {"clean-start",
     "-d: 0, has started; -d daemon: runs; left: lock, socket, table; lock: held; old daemon: SIGKILL; "
     "socket: answers; wrong: nothing; znorb-clean: 0, *",
     "starts when all has been removed", ""},
    {"clean-start",
     "-d: 2, refused; left: lock, socket; lock: held; old daemon: SIGKILL; socket: nobody listens; wrong: "
     "nothing; "
     "znorb-clean: 2, *a responder runs*",
     "is refused, and takes the cleaner's turn",
     "A `-d` that is being refused counts as a responder. Run it again."},
    {"clean-start",
     "-d: 2, refused; left: lock, socket, table; lock: held; old daemon: SIGKILL; socket: nobody listens; "
     "wrong: nothing; znorb-clean: 2, *",
     "is refused, and takes the cleaner's turn",
     "A `-d` that is being refused counts as a responder. Run it again."},

    {"failed-stop",
     "-stop: 255, has stopped; GET: @(0|00); left: socket; lock: none; old daemon: 255; old launch 1: runs; "
     "socket: nobody listens; wrong: nothing",
     "the first daemon is stopped, the second one stays", oneOfTwo},
    {"failed-stop",
     "-stop: 3, too slow; GET: @(0|00); left: lock, socket*; lock: held; old daemon: runs; old launch 1: 0; "
     "socket: nobody listens; wrong: nothing",
     "the second daemon is stopped, the first one stays and holds the lock", oneOfTwo},
    {"failed-stop",
     "-stop: 255, has stopped; GET: @(none|no connection); left: socket; lock: none; old daemon: 255; "
     "socket: nobody listens; wrong: nothing",
     "quits before the GET", "Whoever comes later is not served."},
};

} // namespace

const ExpectedOutcome* findOutcome(const Story& story, const Course& course) {
    static const ExpectedOutcome known = {"*", "", "as another order", ""};
    if (course.isCut && course.problem.empty()) {
        return &known;
    }
    const std::string seen = describe(course);
    const auto* const found =
        std::find_if(std::begin(outcomes), std::end(outcomes), [&](const ExpectedOutcome& row) {
            return row.story == std::string(story.name) && fnmatch(row.seen, seen.c_str(), FNM_EXTMATCH) == 0;
        });
    return found == std::end(outcomes) ? nullptr : found;
}

} // namespace ZNORBSCHEDULES
