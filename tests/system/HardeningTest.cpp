/// What the compiler and the linker have put into the executable against defects that nobody has found yet,
/// as the file shows it and as it is in the running daemon. Read from the program itself, not from the
/// build's flags.

#include "tests/support/DaemonDriver.h"
#include "tests/support/Executable.h"
#include "tests/support/Files.h"
#include "tests/support/Sanitizers.h"

#include <elf.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace ZNORBTEST;
using testing::AnyOf;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;

// Debug, coverage and sanitizer builds are made to be looked into: they are not hardened in all of this, and
// a sanitizer has memory of its own in the daemon. What they cannot have is left out of them.
#if defined(NDEBUG) && !ZNORB_ADDRESS_SANITIZER && !ZNORB_THREAD_SANITIZER
#define ZNORB_HARDENED 1
#else
#define ZNORB_HARDENED 0
#endif

class Hardening : public testing::Test {
protected:
    DaemonDriver driver;
    const Executable executable{driver.program()};
};

TEST_F(Hardening, ExecutableIsPositionIndependent) {
    EXPECT_EQ(executable.header().e_type, ET_DYN);
    EXPECT_NE(executable.dynamic(DT_FLAGS_1) & DF_1_PIE, 0U);
}

TEST_F(Hardening, StackIsNotExecutable) {
    const std::vector<Elf64_Phdr> stack = executable.segments(PT_GNU_STACK);
    ASSERT_EQ(stack.size(), 1U); // without it the kernel makes the stack executable
    EXPECT_EQ(stack[0].p_flags & PF_X, 0U);
}

TEST_F(Hardening, NoSegmentIsWritableAndExecutable) {
    for (const Elf64_Phdr& segment : executable.segments(PT_LOAD)) {
        EXPECT_NE(segment.p_flags & (PF_W | PF_X), static_cast<unsigned>(PF_W | PF_X)) << segment.p_vaddr;
    }
}

TEST_F(Hardening, CodeNeedsNoRelocation) {
    EXPECT_EQ(executable.dynamic().count(DT_TEXTREL), 0U);
    EXPECT_EQ(executable.dynamic(DT_FLAGS) & DF_TEXTREL, 0U);
}

TEST_F(Hardening, NoLibraryIsLookedForInFoldersOfTheExecutablesOwn) {
    EXPECT_EQ(executable.dynamic().count(DT_RPATH), 0U);
    EXPECT_EQ(executable.dynamic().count(DT_RUNPATH), 0U);
}

#if ZNORB_HARDENED

class ReleaseHardening : public Hardening {
protected:
    static void requireKnownCode(const Executable& executable) {
        if (executable.header().e_machine != EM_X86_64) {
            GTEST_SKIP() << "no machine code but that of x86-64 is known here";
        }
        ASSERT_FALSE(executable.ownFunctions().empty())
            << "the executable has no symbols to find its code by";
    }

    /// Those of the system's own functions in whose code `isFound`.
    template <typename Predicate>
    std::vector<std::string> ownFunctionsWhere(Predicate isFound) const {
        std::vector<std::string> names;
        for (const Function& function : executable.ownFunctions()) {
            if (isFound(function)) {
                names.push_back(function.name);
            }
        }
        return names;
    }

    void print(const char* what, std::size_t count) const {
        std::printf("  %s: %zu of %zu functions\n", what, count, executable.ownFunctions().size());
        RecordProperty(what, static_cast<int>(count));
    }
};

TEST_F(ReleaseHardening, ConstantsAreNeitherExecutableNorWritable) {
    const std::vector<std::uint64_t> names = executable.ownObjects("_ZTS");
    ASSERT_FALSE(names.empty()) << "the executable has no classes to find its constants by";
    for (const Elf64_Phdr& segment : executable.segments(PT_LOAD)) {
        for (const std::uint64_t address : names) {
            EXPECT_TRUE(segment.p_flags == PF_R || !Executable::isWithin(address, segment))
                << std::hex << address;
        }
    }
}

TEST_F(ReleaseHardening, OnlyCodeIsExecutableAndOnlyVariablesAreWritable) {
    ASSERT_FALSE(executable.dataSections().empty());
    for (const Elf64_Phdr& segment : executable.segments(PT_LOAD)) {
        for (const Elf64_Shdr& section : executable.dataSections()) {
            const bool isAllowed = (segment.p_flags & PF_X) == 0 &&
                                   ((segment.p_flags & PF_W) == 0 || (section.sh_flags & SHF_WRITE) != 0);
            EXPECT_TRUE(isAllowed || !Executable::isWithin(section.sh_addr, segment))
                << std::hex << section.sh_addr;
        }
    }
}

