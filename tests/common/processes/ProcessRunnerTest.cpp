#include "common/processes/ProcessRunner.h"

#include "tests/support/Allocations.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Rows.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Scarcity.h"
#include "tests/support/StandIns.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Waiting.h"
#include "tests/support/Watchdog.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <regex>

namespace {

using namespace ZNORBTEST;

using namespace ORBCOMMON;

// A folder with executables of the test's own, which is also the current directory.
class ProcessRunnerTest : public testing::Test {
protected:
    void SetUp() override { std::filesystem::current_path(folder); }

    void TearDown() override { std::filesystem::current_path(before); }

    const ZNORBTEST::Watchdog watchdog{100};

    // Runs what can be executed, so that no copy of the test comes back.
    static pid_t run(const std::string& program, const std::string& workingDirectory,
                     const std::vector<std::string>& arguments, bool wait = true) {
        const pid_t process = runProcess(program, workingDirectory, arguments, wait);
        if (process == 0) {
            _exit(99);
        }
        return process;
    }

    void makeScript(const std::string& path, const std::string& commands) const {
        writeFile(folder + "/" + path, "#!/bin/sh\n" + commands + "\n", 0700);
    }

    const TemporaryFolder temporary;
    const std::string folder = std::filesystem::canonical(temporary.path()).string();
    const std::string result = folder + "/result"; // where the programs leave what they saw
    const std::filesystem::path before = std::filesystem::current_path();
};

TEST_F(ProcessRunnerTest, ReturnsTheProcessIdOfTheProgram) {
    const pid_t process = run("sh", "", {"-c", "echo $$ > result"});
    EXPECT_GT(process, 0);
    EXPECT_EQ(readFile(result), std::to_string(process) + "\n");
}

/// What runs in the folder, with which arguments, and what it leaves there.
struct Run {
    const char* name;
    std::string script; ///< of the program "show"; "" for the shell, found on the path
    std::vector<std::string> arguments;
    std::string result; ///< "~" stands for the folder

