#include "tests/support/StoppedCall.h"

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>

#include <algorithm>
#include <cstring>

namespace ZNORBTEST {
namespace {

/// Reads up to `size` bytes; returns how many could be had.
std::size_t readMemory(pid_t thread, std::uint64_t address, void* target, std::size_t size) {
    const iovec local = {target, size};
    const iovec remote = {reinterpret_cast<void*>(address), size}; // NOLINT: an address of another process
    const ssize_t length = process_vm_readv(thread, &local, 1, &remote, 1, 0);
    return length > 0 ? static_cast<std::size_t>(length) : 0;
}

#if defined(__x86_64__)

template <typename Change>
void changeRegisters(pid_t thread, Change change) {
    user_regs_struct registers{};
    if (ptrace(PTRACE_GETREGS, thread, nullptr, &registers) == 0) {
        change(registers);
        (void)ptrace(PTRACE_SETREGS, thread, nullptr, &registers);
    }
}

#endif

} // namespace

bool readStoppedCall(pid_t thread, StoppedCall& call) {
    __ptrace_syscall_info info{};
    if (ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info) <= 0) {
        return false;
    }
    call.isStart = info.op == PTRACE_SYSCALL_INFO_ENTRY;
    if (call.isStart) {
        call.number = static_cast<long>(info.entry.nr);
        for (unsigned i = 0; i < call.arguments.size(); ++i) {
            call.arguments[i] = info.entry.args[i];
        }
    } else if (info.op == PTRACE_SYSCALL_INFO_EXIT) {
        call.result = static_cast<long>(info.exit.rval);
    } else {
        return false;
    }
    return true;
}

#if defined(__x86_64__)

bool canChangeCalls() {
    return true;
}

void skipCall(pid_t thread) {
    changeRegisters(thread, [](user_regs_struct& registers) {
        registers.orig_rax = static_cast<unsigned long long>(-1);
    });
}

void setArgument(pid_t thread, unsigned index, std::uint64_t value) {
    changeRegisters(thread, [index, value](user_regs_struct& registers) {
        const std::array<unsigned long long*, 6> places = {&registers.rdi, &registers.rsi, &registers.rdx,
                                                           &registers.r10, &registers.r8,  &registers.r9};
        *places[index] = value;
    });
}

void setResult(pid_t thread, long value) {
    changeRegisters(thread, [value](user_regs_struct& registers) {
        registers.rax = static_cast<unsigned long long>(value);
    });
}

#else

bool canChangeCalls() {
    return false;
}

void skipCall(pid_t) {}
void setArgument(pid_t, unsigned, std::uint64_t) {}
void setResult(pid_t, long) {}

#endif

std::string readText(pid_t thread, std::uint64_t address) {
    std::array<char, 256> text{};
    const std::size_t page = 4096;
    // Not beyond the page's end first: the next one may not be there.
    const std::size_t first = std::min(text.size() - 1, page - static_cast<std::size_t>(address % page));
    std::size_t length = readMemory(thread, address, text.data(), first);
    if (length == first && first < text.size() - 1 && std::memchr(text.data(), 0, length) == nullptr) {
        (void)readMemory(thread, address + length, text.data() + length, text.size() - 1 - length);
    }
    return text.data();
}

std::string unlinkedBy(pid_t thread, const StoppedCall& call) {
#ifdef SYS_unlink
    if (call.isStart && call.number == SYS_unlink) {
        return readText(thread, call.arguments[0]);
    }
#endif
    return call.isStart && call.number == SYS_unlinkat ? readText(thread, call.arguments[1]) : std::string();
}

std::uint64_t readWord(pid_t thread, std::uint64_t address) {
    std::uint64_t word = 0;
    return readMemory(thread, address, &word, sizeof word) == sizeof word ? word : 0;
}

} // namespace ZNORBTEST