TEST_F(ReleaseHardening, TablesOfAddressesAreAllFilledInAtTheStartAndReadOnlyFromThenOn) {
    ASSERT_EQ(executable.segments(PT_GNU_RELRO).size(), 1U);
    EXPECT_TRUE((executable.dynamic(DT_FLAGS) & DF_BIND_NOW) != 0 ||
                (executable.dynamic(DT_FLAGS_1) & DF_1_NOW) != 0);
    // The table through which the code jumps lies in what becomes read-only.
    const Elf64_Phdr relro = executable.segments(PT_GNU_RELRO)[0];
    EXPECT_TRUE(Executable::isWithin(executable.dynamic(DT_PLTGOT), relro));
    // And those through which it calls its own virtual functions.
    const std::vector<std::uint64_t> tables = executable.ownObjects("_ZTV");
    ASSERT_FALSE(tables.empty()) << "the executable has no classes to find their tables by";
    for (const std::uint64_t address : tables) {
        EXPECT_TRUE(Executable::isWithin(address, relro)) << std::hex << address;
    }
}

TEST_F(ReleaseHardening, FunctionsWithArraysGuardTheirReturnAddress) {
    ASSERT_NO_FATAL_FAILURE(requireKnownCode(executable));
    // mov/sub/cmp/xor %fs:0x28: the guard's value.
    const std::vector<std::string> guarded = ownFunctionsWhere([](const Function& function) {
        const std::string guard("\x25\x28\0\0\0", 5);
        for (auto i = function.code.find(guard); i != std::string_view::npos;
             i = function.code.find(guard, i + 1)) {
            if (i >= 4 && function.code.substr(i - 4, 2) == "\x64\x48") {
                return true;
            }
        }
        return false;
    });
    print("guarded", guarded.size());
    // The one with the buffer for a request, or the one that it has become a part of.
    EXPECT_THAT(guarded, Contains(AnyOf(testing::HasSubstr("UnifiedResponderMonitor11readRequest"),
                                        testing::HasSubstr("UnifiedResponderMonitor15serveConnection"))));
    std::vector<std::string> all;
    for (const auto& [address, name] : executable.functions()) {
        all.push_back(name);
    }
    EXPECT_THAT(all, Contains(testing::StartsWith("__stack_chk_fail")));
}

TEST_F(ReleaseHardening, FormattingCallsAreTheCheckedOnes) {
    ASSERT_NO_FATAL_FAILURE(requireKnownCode(executable));
    std::multimap<std::uint64_t, std::string> checked;
    bool isShared = false;
    for (const auto& [address, name] : executable.functions()) {
        const std::string plain = name.substr(0, name.find('@'));
        if (plain.ends_with("printf_chk")) {
            (void)checked.emplace(address, plain);
            isShared = isShared || address == 0;
        }
    }
    ASSERT_THAT(checked, Not(IsEmpty()));
    if (isShared) {
        return; // nobody but the executable itself can want it
    }
    const std::vector<std::string> callers = ownFunctionsWhere([&checked](const Function& function) {
        const std::set<std::uint64_t> calls = Executable::callsOf(function);
        return std::any_of(calls.begin(), calls.end(),
                           [&checked](std::uint64_t target) { return checked.count(target) != 0; });
    });
    print("checked", callers.size());
    EXPECT_THAT(callers, Contains(testing::HasSubstr("Logger")));
}

TEST_F(ReleaseHardening, LargeStackFramesAreTouchedPageByPage) {
    ASSERT_NO_FATAL_FAILURE(requireKnownCode(executable));
    // sub $0x1000,%rsp and a write to (%rsp) behind it, as g++ and clang++ have it.
    const std::string step("\x48\x81\xec\0\x10\0\0", 7);
    const std::string orZero("\x48\x83\x0c\x24\0", 5);
    const std::string moveZero("\x48\xc7\x04\x24\0\0\0\0", 8);
    const std::vector<std::string> probed = ownFunctionsWhere([&](const Function& function) {
        return function.code.find(step + orZero) != std::string_view::npos ||
               function.code.find(step + moveZero) != std::string_view::npos;
    });
    print("probed", probed.size());
    EXPECT_THAT(probed, Contains(testing::HasSubstr("esponse"))); // the first read's 8192 bytes
}

