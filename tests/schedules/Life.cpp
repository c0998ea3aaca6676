#include "tests/schedules/Life.h"

#include "tests/schedules/Actors.h"
#include "tests/schedules/Ensemble.h"
#include "tests/schedules/Scheduler.h"
#include "tests/schedules/Witness.h"
#include "tests/support/DaemonDriver.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/PlayedDaemon.h"

#include <sys/socket.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <set>
#include <string>

namespace ZNORBSCHEDULES {
namespace {

using namespace ZNORBTEST;
using Seen = std::map<std::string, std::string>;

struct Saying {
    const char* text;
    const char* word;
};
constexpr Saying sayings[] = {
    {"", "silent"},
    {"The ZN Orbisan daemon has started.\n", "has started"},
    {"Error: Only one instance of the ZN Orbisan daemon can be active at one time.\n", "refused"},
    {"The ZN Orbisan daemon has stopped.\n", "has stopped"},
    {"The ZN Orbisan daemon is not running.\n", "not running"},
    {"The ZN Orbisan daemon did not respond to the stop command in time.\n", "too slow"},
};

std::string wordFor(const std::string& said) {
    const auto* const known = std::find_if(std::begin(sayings), std::end(sayings),
                                           [&](const Saying& row) { return said == row.text; });
    std::string word = known == std::end(sayings) ? said : known->word;
    std::replace(word.begin(), word.end(), '\n', ' ');
    return word;
}

std::string inWords(const Ending& ending) {
    return ending.isAnotherProgram          ? "becomes the client"
           : WIFSIGNALED(ending.waitStatus) ? std::string("SIG") + sigabbrev_np(WTERMSIG(ending.waitStatus))
                                            : std::to_string(WEXITSTATUS(ending.waitStatus));
}

std::string inWords(const std::string& path) {
    return isUnfinishedSemaphore(path) ? "unnamed lock"
           : path == lockFile          ? "lock"
           : path == tableFile         ? "table"
           : path.ends_with(".socket") ? "socket"
                                       : path;
}

/// Played actors have no status of their own to tell of.
std::string endOf(const std::string& actor, const Ensemble& ensemble) {
    const std::string word = wordFor(ensemble.output(actor));
    if (ensemble.find(actor) != nullptr) {
        return "waits, " + word;
    }
    const std::string end = inWords(ensemble.endings().at(actor));
    return end == "0" && actor[0] != '-' && actor[0] != 'z' ? word : end + ", " + word;
}

/// The daemons and what they have forked; the steps of a start are of no interest when they have ended well.
void lookAtDaemons(const Ensemble& ensemble, Seen& seen) {
    for (const auto& [role, ending] : ensemble.endings()) {
        if (role.find(" fork") == std::string::npos || inWords(ending) != "0") {
            seen[role] = inWords(ending);
        }
    }
    for (const std::string& role : ensemble.processes()) {
        seen[role] = "runs";
    }
    seen.erase("old");
}

std::string namesLeft(const DaemonDriver& driver) {
    std::set<std::string> names;
    for (const std::string& name : driver.newNames()) {
        (void)names.insert(inWords(name));
    }
    (void)names.erase("/run/znorb-clean.lock");
    std::string left;
    for (const std::string& name : names) {
        left += (left.empty() ? "" : ", ") + name;
    }
    return left.empty() ? "nothing" : left;
}

/// What a requester meets.
std::string lookAtSocket(Ensemble& ensemble, Witness& witness) {
    const LocalConnection connection = LocalConnection::toPath("/run/znorb.socket");
    if (!connection.isConnected() || !connection.send("PRINT")) {
        return "nobody listens";
    }
    Course course;
    Scheduler(ensemble, witness).play({}, course);
    char reply[8];
    const ssize_t length = recv(connection.descriptor(), reply, sizeof reply, MSG_DONTWAIT);
    return length > 0 ? "answers" : length == 0 ? "hangs up" : "is silent";
}

Seen observe(const Story& story, const DaemonDriver& driver, Ensemble& ensemble, Witness& witness) {
    Seen seen;
    lookAtDaemons(ensemble, seen);
    for (const std::string& actor : story.actors) {
        seen[actor] = endOf(actor, ensemble);
    }
    seen["left"] = namesLeft(driver);
    seen["lock"] = witness.lock();
    if (story.setting == Setting::Launched) {
        seen["table"] = witness.table();
    }
    seen["wrong"] = witness.breaches();
    seen["socket"] = lookAtSocket(ensemble, witness);
    return seen;
}

} // namespace

Course live(const Story& story, const Order& order, const KnownStates& known) {
    const DaemonDriver driver;
    Ensemble ensemble(story.ignored());
    Witness witness;
    if (!prepare(story.setting, driver, ensemble)) {
        return {.problem = "not prepared within the bound"};
    }
    for (const std::string& actor : story.actors) {
        addActor(actor, driver, ensemble);
    }
    if (story.setting == Setting::Stale) {
        witness.passOverLock(); // a dead daemon's: it is right that its name goes
    }
    Course course;
    Scheduler(ensemble, witness).play(order, course, known);
    if (course.problem.empty() && !course.isCut) {
        course.seen = observe(story, driver, ensemble, witness);
    }
    return course;
}

} // namespace ZNORBSCHEDULES
