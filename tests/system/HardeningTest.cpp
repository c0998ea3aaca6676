/// What the compiler and the linker have put into the executable against defects that nobody has found yet,
/// as it is in the running daemon. What the file shows of it is looked for by `hardening`, beside this.

#include "tests/support/DaemonDriver.h"
#include "tests/support/Files.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/ShellScript.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <set>
#include <sstream>

namespace {

using namespace ZNORBTEST;

// Debug, coverage and sanitizer builds are made to be looked into: they are not hardened in all of this, and
// a sanitizer has memory of its own in the daemon. What they cannot have is left out of them.
#if defined(NDEBUG) && !ZNORB_ADDRESS_SANITIZER && !ZNORB_THREAD_SANITIZER
#define ZNORB_HARDENED 1
#else
#define ZNORB_HARDENED 0
#endif

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

class RunningDaemon : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(driver.startServing()); }

    /// The numbers that an awk program makes of what readelf says of the executable.
    std::vector<std::uint64_t> numbersOfTheFile(const std::string& awkProgram) const {
        const ProgramResult result = runProgram(shellScript(
            "", "readelf -W --segments --dynamic " + driver.program() + " | awk '" + awkProgram + "'"));
        EXPECT_EQ(result.end, exitedWith(0)) << result.errors;
        std::istringstream words(result.output);
        std::vector<std::uint64_t> numbers;
        for (std::string word; words >> word;) {
            numbers.push_back(std::stoull(word, nullptr, 16));
        }
        return numbers;
    }

    DaemonDriver driver;
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
    const std::vector<std::uint64_t> relro =
        numbersOfTheFile("/GNU_RELRO/ { print $3, $6 } /PLTGOT/ { print $3 }");
    ASSERT_EQ(relro.size(), 3U);
    const std::uint64_t begin = (base + relro[0] + page - 1) / page * page; // whole pages only
    const std::uint64_t end = (base + relro[0] + relro[1]) / page * page;
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
    const std::uint64_t table = base + relro[2];
    EXPECT_TRUE(table >= begin && table < end);
}
#endif

TEST_F(RunningDaemon, IsLoadedWhereNobodyCanForetell) {
    ZNORB_SKIP_IF(readFile("/proc/sys/kernel/randomize_va_space")[0] == '0')
        << "this kernel is told not to randomise addresses";
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
