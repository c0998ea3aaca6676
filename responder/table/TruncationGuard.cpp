#include "responder/table/TruncationGuard.h"

#include <sys/mman.h>

#include <atomic>
#include <csignal>

namespace ZNORBRESPONDER {

namespace {

constinit char* s_start = nullptr;
constinit std::size_t s_size = 0;
constinit std::atomic<bool> s_isLost = false;
struct sigaction s_previous = {};

bool isGuarded(const siginfo_t& fault) {
    const char* const address = static_cast<const char*>(fault.si_addr);
    return fault.si_code == BUS_ADRERR && address >= s_start && address < s_start + s_size;
}

bool replaceByZeroBytes() {
    return mmap(s_start, s_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) !=
           MAP_FAILED;
}

// Runs on the thread that touched the table, in the middle of that access. Allowed in here: system calls
// and lock-free atomics.
void handleBusError(int signalNumber, siginfo_t* fault, void* /*context*/) {
    if (isGuarded(*fault) && replaceByZeroBytes()) {
        s_isLost = true;
        return;
    }
    (void)std::signal(signalNumber, SIG_DFL);
    (void)raise(signalNumber); // delivered as soon as this handler returns
}

} // namespace

void guardAgainstTruncation(void* address, std::size_t size) {
    s_start = static_cast<char*>(address);
    s_size = size;
    struct sigaction action = {};
    action.sa_sigaction = handleBusError;
    action.sa_flags = SA_SIGINFO;
    (void)sigemptyset(&action.sa_mask);
    (void)sigaction(SIGBUS, &action, &s_previous);
}

void endTruncationGuard() {
    (void)sigaction(SIGBUS, &s_previous, nullptr);
    s_isLost = false;
}

bool isTruncated() {
    std::atomic_signal_fence(std::memory_order_seq_cst); // after the accesses that come before it
    return s_isLost;
}

} // namespace ZNORBRESPONDER
