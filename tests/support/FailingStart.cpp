#include "tests/support/FailingStart.h"

#include "tests/support/Allocations.h"
#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <string>

/// Of the coverage build alone, where what a process counts before this call is lost.
extern "C" __attribute__((weak)) void __llvm_profile_initialize();

namespace ZNORBTEST {
namespace {

constexpr int mostAllocations = 100000;

/// Hundreds of copies run one after the other, each of which a sanitizer makes slow.
constexpr Milliseconds boundOfAllCopies = 5 * usualBound;

bool hasPassedIn(pid_t child) {
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS;
}

/// Forks until it returns in a child.
int allocationsBeforeFailure() {
    for (int succeeding = 0; succeeding < mostAllocations; ++succeeding) {
        const pid_t child = fork();
        if (child == 0) {
            return succeeding;
        }
        if (child > 0 && hasPassedIn(child)) {
            _exit(EXIT_SUCCESS);
        }
    }
    _exit(EXIT_FAILURE);
}

} // namespace

bool failAllocationAtStart(std::size_t size, const char* variable) {
    if (!isCopyWith(variable)) {
        return false;
    }
    if (__llvm_profile_initialize != nullptr) {
        __llvm_profile_initialize();
    }
    std::set_terminate([]() { _exit(EXIT_FAILURE); }); // of most children: without a message or a core file
    static const FailingAllocation failure(allocationsBeforeFailure(), size, size);
    return true;
}

void expectToPassInCopyWith(const char* variable) {
    const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
    const ProgramResult copy = runProgram(
        {.program = "/proc/self/exe",
         .arguments = {std::string("--gtest_filter=") + test.test_suite_name() + "." + test.name()},
         .environment = {std::string(variable) + "=1", "GTEST_TOTAL_SHARDS=1", "GTEST_SHARD_INDEX=0"}},
        boundOfAllCopies);
    EXPECT_EQ(copy.end, exitedWith(EXIT_SUCCESS)) << copy.output << copy.errors;
    EXPECT_NE(copy.output.find("[  PASSED  ] 1 test."), std::string::npos) << copy.output;
}

bool isCopyWith(const char* variable) {
    return std::getenv(variable) != nullptr;
}

} // namespace ZNORBTEST