TEST_F(ReleaseHardening, FunctionsAreMarkedAsTargetsOfIndirectCalls) {
    ASSERT_NO_FATAL_FAILURE(requireKnownCode(executable));
    const std::string_view mark = "\xf3\x0f\x1e\xfa";
    const std::vector<std::string> marked =
        ownFunctionsWhere([mark](const Function& function) { return function.code.starts_with(mark); });
    const std::vector<std::string> unmarked = ownFunctionsWhere(
        [mark](const Function& function) { return function.isGlobal && !function.code.starts_with(mark); });
    print("marked", marked.size());
    EXPECT_THAT(marked, Not(IsEmpty()));
    EXPECT_THAT(unmarked, IsEmpty());
}

#endif

// ---- the running daemon ----------------------------------------------------------------------------------

struct Mapping {
    std::uint64_t begin;
    std::uint64_t end;
    std::string rights; ///< as in "r-xp"
    std::string path;
};

std::vector<Mapping> mappingsOf(pid_t pid) {
    std::vector<Mapping> result;
    const std::string text = readFile("/proc/" + std::to_string(pid) + "/maps");
    for (std::size_t start = 0; start < text.size(); start = text.find('\n', start) + 1) {
        unsigned long begin = 0;
        unsigned long end = 0;
        char rights[8] = {};
        char path[512] = {};
        const std::string line = text.substr(start, text.find('\n', start) - start);
        EXPECT_GE(std::sscanf(line.c_str(), "%lx-%lx %7s %*s %*s %*s %511s", &begin, &end, rights, path), 3)
            << line;
        result.push_back({begin, end, rights, path});
    }
    return result;
}

std::uint64_t baseOf(const std::vector<Mapping>& mappings, const std::string& program) {
    for (const Mapping& mapping : mappings) {
        if (mapping.path == program) {
            return mapping.begin;
        }
    }
    return 0;
}

class RunningDaemon : public Hardening {
protected:
    void SetUp() override { ASSERT_TRUE(driver.startServing()); }
};

TEST_F(RunningDaemon, HasNoMemoryThatIsWritableAndExecutable) {
    for (const Mapping& mapping : mappingsOf(driver.daemon())) {
        EXPECT_FALSE(mapping.rights[1] == 'w' && mapping.rights[2] == 'x') << mapping.path;
    }
}

#if ZNORB_HARDENED
TEST_F(RunningDaemon, HasItsTablesOfAddressesReadOnly) {
    const std::vector<Mapping> mappings = mappingsOf(driver.daemon());
    const std::uint64_t base = baseOf(mappings, driver.program());
    ASSERT_NE(base, 0U);
    constexpr std::uint64_t page = 4096;
    const Elf64_Phdr relro = executable.segments(PT_GNU_RELRO).at(0);
    const std::uint64_t begin = (base + relro.p_vaddr + page - 1) / page * page; // whole pages only
    const std::uint64_t end = (base + relro.p_vaddr + relro.p_memsz) / page * page;
    ASSERT_LT(begin, end);
    std::uint64_t covered = 0;
    for (const Mapping& mapping : mappings) {
        const std::uint64_t from = std::max(begin, mapping.begin);
        const std::uint64_t to = std::min(end, mapping.end);
        if (from < to) {
            EXPECT_EQ(mapping.rights, "r--p");
            covered += to - from;
        }
    }
    EXPECT_EQ(covered, end - begin);
    const std::uint64_t table = base + executable.dynamic(DT_PLTGOT);
    EXPECT_TRUE(table >= begin && table < end);
}
#endif

TEST_F(RunningDaemon, IsLoadedWhereNobodyCanForetell) {
    if (readFile("/proc/sys/kernel/randomize_va_space")[0] == '0') {
        GTEST_SKIP() << "this kernel is told not to randomise addresses";
    }
    std::set<std::uint64_t> bases;
    for (int start = 0; start < 4; ++start) {
        (void)bases.insert(baseOf(mappingsOf(driver.daemon()), driver.program()));
        ASSERT_EQ(driver.run({"-stop"}).end, exitedWith(255));
        ASSERT_TRUE(driver.startServing());
    }
    EXPECT_EQ(bases.count(0), 0U);
    EXPECT_GT(bases.size(), 1U);
}

} // namespace
