/// An allocator to be preloaded into the responder: it counts the allocations of each process and thread of
/// a life, and fails the one that it is told to. Everything else is the C library's own allocator.
///
/// Nothing in here allocates. Other programs that inherit it are left alone.

#include "tests/faults/FailingAllocator.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

extern "C" {
// The C library's allocator under its own names.
void* __libc_malloc(std::size_t size);                          // NOLINT
void* __libc_calloc(std::size_t count, std::size_t size);       // NOLINT
void* __libc_realloc(void* memory, std::size_t size);           // NOLINT
void* __libc_memalign(std::size_t alignment, std::size_t size); // NOLINT
}

namespace {

using namespace ZNORBFAULTS;

constexpr std::uint32_t unknownRole = ~0U;

AllocationControl* s_control = nullptr;
bool s_isPrepared = false;
AllocationRole s_firstRole = AllocationRole::Invoking;
pid_t s_firstProcess = -1;

// In the block that comes with every thread: reaching it allocates nothing.
__attribute__((tls_model("initial-exec"))) thread_local std::uint32_t t_role = unknownRole;
__attribute__((tls_model("initial-exec"))) thread_local std::uint32_t t_count = 0;
__attribute__((tls_model("initial-exec"))) thread_local pid_t t_process = -1;

void prepare() {
    s_isPrepared = true;
    s_firstProcess = getpid();
    const char* path = getenv(allocationControlVariable);
    if (path == nullptr || std::strcmp(program_invocation_short_name, "znorbresponder") != 0) {
        return;
    }
    const char* role = getenv(allocationRoleVariable);
    if (role != nullptr) {
        s_firstRole = std::strcmp(role, "stop") == 0     ? AllocationRole::Stop
                      : std::strcmp(role, "second") == 0 ? AllocationRole::Second
                                                         : AllocationRole::Invoking;
    }
    const int file = open(path, O_RDWR | O_CLOEXEC);
    void* memory =
        file == -1 ? MAP_FAILED
                   : mmap(nullptr, sizeof(AllocationControl), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (file != -1) {
        (void)close(file);
    }
    s_control = memory == MAP_FAILED ? nullptr : static_cast<AllocationControl*>(memory);
}

std::uint32_t roleAfterFork(std::uint32_t role) {
    switch (static_cast<AllocationRole>(role)) {
    case AllocationRole::Invoking:
        return static_cast<std::uint32_t>(AllocationRole::Intermediate);
    case AllocationRole::Intermediate:
        return static_cast<std::uint32_t>(AllocationRole::Main);
    case AllocationRole::Responder:
        return static_cast<std::uint32_t>(AllocationRole::Launch);
    default:
        return static_cast<std::uint32_t>(AllocationRole::None);
    }
}

/// A fork is noticed by its new process number at the first allocation after it, and usually before that by
/// the handler below; but not every kind of fork runs those.
std::uint32_t ownRole() {
    const pid_t process = getpid();
    if (t_role == unknownRole) {
        const bool isFirst = process == s_firstProcess && gettid() == process;
        t_role = static_cast<std::uint32_t>(isFirst ? s_firstRole : AllocationRole::Responder);
    } else if (t_process != process) {
        t_role = roleAfterFork(t_role);
        t_count = 0;
    }
    t_process = process;
    return t_role;
}

__attribute__((constructor)) void followForks() {
    (void)pthread_atfork(nullptr, nullptr, []() { (void)ownRole(); });
}

/// Counts the caller's allocation; true when it is to fail.
bool fails() {
    if (!s_isPrepared) {
        prepare();
    }
    if (s_control == nullptr) {
        return false;
    }
    const std::uint32_t role = ownRole();
    const std::uint32_t number = ++t_count;
    if (role < allocationRoles && s_control->counts[role] < number) {
        s_control->counts[role] = number;
    }
    const bool isAimedAt = role == s_control->role && number == s_control->number;
    const bool isDue = isAimedAt || (s_control->forEver && s_control->hasFailed);
    if (isDue) {
        s_control->hasFailed = true;
        errno = ENOMEM;
    }
    return isDue;
}

} // namespace

extern "C" {

void* malloc(std::size_t size) {
    return fails() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    return fails() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) {
    return fails() ? nullptr : __libc_realloc(memory, size);
}

void* memalign(std::size_t alignment, std::size_t size) {
    return fails() ? nullptr : __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return fails() ? nullptr : __libc_memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
    void* result = fails() ? nullptr : __libc_memalign(alignment, size);
    if (result == nullptr) {
        return ENOMEM;
    }
    *memory = result;
    return 0;
}
}
