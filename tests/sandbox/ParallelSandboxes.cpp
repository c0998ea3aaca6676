#include "tests/sandbox/ParallelSandboxes.h"

#include "tests/sandbox/Sandbox.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace ZNORBTEST {
namespace {

constexpr std::size_t textSize = 262144;
constexpr unsigned perProcessor = 4;

struct Slot {
    std::atomic<bool> isDone;
    char text[textSize];
};

/// Shared between the parent, the workers and the runners of their sandboxes.
struct Board {
    std::atomic<std::size_t> next;
    Slot* slots;
};

/// All zero; takes memory only where it is written to.
void* mapShared(std::size_t size) {
    void* memory =
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return memory == MAP_FAILED ? nullptr : memory;
}

void note(Slot& slot, const std::string& text) {
    std::memcpy(slot.text, text.data(), std::min(text.size(), textSize - 1));
    slot.isDone = true;
}

void work(Board& board, std::size_t count, const std::function<std::string(std::size_t)>& run) {
    for (std::size_t index = board.next++; index < count; index = board.next++) {
        const SandboxOutcome outcome = runSandboxed([&]() {
            note(board.slots[index], run(index));
            return EXIT_SUCCESS;
        });
        if (outcome.kind != SandboxOutcome::Kind::Ended) {
            note(board.slots[index], "no sandbox: " + outcome.reason);
        }
    }
}

unsigned workerCount() {
    const char* mode = std::getenv("ZNORB_SANDBOX");
    const bool isSerial = mode != nullptr && std::strcmp(mode, "direct") == 0;
    const long processors = sysconf(_SC_NPROCESSORS_ONLN);
    return isSerial || processors < 1 ? 1U : perProcessor * static_cast<unsigned>(processors);
}

} // namespace

std::vector<std::string> runInSandboxes(std::size_t count,
                                        const std::function<std::string(std::size_t)>& run) {
    std::vector<std::string> texts;
    auto* board = static_cast<Board*>(mapShared(sizeof(Board)));
    auto* slots = static_cast<Slot*>(mapShared(count * sizeof(Slot)));
    if (board == nullptr || slots == nullptr) {
        texts.assign(count, "no result: no memory");
        return texts;
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
    for (std::size_t index = 0; index < count; ++index) {
        texts.emplace_back(slots[index].isDone ? slots[index].text : "no result");
    }
    (void)munmap(slots, count * sizeof(Slot));
    (void)munmap(board, sizeof(Board));
    return texts;
}

} // namespace ZNORBTEST
