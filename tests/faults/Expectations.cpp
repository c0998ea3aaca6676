#include "tests/faults/Expectations.h"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <vector>

namespace ZNORBFAULTS {
namespace {

// ---- reasons that several rows share ---------------------------------------------------------------

constexpr const char* ignored = "The result is ignored on purpose; the rest of the life is as ever.";
constexpr const char* endsAtOnce =
    "Without it nothing can be served: the daemon ends at once, in order, with status 255 and no name left. "
    "The start has been reported all the same, because the event that reports it is set early.";
constexpr const char* pageLeftOut =
    "What cannot be published is left out, and with it what depends on it; the daemon serves all the same.";
constexpr const char* refusedRequest =
    "The connection is closed without a reply; the same request on the next connection is served.";
constexpr const char* replyLost = "A reply that cannot be sent is not noticed; the request has been served.";
constexpr const char* requestCut =
    "A request is what one receive yields; a part of one is an unknown command.";
constexpr const char* notAsked =
    "A client that cannot be reached is left out of the sweep without a message, and runs on.";
constexpr const char* secondDaemon =
    "When the client cannot be executed the forked child goes on as a second daemon. Whichever of the two "
    "takes the QUIT ends with it, the other one by SIGTERM. Both may reply to the request that forked.";
constexpr const char* noName =
    "A failed creation of the lock is ignored: the daemon serves without the name, and cannot be stopped by "
    "-stop.";
constexpr const char* staysBehind =
    "A name that cannot be unlinked stays; there is nothing left to try. Where it is the lock's, an "
    "administrator removes it; where it is the table's, the next start does.";
constexpr const char* unlockedSecond =
    "A lock that cannot be opened counts as absent. The second daemon then finds the table in its way, ends, "
    "and takes the names of lock and table with it.";
constexpr const char* notRunning = "A lock that cannot be opened counts as absent.";
constexpr const char* notAnswered =
    "Without an answer to its QUIT a stop ends with status 255 and prints nothing, whatever the daemon does.";
constexpr const char* messageLost = "Nobody is left to tell; the status says the same.";
constexpr const char* noMapping =
    "A failed mapping is told from a good one by null only, on purpose: the first access ends the process.";

constexpr const char* noService =
    "names left: nothing; pages: znorb.xml missing, chp.htm missing, ipcelmclient.php missing, "
    "znorbrequestor missing; serves: no";

// The rows, by what they are about; the first that fits counts.

const std::vector<Expectation> ofTheStart = {
    {"*", "mmap", "shared event", "*", "*ended by SIGSEGV*", "ends before anything is started", noMapping},
    {"*", "*", "standard *", "*", "+([!;]) says: ", "its message is lost", messageLost},
    {"invoking", "clone", "process", "* for ever",
     "intermediate: (none); invoking: status 255; invoking says: ; main: (none); process group: another",
     "becomes the daemon itself",
     "A process whose fork fails goes on in the child's place; nobody is left to print the message."},
    {"invoking", "clone", "process", "*",
     "intermediate: status 255; invoking says: ; main: (none); process group: another",
     "its child becomes the daemon, without a message",
     "A process whose fork fails goes on in the child's place, and ends there when the next fork succeeds."},
    {"intermediate", "clone", "process", "*", "intermediate: status 255; main: (none)*",
     "becomes the daemon itself", "A process whose fork fails goes on in the child's place."},
    {"intermediate", "setpgid", "", "*", "process group: another", "stays in the caller's process group",
     ignored},
    {"*", "rt_sigaction", "*", "*", "Sig???: +([!;])*(; Sig???: +([!;]))", "the signal is handled as before",
     ignored},
    {"main", "rt_sigprocmask", "", "*", "SigBlk: +([!;])?(; main: after SIGTERM status 10)", "the mask stays",
     ignored},
    {"main", "*", "/dev/null", "*", "descriptors: +([!;])", "a descriptor stays as it was", ignored},
    {"main", "dup2", "*", "*", "descriptors: +([!;])", "a descriptor stays as it was", ignored},
    {"main", "close_range", "*", "*", "descriptors: +([!;])", "descriptors stay open", ignored},
    {"main", "*", "*sem.*", "*", "lock's name: absent", "runs without the lock's name", noName},
    {"main", "allocation", "", "*", "lock's name: absent", "runs without the lock's name", noName},
    {"main", "unlink", "/dev/shm/sem.XXXXXX", "*", "names left: /dev/shm/sem.XXXXXX, /run/znorb.socket",
     "the C library's temporary name stays", staysBehind},
    {"main", "mmap", "thread's stack", "*", noService, "ends at once, in order", endsAtOnce},
    {"main", "mprotect", "*", "*", noService, "ends at once, in order", endsAtOnce},
    {"main", "clone3", "thread", "*", noService, "ends at once, in order", endsAtOnce},
    {"main", "allocation", "", "*", noService, "ends at once, in order", endsAtOnce},
};

const std::vector<Expectation> ofTheSetUp = {
    {"responder", "rseq", "", "*",
     "*main: ended by SIGABRT; names left: /dev/shm/sem.znorb.appLock;*serves: no",
     "the C library ends the process",
     "The C library takes it for a broken kernel when the second thread cannot register what the first one "
     "could; it ends the process before any of our code runs on the thread."},
    {"responder", "openat", "/dev/shm/znorb.shvars", "*", noService, "ends at once, in order", endsAtOnce},
    {"responder", "ftruncate", "/dev/shm/znorb.shvars", "*", "1st client: does not run*launch 1: (none)*",
     "has no table: launches nothing",
     "The table's size is not checked, on purpose. A table without one counts as one that somebody has "
     "shortened."},
    {"responder", "mmap", "/dev/shm/znorb.shvars", "*",
     "*main: ended by SIGSEGV; names left: /dev/shm/sem.znorb.appLock, /dev/shm/znorb.shvars;*serves: no",
     "ends by SIGSEGV",
     "A failed mapping is told from a good one by null only, on purpose: the first access ends the process, "
     "as SIGKILL would. If that comes before the start was reported, the invoking process waits for ever."},
    {"responder", "fchmod", "/dev/shm/znorb.shvars", "*", "table's mode: 0777", "the mode stays 0777",
     ignored},
    {"responder", "chmod", "/var/run/znorb.socket", "*", "socket's mode: 0777", "the mode stays 0777",
     ignored},
    {"responder", "socket", "command socket", "*", noService, "ends at once, in order", endsAtOnce},
    {"responder", "bind", "command socket", "*", noService, "ends at once, in order", endsAtOnce},
    {"responder", "listen", "command socket", "*", "serves: no", "ends at once, in order", endsAtOnce},
    {"*", "close", "*", "*", "descriptors: +([!;])", "one descriptor more stays open", ignored},
    {"*", "*", "/opt/zn/*", "*", "pages: +([!;])", "pages are left out", pageLeftOut},
    {"responder", "readlink", "/proc/PID/exe", "*", "pages: +([!;])",
     "pages are left out or name no directory",
     "A failed read of the executable's link yields an empty directory without a message."},
    {"responder", "allocation", "", "once", "pages: +([!;])", "pages are left out", pageLeftOut},
};

const std::vector<Expectation> ofTheRequests = {
    {"responder", "*", "connection", "*", "??? PRINT: no reply, then 0", "the request is refused",
     refusedRequest},
    {"responder", "*", "connection", "*", "GET for the ??? client: no reply, then [01]",
     "the request is refused", refusedRequest},
    {"responder", "*", "connection", "*", "QUIT: no reply, then 0", "the request is refused", refusedRequest},
    {"responder", "allocation", "", "once", "??? PRINT: no reply, then 0", "the request is refused",
     refusedRequest},
    {"responder", "allocation", "", "once", "GET for the ??? client: no reply, then [01]",
     "the request is refused", refusedRequest},
    {"responder", "allocation", "", "once", "QUIT: no reply, then 0", "the request is refused",
     refusedRequest},
    {"responder", "sendto", "connection", "*", "GET for the ??? client: no reply, then [12]*",
     "the client runs and its requester is not told", replyLost},
    {"responder", "sendto", "connection", "*", "QUIT: no reply", "ends without the reply", replyLost},
    {"responder", "recvfrom", "connection", "one byte", "*GET for the 2nd client: 0*",
     "the rest of the request is lost", requestCut},
    {"responder", "recvfrom", "connection", "one byte",
     "clients left: 2; main: after SIGTERM status 10; names left: /dev/shm/znorb.shvars, /run/znorb.socket",
     "the rest of the request is lost", requestCut},
    {"responder", "*", "command socket", "* for ever", "1st PRINT: silence;*main: after SIGTERM status 10;*",
     "serves nobody, rests between attempts, ends by SIGTERM",
     "A failed wait or accept starts the pass again, after a pause: no processor time is burnt."},
    {"responder", "*", "connection", "* for ever", "1st PRINT: no reply,*main: after SIGTERM status 10;*",
     "refuses every request, ends by SIGTERM", refusedRequest},
    {"responder", "sendto", "connection", "* for ever", "1st PRINT: no reply, then no reply;*",
     "serves every request without a reply", replyLost},
    {"responder", "allocation", "", "for ever", "*no reply, then no reply;*main: after SIGTERM status 10;*",
     "refuses every request, ends by SIGTERM",
     "A request for which there is no memory is closed without a reply, the QUIT as well."},
};

const std::vector<Expectation> ofTheClients = {
    {"responder", "clone", "process", "*", "*client: does not run*",
     "no client, the entry's number all the same",
     "A failed fork is not reported to the requester; the entry stays claimed."},
    {"responder", "allocation", "", "once", "*client: does not run; launch 2: (none)",
     "no client, the entry's number all the same",
     "Without memory for its arguments a client is launched as little as with a failed fork."},
    {"launch ?", "chdir", "*", "*", "??? client: runs in +([!;])",
     "the client runs in the daemon's directory", ignored},
    {"launch ?", "execve", "*", "ENOEXEC*", "??? client: does not run; launch ?: becomes *sh",
     "the shell is given the client",
     "A file that is no program is handed to the shell, as the search of programs does; the shell rejects "
     "it."},
    {"launch ?", "execve", "*", "*", "*client: does not run*", "goes on as a second daemon", secondDaemon},
    {"launch ?", "execve", "*", "*", "*launch ?: *status *", "goes on as a second daemon", secondDaemon},
    {"responder", "readlink", "/proc/PID/exe", "*", "*client: does not run*", "goes on as a second daemon",
     secondDaemon},
    {"responder", "readlink", "/proc/PID/exe", "*", "*launch ?: *status *", "goes on as a second daemon",
     secondDaemon},
    {"responder", "*", "client's port", "*", "clients left: [12]", "the client is not asked to exit",
     notAsked},
    {"responder", "allocation", "", "*", "clients left: [12]", "the client is not asked to exit", notAsked},
};

const std::vector<Expectation> ofTheEnd = {
    {"responder", "unlink", "/dev/shm/znorb.shvars", "*",
     "names left: /dev/shm/znorb.shvars, /run/znorb.socket", "the table's name stays", staysBehind},
    {"main", "unlink", "/dev/shm/sem.znorb.appLock", "*",
     "names left: /dev/shm/sem.znorb.appLock, ?(/dev/shm/znorb.shvars, )/run/znorb.socket",
     "the lock's name stays", staysBehind},
    {"stop", "*", "/dev/shm/sem.znorb.appLock", "*",
     "QUIT after it: 0; stop: status 2; stop says: The ZN Orbisan daemon is not running.", "finds no daemon",
     notRunning},
    {"stop", "allocation", "", "*", "*stop: status 2; stop says: The ZN Orbisan daemon is not running.",
     "finds no daemon", notRunning},
    {"stop", "sendto", "command socket", "*",
     "QUIT after it: 0; stop: waits on, ended by SIGKILL; stop says: ", "waits for its minute",
     "A failed send is not noticed: the stop waits up to 60 seconds for an answer. (Ended by the test "
     "before.)"},
    {"stop", "sendto", "command socket", "*", "QUIT after it: 0; stop: status 3; stop says: *in time.",
     "gives up after five seconds",
     "Part of the word is another request, which is answered and stops nobody."},
    {"stop", "clock_nanosleep", "", "* for ever", "*stop: status 3; stop says: *in time.", "gives up at once",
     "The time-out is counted in sleeps, and these end at once."},
    {"stop", "*", "*", "*", "stop says: ", "ends with status 255 and no message", notAnswered},
    {"stop", "*", "*", "*", "QUIT after it: 0; stop says: ", "ends with status 255 and no message",
     notAnswered},
    {"stop", "allocation", "", "for ever", "*stop says: ", "ends with status 255 and no message",
     notAnswered},
    {"second", "*", "/dev/shm/sem.znorb.appLock", "*",
     "child of child of second: status 255; child of second: status 0; second: status 0; second says: "
     "*started.",
     "starts a second daemon", unlockedSecond},
    {"second", "allocation", "", "*", "*child of child of second: status 255;*second: status 0;*",
     "starts a second daemon", unlockedSecond},
};

const std::vector<Expectation> ofMemory = {
    {"*", "allocation", "", "for ever", "*ended by SIGABRT;*terminate called*",
     "the C++ library ends the process",
     "The first allocation is the C++ library's own, for exceptions that are thrown without memory. Without "
     "it, and without any memory after it, no exception can be thrown. Nothing has been started yet."},
    {"invoking", "allocation", "", "*",
     "invoking: status 255; invoking says: ; names left: nothing;*serves: no",
     "ends with status 255 and no message", "Without memory for the command line nothing is started."},
    {"second", "allocation", "", "*", "*second: status 255; second says: ",
     "ends with status 255 and no message", "Without memory for the command line nothing is started."},
    {"intermediate", "allocation", "", "for ever", noService, "ends at once, in order", endsAtOnce},
};

const std::vector<Expectation> asEver = {
    {"*", "*", "*", "*", "as ever", "as ever", ""},
};

constexpr std::array<const char*, 4> neverByChance = {"ended by SIG", "HANGS", "SPINS", "NO END"};

bool matches(const char* pattern, const std::string& text) {
    return fnmatch(pattern, text.c_str(), FNM_EXTMATCH) == 0;
}

bool isMet(const Expectation& expectation, const Incident& incident) {
    const std::string outcome = expectation.outcome;
    const bool isDeliberate = std::all_of(neverByChance.begin(), neverByChance.end(), [&](const char* word) {
        return incident.outcome.find(word) == std::string::npos || outcome.find(word) != std::string::npos;
    });
    return isDeliberate && matches(expectation.role, incident.role) &&
           matches(expectation.call, incident.call) && matches(expectation.object, incident.object) &&
           matches(expectation.fault, incident.fault) && matches(expectation.outcome, incident.outcome);
}

} // namespace

const Expectation* findExpectation(const Incident& incident) {
    for (const std::vector<Expectation>* rows :
         {&asEver, &ofTheStart, &ofTheSetUp, &ofTheRequests, &ofTheClients, &ofTheEnd, &ofMemory}) {
        for (const Expectation& expectation : *rows) {
            if (isMet(expectation, incident)) {
                return &expectation;
            }
        }
    }
    return nullptr;
}

} // namespace ZNORBFAULTS
