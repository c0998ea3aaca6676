#include "tests/faults/Campaign.h"

#include "tests/sandbox/ParallelSandboxes.h"
#include "tests/tracing/SystemCalls.h"
#include "tests/tracing/Words.h"

#include <algorithm>
#include <iterator>
#include <tuple>

namespace ZNORBFAULTS {
namespace {

using namespace ZNORBTRACING;
using ZNORBTEST::runInSandboxes;

constexpr unsigned fewOccurrences = 8;
/// A life that does not come to the fault's place, because chance is in it, proves nothing: it is run again.
constexpr int attempts = 3;

using Place = std::tuple<std::string, std::string, std::string>; // role, call, object

Place placeOf(const CallSite& site) {
    return {site.role, site.call, site.object};
}

/// The calls of the life that are worth a fault.
std::vector<RecordedCall> callsToFail(LifeKind kind, const UsualLives& lives) {
    const std::vector<RecordedCall>& all = lives.at(kind).calls;
    std::vector<RecordedCall> result;
    if (kind == LifeKind::Stop || kind == LifeKind::Refused) { // only what the other program does is new
        const std::string role = kind == LifeKind::Stop ? "stop" : "second";
        std::copy_if(all.begin(), all.end(), std::back_inserter(result),
                     [&role](const RecordedCall& call) { return call.site.role == role; });
        return result;
    }
    if (kind == LifeKind::Quit) {
        return all;
    }
    // Once its thread runs main only waits; what it does after that is the signal handler's.
    const auto isThreadStart = [](const RecordedCall& call) {
        return call.site.role == "main" && call.site.object == "thread";
    };
    std::copy_if(std::find_if(all.begin(), all.end(), isThreadStart), all.end(), std::back_inserter(result),
                 [&isThreadStart](const RecordedCall& call) {
                     return call.site.role == "main" && !isThreadStart(call);
                 });
    return result;
}

bool isOurs(const RecordedCall& call) {
    return call.isInMain || call.site.object == "shared event";
}

std::vector<Fault> faultsAt(const RecordedCall& recorded) {
    std::vector<Fault> faults;
    const SystemCall& call = *findSystemCall(recorded.site.call);
    for (const int error : call.errors) {
        const bool isLate = recorded.site.call == "close" && error != EBADF;
        faults.push_back({recorded.site, isLate ? FaultKind::FailsLate : FaultKind::Fails, error});
    }
    if (call.isTransfer && recorded.result >= 2) {
        faults.push_back({recorded.site, FaultKind::OneByte, 0});
        faults.push_back({recorded.site, FaultKind::Half, 0});
    }
    if (recorded.site.occurrence == 1 && recorded.site.call != "close") {
        faults.push_back({recorded.site, FaultKind::FailsAlways, call.errors.back()});
    }
    return faults;
}

/// A life's record as lines of words with tabs between them; no text of a life holds either.
std::string serialise(const LifeRecord& life) {
    std::string text;
    for (const auto& [question, answer] : life.observation) {
        text += "seen\t" + question + "\t" + answer + "\n";
    }
    for (const RecordedCall& call : life.calls) {
        text += "call\t" + call.site.role + "\t" + call.site.call + "\t" + call.site.object + "\t" +
                std::to_string(call.site.occurrence) + "\t" + std::to_string(call.result) + "\t" +
                (call.isInMain ? "1" : "0") + "\n";
    }
    return text;
}

LifeRecord parseRecord(const std::string& text) {
    LifeRecord life;
    for (const std::string& line : splitAt('\n', text)) {
        const std::vector<std::string> words = splitAt('\t', line);
        if (words[0] == "seen") {
            life.observation[words[1]] = words[2];
        } else if (words[0] == "call") {
            life.calls.push_back({{words[1], words[2], words[3], static_cast<unsigned>(std::stoul(words[4]))},
                                  std::stol(words[5]),
                                  words[6] == "1"});
        }
    }
    return life;
}

} // namespace

std::vector<Injection> planInjections(const UsualLives& lives, bool briefly) {
    std::vector<Injection> plan;
    std::size_t turn = 0;
    for (const LifeKind kind : allLifeKinds) {
        const std::vector<RecordedCall> calls = callsToFail(kind, lives);
        std::map<Place, unsigned> occurrences;
        for (const RecordedCall& call : calls) {
            unsigned& most = occurrences[placeOf(call.site)];
            most = std::max(most, call.site.occurrence);
        }
        for (const RecordedCall& call : calls) {
            const unsigned most = occurrences[placeOf(call.site)];
            const unsigned number = call.site.occurrence;
            const bool isChosen =
                most <= fewOccurrences || number <= 2 || number == most / 2 || number == most;
            if (!isOurs(call) || !isChosen) {
                continue;
            }
            const std::vector<Fault> faults = faultsAt(call);
            if (briefly) {
                // Two of them that are far apart in the list, where there are two.
                plan.push_back({kind, faults[turn % faults.size()], false});
                if (faults.size() > 1) {
                    plan.push_back({kind, faults[(turn + faults.size() / 2) % faults.size()], false});
                }
                ++turn;
                continue;
            }
            for (const Fault& fault : faults) {
                // Waited for in one case, as an example of its kind.
                const bool isPatient = kind == LifeKind::Stop && call.site.call == "sendto" &&
                                       fault.error == ECONNRESET && fault.kind == FaultKind::Fails;
                plan.push_back({kind, fault, isPatient});
            }
        }
    }
    return plan;
}

UsualLives recordUsualLives(std::string& problem) {
    UsualLives lives;
    for (const LifeKind kind : allLifeKinds) {
        const std::vector<std::string> texts = runInSandboxes(1, [&](std::size_t) {
            const LifeRecord life = runLife(kind, {Fault(), true, {}, {}, false});
            const LifeRecord again = runLife(kind, LifeSettings());
            const std::string differing = difference(life.observation, again.observation);
            return differing == "as ever" ? serialise(life) : differing;
        });
        if (!texts.front().starts_with("seen\t")) {
            problem = "two lives that end by " + describe(kind) + " differ: " + texts.front();
            return {};
        }
        lives[kind] = parseRecord(texts.front());
        for (const RecordedCall& call : lives[kind].calls) {
            if (call.site.call.starts_with(unlistedCall)) {
                problem = "a life that ends by " + describe(kind) +
                          " makes a system call that is in no list: " + call.site.call;
                return {};
            }
        }
    }
    return lives;
}

std::vector<Outcome> runInjections(const UsualLives& lives, const std::vector<Injection>& plan) {
    const std::vector<std::string> texts = runInSandboxes(plan.size(), [&](std::size_t index) {
        const Injection& injection = plan[index];
        LifeRecord life;
        for (int attempt = 0; attempt < attempts && !life.isFaultInjected; ++attempt) {
            life = runLife(injection.life, {injection.fault, false, {}, {}, injection.isPatient});
        }
        return (life.isFaultInjected ? injectedMark : "") +
               difference(lives.at(injection.life).observation, life.observation);
    });
    return outcomesOf<Outcome>(plan, texts);
}

} // namespace ZNORBFAULTS
