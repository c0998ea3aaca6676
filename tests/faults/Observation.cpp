#include "tests/faults/Observation.h"

#include "tests/sandbox/Processes.h"
#include "tests/sandbox/Sandbox.h"
#include "tests/support/PlayedDaemon.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstring>

namespace ZNORBFAULTS {

using namespace ZNORBTEST;

std::string difference(const Observation& usual, const Observation& seen) {
    std::string result;
    Observation all = seen;
    all.insert(usual.begin(), usual.end());
    const auto serves = seen.find("serves");
    if (serves != seen.end() && serves->second != "yes") { // what was never asked is no difference
        all = seen;
    }
    for (const auto& entry : all) {
        const std::string& question = entry.first;
        const auto before = usual.find(question);
        const auto now = seen.find(question);
        const std::string was = before == usual.end() ? "(none)" : before->second;
        const std::string is = now == seen.end() ? "(none)" : now->second;
        if (was != is) {
            result += (result.empty() ? "" : "; ") + question + ": " + is;
        }
    }
    return result.empty() ? "as ever" : result;
}

std::string describeEnd(int waitStatus) {
    return WIFSIGNALED(waitStatus) ? std::string("ended by SIG") + sigabbrev_np(WTERMSIG(waitStatus))
                                   : "status " + std::to_string(WEXITSTATUS(waitStatus));
}

std::string descriptorsOf(pid_t pid) {
    std::string result;
    for (int number = 0; number < 16; ++number) {
        const std::string target = linkOf(pid, "fd/" + std::to_string(number));
        if (!target.empty()) {
            result += (result.empty() ? "" : ", ") + std::to_string(number) + " " +
                      target.substr(0, target.find(':'));
        }
    }
    return result;
}

std::string octal(mode_t mode) {
    char text[16];
    (void)std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode));
    return text;
}

std::vector<std::string> withoutChance(const std::vector<std::string>& names) {
    const bool isAlone = currentSandboxMode() == SandboxMode::Isolated;
    std::vector<std::string> result;
    for (const std::string& name : names) {
        if (isUnfinishedSemaphore(name)) {
            result.emplace_back("/dev/shm/sem.XXXXXX");
        } else if (isAlone || name.find("znorb.") != std::string::npos) {
            result.push_back(name);
        }
    }
    return result;
}

} // namespace ZNORBFAULTS