    friend void PrintTo(const Run& row, std::ostream* stream) { *stream << row.name; }
};

class ProcessRun : public ProcessRunnerTest, public testing::WithParamInterface<Run> {};

TEST_P(ProcessRun, LeavesItsResult) {
    const bool isShell = GetParam().script.empty();
    makeScript("show", GetParam().script);
    (void)run(isShell ? "sh" : "show", isShell ? "" : folder, GetParam().arguments);
    EXPECT_EQ(readFile(result), std::regex_replace(GetParam().result, std::regex("~"), folder) + "\n");
}

const Run runs[] = {
    {"EveryArgumentInOrderAndUnchanged",
     R"(for a in "$@"; do printf '[%s]' "$a"; done > result; echo >> result)",
     {"-lang", "", "two words", "a\"b$c\n*", "-index", "3"},
     "[-lang][][two words][a\"b$c\n*][-index][3]"},
    {"NoArguments", "echo $# > result", {}, "0"},
    {"ManyAndLongArguments", R"(shift 999; echo "$# ${#1}" > result)",
     std::vector<std::string>(1000, std::string(100, 'x')), "1 100"},
    {"FirstElementIsTheProgramWithoutADirectory", "", {"-c", "echo \"$0\" > result"}, "sh"},
    {"RunsInTheCallersDirectoryWithoutAnother", "", {"-c", "pwd > result"}, "~"},
};

INSTANTIATE_TEST_SUITE_P(ProcessRunner, ProcessRun, testing::ValuesIn(runs), rowName);

TEST_F(ProcessRunnerTest, FirstElementIsTheWorkingDirectoryASlashAndTheProgram) {
    std::filesystem::create_symlink("/bin/sh", folder + "/tool");
    (void)run("tool", folder, {"-c", "echo \"$0\" > result"});
    EXPECT_EQ(readFile(result), folder + "/tool\n");
}

TEST_F(ProcessRunnerTest, ProgramRunsInTheWorkingDirectory) {
    std::filesystem::create_directory("bin");
    makeScript("bin/show", "pwd > ../result");
    (void)run("show", folder + "/bin", {});
    EXPECT_EQ(readFile(result), folder + "/bin\n");
    EXPECT_EQ(std::filesystem::current_path(), folder) << "the caller stays where it is";
}

TEST_F(ProcessRunnerTest, WithoutAWorkingDirectoryNoneIsEntered) {
    const InPlaceOf<chdir> entering([](const char*) -> int { _exit(50); });
    const pid_t process = run("sh", "", {"-c", "exit 3"}, false);
    int status = 0;
    ASSERT_EQ(waitpid(process, &status, 0), process);
    EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST_F(ProcessRunnerTest, ProgramIsSearchedAsTheShellWould) {
    std::filesystem::create_directory("bin");
    makeScript("bin/searched", "echo found > result");
    const std::string path = std::string(std::getenv("PATH"));
    ASSERT_EQ(setenv("PATH", (folder + "/bin:" + path).c_str(), 1), 0);
    (void)run("searched", "", {});
    (void)setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(readFile(result), "found\n");
}

TEST_F(ProcessRunnerTest, WithAWorkingDirectoryProgramIsNotSearched) {
    expectEndOfForked(exitedWith(7), [this] {
        const pid_t process = runProcess("sh", folder, {"-c", "exit 3"}, false);
        if (process == 0) {
            _exit(7);
        }
        int copyStatus = 0;
        (void)waitpid(process, &copyStatus, 0);
        return WEXITSTATUS(copyStatus);
    });
}

TEST_F(ProcessRunnerTest, RelativeWorkingDirectoryIsAppliedTwice) {
    std::filesystem::create_directories("bin/bin");
    makeScript("bin/show", "echo once > ../result");
    makeScript("bin/bin/show", "echo twice > ../result");
    (void)run("show", "bin", {});
    EXPECT_EQ(readFile(result), "twice\n");
}

/// What the copy of the caller finds: the returned value and the process it runs in. Aligned, as clang
/// stores it at once only then.
struct alignas(2 * sizeof(pid_t)) CopyReport {
    pid_t returned;
    pid_t self;
};

/// Runs what cannot be executed. The copy reports and ends with status 7; the caller returns the report.
CopyReport runInCopy(const std::string& program, const std::string& workingDirectory, bool wait,
                     pid_t& process) {
    const SharedReport<std::atomic<CopyReport>> report;
    *report = CopyReport{-2, -2};
    process = runProcess(program, workingDirectory, {"argument"}, wait);
    if (process == 0) {
        *report = CopyReport{process, getpid()};
        _exit(7);
    }
    EXPECT_TRUE(waitUntil([&report]() { return report->load().self != -2; }));
    return *report;
}

TEST_F(ProcessRunnerTest, ProgramThatCannotBeExecutedReturnsZeroInACopyOfTheCaller) {
    pid_t process = 0;
    const CopyReport report = runInCopy("no-such-program", folder, false, process);
    EXPECT_EQ(report.returned, 0);
    EXPECT_EQ(report.self, process);
    EXPECT_NE(report.self, getpid());
    int status = 0;
    ASSERT_EQ(waitpid(process, &status, 0), process);
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(ProcessRunnerTest, CopyOfTheCallerDoesNotHangWhenItIsToWait) {
    const Row<std::string, std::string> programs[] = {
        {"no such program", "no-such-program", ""},
        {"a directory that cannot be entered", "sh", folder + "/absent"},
        {"an empty program", "", ""},
    };
    for (const auto& program : programs) {
        SCOPED_TRACE(program.name);
        pid_t process = 0;
        const CopyReport report = runInCopy(program.given, program.expected, true, process);
        EXPECT_EQ(report.returned, 0);
        EXPECT_EQ(report.self, process);
        EXPECT_TRUE(hasNoChildren());
    }
}

TEST_F(ProcessRunnerTest, WaitingBlocksUntilTheProgramHasEnded) {
    (void)run("sh", "", {"-c", "sleep 0.3; echo done > result"});
    EXPECT_EQ(readFile(result), "done\n");
}

TEST_F(ProcessRunnerTest, WaitingDiscardsTheExitStatus) {
    const pid_t process = run("sh", "", {"-c", "exit 3"});
    EXPECT_GT(process, 0);
    EXPECT_TRUE(hasNoChildren());
}

TEST_F(ProcessRunnerTest, WithoutWaitingProgramIsStillRunning) {
    ASSERT_EQ(mkfifo("gate", 0600), 0);
    const pid_t process = run("sh", "", {"-c", "read word < gate; exit 5"}, false);
    ASSERT_GT(process, 0);
    int status = 0;
    EXPECT_EQ(waitpid(process, &status, WNOHANG), 0);
    const int gate = open("gate", O_RDWR | O_CLOEXEC);
    EXPECT_EQ(write(gate, "go\n", 3), 3);
    ASSERT_EQ(waitpid(process, &status, 0), process) << "the caller can still collect it";
    (void)close(gate);
    EXPECT_EQ(WEXITSTATUS(status), 5);
}

TEST_F(ProcessRunnerTest, WaitingWithIgnoredChildSignalReturnsAfterTheProgram) {
    const auto handler = std::signal(SIGCHLD, SIG_IGN);
    const pid_t process = run("sh", "", {"-c", "echo done > result"});
    (void)std::signal(SIGCHLD, handler);
    EXPECT_GT(process, 0);
    EXPECT_EQ(readFile(result), "done\n");
}

volatile std::sig_atomic_t signalCount = 0;
extern "C" void countSignal(int) {
    signalCount = signalCount + 1;
}

TEST_F(ProcessRunnerTest, SignalDoesNotEndTheWait) {
    struct sigaction action {};
    struct sigaction previous {};
    action.sa_handler = countSignal;
    ASSERT_EQ(sigaction(SIGUSR1, &action, &previous), 0);
    const std::string commands =
        "for i in 1 2 3 4 5; do kill -USR1 $PPID; sleep 0.05; done; echo done > result";
    (void)run("sh", "", {"-c", commands});
    (void)sigaction(SIGUSR1, &previous, nullptr);
    EXPECT_GT(signalCount, 0);
    EXPECT_EQ(readFile(result), "done\n");
}

TEST_F(ProcessRunnerTest, FailedForkReturnsMinusOneAndItsWaitEndsAtOnceWithoutChildren) {
    for (const bool wait : {false, true}) {
        EXPECT_TRUE(
            holdsInForked([wait] { return forbidForks() && runProcess("true", "", {}, wait) == -1; }));
    }
}

TEST_F(ProcessRunnerTest, WaitAfterAFailedForkTakesAnyChild) {
    EXPECT_TRUE(holdsInForked([] {
        if (fork() == 0) {
            _exit(0);
        }
        return forbidForks() && runProcess("true", "", {}, true) == -1 && hasNoChildren();
    }));
}

int preparedForks = 0;

TEST_F(ProcessRunnerTest, ForkTakesTheLocksOfTheCLibraryUnlessToldNotTo) {
    for (const bool isToldNotTo : {false, true}) {
        expectEndOfForked(exitedWith(isToldNotTo ? 0 : 1), [isToldNotTo] {
            (void)pthread_atfork([] { ++preparedForks; }, nullptr, nullptr); // where it takes the locks
            if (isToldNotTo) {
                forkWithoutLocks();
            }
            return runProcess("true", "", {}, true) > 0 ? preparedForks : -1;
        });
    }
}

TEST_F(ProcessRunnerTest, CopyMadeWithoutLocksAllocatesAfterAFailedExecution) {
    expectEndOfForked(exitedWith(100'001 % 256), [] {
        forkWithoutLocks();
        const std::string earlier(100'000, 'x');
        const pid_t process = runProcess("znorb-no-such-program", "", {}, false);
        if (process == 0) {
            const std::string later = earlier + std::to_string(process);
            _exit(static_cast<int>(later.size() % 256));
        }
        int end = 0;
        return waitpid(process, &end, 0) == process ? WEXITSTATUS(end) : -1;
    });
}

TEST_F(ProcessRunnerTest, WithoutMemoryForTheArgumentsNothingIsForkedOrWaitedFor) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be made to fail here";
    const std::vector<std::string> arguments{"-c", "exit 0", "name"};
    constexpr int allocations = 5; // the array, the program's path and the three arguments
    ForkedChild child([]() { return 0; });
    const AllocationWatch watch;
    for (int succeeding = 0; succeeding < allocations; ++succeeding) {
        const FailingAllocation failure(succeeding);
        EXPECT_EQ(run("sh", "/bin", arguments), -1) << succeeding;
        EXPECT_TRUE(FailingAllocation::hasHappened()) << succeeding;
        EXPECT_EQ(watch.outstanding(), 0) << succeeding;
    }
    EXPECT_EQ(child.waitForEnd(), exitedWith(0)) << "the caller's own child was left to it";
    EXPECT_TRUE(hasNoChildren());
    const FailingAllocation failure(allocations);
    const AllocationWatch watchOfTheRun;
    EXPECT_GT(run("sh", "/bin", arguments), 0);
    EXPECT_EQ(watchOfTheRun.outstanding(), 0);
}

TEST_F(ProcessRunnerTest, WaitingLeavesTheEndsOfOtherChildrenToTheirParent) {
    ForkedChild other([]() { return 7; });
    siginfo_t end = {};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(other.pid()), &end, WEXITED | WNOWAIT), 0);
    EXPECT_GT(run("true", "", {}), 0);
    EXPECT_EQ(other.waitForEnd(), exitedWith(7));
}

} // namespace
