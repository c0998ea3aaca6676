#include "tests/faults/Campaign.h"

#include "tests/faults/SystemCalls.h"
#include "tests/faults/Words.h"
#include "tests/sandbox/Sandbox.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <tuple>

namespace ZNORBFAULTS {
namespace {

constexpr std::size_t textSize = 4000;
constexpr unsigned fewOccurrences = 8;
/// A life that does not come to the fault's place, because chance is in it, proves nothing: it is run again.
constexpr int attempts = 3;

struct Slot {
    std::atomic<bool> isDone;
    char text[textSize];
};

/// Shared between the parent, the workers and the runners of their sandboxes.
struct Board {
    std::atomic<std::size_t> next;
    Slot* slots;
};

void* mapShared(std::size_t size) {
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED ? nullptr : memory;
}

void work(Board& board, std::size_t count, const std::function<std::string(std::size_t)>& run) {
    for (std::size_t index = board.next++; index < count; index = board.next++) {
        const ZNORBTEST::SandboxOutcome outcome = ZNORBTEST::runSandboxed([&]() {
            const std::string text = run(index);
            std::strncpy(board.slots[index].text, text.c_str(), textSize - 1);
            board.slots[index].isDone = true;
            return EXIT_SUCCESS;
        });
        if (outcome.kind != ZNORBTEST::SandboxOutcome::Kind::Ended) {
            std::strncpy(board.slots[index].text, ("no sandbox: " + outcome.reason).c_str(), textSize - 1);
            board.slots[index].isDone = true;
        }
    }
}

unsigned workerCount() {
    const char* mode = std::getenv("ZNORB_SANDBOX");
    const bool isSerial = mode != nullptr && std::strcmp(mode, "direct") == 0;
    const long processors = sysconf(_SC_NPROCESSORS_ONLN);
    return isSerial || processors < 1 ? 1U
                                      : 4U * static_cast<unsigned>(processors); // most of a life is waiting
}

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

std::vector<std::string> runInSandboxes(std::size_t count,
                                        const std::function<std::string(std::size_t)>& run) {
    Board* board = static_cast<Board*>(mapShared(sizeof(Board)));
    Slot* slots = static_cast<Slot*>(mapShared(count * sizeof(Slot)));
    if (board == nullptr || slots == nullptr) {
        return std::vector<std::string>(count, "no result: no memory");
    }
    board->slots = slots;
    std::vector<pid_t> workers(workerCount());
    for (pid_t& worker : workers) {
        worker = fork();
        if (worker == 0) {
            work(*board, count, run);
            _exit(EXIT_SUCCESS);
        }
    }
    for (const pid_t worker : workers) {
        while (worker > 0 && waitpid(worker, nullptr, 0) == -1 && errno == EINTR) {
        }
    }
    std::vector<std::string> texts;
    for (std::size_t index = 0; index < count; ++index) {
        texts.emplace_back(slots[index].isDone ? slots[index].text : "no result");
    }
    (void)munmap(slots, count * sizeof(Slot));
    (void)munmap(board, sizeof(Board));
    return texts;
}

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
    // The record of a life is longer than a slot: it comes through memory that is shared for this alone.
    constexpr std::size_t recordSize = 1U << 20U;
    char* record = static_cast<char*>(mapShared(recordSize));
    for (const LifeKind kind : allLifeKinds) {
        const std::vector<std::string> texts = runInSandboxes(1, [&](std::size_t) {
            const LifeRecord life = runLife(kind, {Fault(), true, {}, {}, false});
            const LifeRecord again = runLife(kind, LifeSettings());
            const std::string text = serialise(life);
            if (text.size() >= recordSize) {
                return std::string("a record too long");
            }
            std::memcpy(record, text.c_str(), text.size() + 1);
            return difference(life.observation, again.observation);
        });
        if (texts.front() != "as ever") {
            problem = "two lives that end by " + describe(kind) + " differ: " + texts.front();
            return {};
        }
        lives[kind] = parseRecord(record);
        for (const RecordedCall& call : lives[kind].calls) {
            if (call.site.call.starts_with(unlistedCall)) {
                problem = "a life that ends by " + describe(kind) +
                          " makes a system call that is in no list: " + call.site.call;
                return {};
            }
        }
    }
    (void)munmap(record, recordSize);
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
