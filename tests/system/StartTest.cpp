/// `-d` on the real executable: the messages and statuses of a start, what the daemon is afterwards, and
/// what a second start finds.

#include "tests/sandbox/Processes.h"
#include "tests/sandbox/Sandbox.h"
#include "tests/support/DaemonDriver.h"
#include "tests/support/Descriptor.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Matchers.h"
#include "tests/support/PlayedDaemon.h"
#include "tests/support/Results.h"
#include "tests/support/Rows.h"
#include "tests/support/Sanitizers.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

namespace {

using namespace ZNORBTEST;

constexpr const char* startedMessage = "The ZN Orbisan daemon has started.\n";
constexpr const char* secondInstanceMessage =
    "Error: Only one instance of the ZN Orbisan daemon can be active at one time.\n";

class Start : public testing::Test {
protected:
    /// The value of a field of the daemon's /proc status, such as "SigIgn".
    std::string statusOfDaemon(const std::string& field) const {
        const std::optional<std::string> value = statusField(driver.daemon(), field);
        EXPECT_TRUE(value.has_value()) << field;
        return value.value_or("");
    }

    unsigned long long signalSet(const std::string& field) const {
        return std::stoull(statusOfDaemon(field), nullptr, 16);
    }

    static unsigned long long bit(int signalNumber) { return 1ULL << (signalNumber - 1); }

    std::string daemonLink(const std::string& name) const { return linkOf(driver.daemon(), name); }

    /// Whether nobody else runs the executable, once the processes of a start have gone that are about to
    /// end.
    bool isAlone(pid_t daemon) const {
        return waitUntil([&]() { return processesRunning(driver.program()) == std::vector<pid_t>{daemon}; });
    }

    DaemonDriver driver;
};

TEST_F(Start, SaysSoReturnsZeroAndIsInAGroupOfTheIntermediateProcessWithTheLockAtZero) {
    ASSERT_TRUE(driver.start());
    EXPECT_THAT(driver.startResult(), resultIs(exitedWith(0), startedMessage));
    EXPECT_EQ(Onlooker(daemonLock).count(), 0);
    EXPECT_NE(getpgid(driver.daemon()), getpgrp());
    EXPECT_NE(getpgid(driver.daemon()), driver.daemon());
}

TEST_F(Start, LeavesALockATableAndASocketOverAStaleFile) {
    writeFile("/var/run/znorb.socket", "not even a socket");
    ASSERT_TRUE(driver.startServing());
    EXPECT_TRUE(exists(lockFile));
    EXPECT_EQ(modeOf(lockFile), 0644U);
    EXPECT_EQ(modeOf(tableFile), 0666U);
    EXPECT_EQ(std::filesystem::file_size(tableFile), 8196U);
    EXPECT_EQ(modeOf("/var/run/znorb.socket"), 0666U);
}

TEST_F(Start, OfASecondInstanceIsRefusedAndChangesNothing) {
    ASSERT_TRUE(driver.startServing());
    EXPECT_THAT(driver.run({"-d"}), resultIs(exitedWith(2), "", secondInstanceMessage));
    EXPECT_TRUE(isAlone(driver.daemon()));
    EXPECT_EQ(askDaemon("PRINT"), "0");
}

TEST_F(Start, WithSilentStartsAsWithoutIt) {
    ASSERT_TRUE(driver.startServing({"-silent"}));
    EXPECT_EQ(driver.startResult().output, startedMessage);
}

TEST_F(Start, AcceptsEveryFlagInAnyPlace) {
    EXPECT_THAT(driver.run({"-silent", "-enable", "-d", "-disable"}),
                resultIs(exitedWith(0), startedMessage));
    EXPECT_TRUE(waitUntil([]() { return askDaemon("QUIT") == "0"; }));
}

TEST_F(Start, IsRefusedByAStaleLockOfAKilledDaemon) {
    ASSERT_TRUE(driver.start());
    EXPECT_EQ(driver.endBy(SIGKILL), endedBy(SIGKILL));
    EXPECT_TRUE(exists(lockFile));
    EXPECT_THAT(driver.run({"-d"}), resultIs(exitedWith(2), "", secondInstanceMessage));
}

TEST_F(Start, OnAStaleTableSaysStartedEndsAndRemovesItSoThatTheNextSucceeds) {
    writeFile(tableFile, "somebody else's");
    ASSERT_TRUE(driver.start());
    EXPECT_EQ(driver.startResult().output, startedMessage);
    EXPECT_EQ(driver.waitForDaemon(), exitedWith(255));
    EXPECT_THAT(driver.newNames(), IsEmpty());

    ASSERT_TRUE(driver.startServing());
}

TEST_F(Start, ThatRacedPastTheProbeEndsAndTakesTheNamesWithIt) {
    ASSERT_TRUE(driver.startServing());
    const pid_t first = driver.daemon();
    ASSERT_EQ(unlink(lockFile), 0); // as it was for a probe before the first had made it
    ASSERT_TRUE(driver.start());
    EXPECT_EQ(driver.waitForDaemon(), exitedWith(255)); // the table was there
    EXPECT_FALSE(exists(lockFile));
    EXPECT_FALSE(exists(tableFile));
    EXPECT_EQ(askDaemon("PRINT"), "0");
    EXPECT_TRUE(isAlone(first));
}

TEST_F(Start, WithoutStandardDescriptorsWorksAsWithThem) {
    Launch launch = driver.launch({});
    launch.arguments = {"-c", "exec '" + driver.program() + "' -d <&- >&- 2>&-"};
    launch.program = "/bin/sh";
    ASSERT_EQ(runProgram(launch).end, exitedWith(0));
    EXPECT_TRUE(waitUntil([]() { return askDaemon("GET|en") == "0"; }));
    launch.arguments = {"-c", "exec '" + driver.program() + "' -stop <&- >&- 2>&-"};
    EXPECT_EQ(runProgram(launch).end, exitedWith(255));
    EXPECT_FALSE(exists(lockFile));
}

TEST_F(Start, PutsTheStandardDescriptorsOnNullAndKeepsNoOther) {
    // One that this process passes on, the last that the daemon closes.
    const Descriptor source(open("/dev/null", O_RDONLY));
    ASSERT_EQ(dup2(source.get(), 255), 255);
    const bool isServing = driver.startServing();
    (void)close(255);
    ASSERT_TRUE(isServing);
    EXPECT_EQ(daemonLink("fd/0"), "/dev/null");
    EXPECT_EQ(daemonLink("fd/1"), "/dev/null");
    EXPECT_EQ(daemonLink("fd/2"), "/dev/null");
    EXPECT_EQ(daemonLink("fd/255"), "");
    // The listening socket is all it has; a sanitizer may have files of its own.
    unsigned sockets = 0;
    for (const std::string& name : namesIn("/proc/" + std::to_string(driver.daemon()) + "/fd")) {
        sockets += daemonLink("fd/" + name).starts_with("socket:") ? 1U : 0U;
    }
    EXPECT_EQ(sockets, 1U);
}

TEST_F(Start, IgnoresTerminalSignalsAndCatchesOnlyTerminationAndBusErrors) {
    ASSERT_TRUE(driver.startServing());
    const unsigned long long ignored = signalSet("SigIgn");
    for (const int number : {SIGTTOU, SIGTTIN, SIGTSTP, SIGHUP, SIGCHLD}) {
        EXPECT_TRUE((ignored & bit(number)) != 0) << strsignal(number);
    }
    // SIGBUS still ends the daemon, but for a shared table that somebody shortened. The C library catches two
    // signals for itself, below its SIGRTMIN; sanitizers catch more.
    const unsigned long long caught = signalSet("SigCgt");
    const unsigned long long ofTheLibrary = bit(SIGRTMIN) - bit(SIGSYS + 1);
    EXPECT_EQ(caught & (bit(SIGTERM) | bit(SIGBUS)), bit(SIGTERM) | bit(SIGBUS));
    EXPECT_TRUE(underSanitizer || (caught & ~ofTheLibrary) == (bit(SIGTERM) | bit(SIGBUS)))
        << std::hex << caught;
    EXPECT_TRUE((ignored & bit(SIGINT)) == 0 && (caught & bit(SIGINT)) == 0);
}

TEST_F(Start, BlocksNoSignalWhateverItsStarterBlocked) {
    sigset_t termination;
    sigset_t before;
    (void)sigemptyset(&termination);
    (void)sigaddset(&termination, SIGTERM);
    (void)sigaddset(&termination, SIGUSR1);
    ASSERT_EQ(sigprocmask(SIG_BLOCK, &termination, &before), 0);
    const bool started = driver.start();
    ASSERT_EQ(sigprocmask(SIG_SETMASK, &before, nullptr), 0);
    ASSERT_TRUE(started);
    EXPECT_EQ(signalSet("SigBlk"), 0U);
}

TEST_F(Start, SetsTheMaskOfNewFilesToZeroAndKeepsTheWorkingDirectory) {
    Launch launch = driver.launch({"-d"});
    launch.workingDirectory = "/dev/shm";
    ASSERT_EQ(runProgram(launch).end, exitedWith(0));
    ASSERT_TRUE(waitUntil([]() { return askDaemon("PRINT") == "0"; }));
    // The intermediate process may still be about to end.
    std::vector<pid_t> daemons;
    ASSERT_TRUE(waitUntil([&]() { return (daemons = processesRunning(driver.program())).size() == 1; }));
    EXPECT_EQ(linkOf(daemons[0], "cwd"), "/dev/shm");
    EXPECT_EQ(statusField(daemons[0], "Umask"), "0000");
}

TEST_F(Start, ByProcessOneDoesNotForkAndPrintsNothing) {
    ZNORB_SKIP_IF(currentSandboxMode() != SandboxMode::Isolated)
        << "only in namespaces of its own can a test be started by process 1";
    const std::unique_ptr<ChildProcess> daemon = driver.startUnderInit();
    EXPECT_EQ(processesRunning(driver.program()), std::vector<pid_t>{daemon->pid()});
    for (const char* descriptor : {"0", "1", "2"}) {
        EXPECT_EQ(linkOf(daemon->pid(), std::string("fd/") + descriptor), "/dev/null");
    }
    EXPECT_EQ(askDaemon("QUIT"), "0");
    EXPECT_EQ(daemon->waitForEnd(), exitedWith(255));
    EXPECT_EQ(daemon->output(), "");
    EXPECT_EQ(daemon->errors(), "");
}

TEST_F(Start, IsRefusedToAnOrdinaryUserWhateverTheArguments) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"-d"}, {}, {"nonsense"}, {"-stop", "-d"}}) {
        Launch launch = driver.launch(arguments);
        launch.asOrdinaryUser = true;
        EXPECT_THAT(runProgram(launch),
                    resultIs(exitedWith(1), "", "ERROR: You must be root to use this application\n"));
    }
}

/// Arguments, and the status of their end.
using Line = Row<std::vector<std::string>, int>;

class RejectedLine : public testing::TestWithParam<Line> {};

TEST_P(RejectedLine, EndsWith255AndPrintsAndStartsNothing) {
    DaemonDriver driver;
    EXPECT_THAT(driver.run(GetParam().given), resultIs(exitedWith(GetParam().expected)));
    EXPECT_THAT(driver.newNames(), IsEmpty());
    EXPECT_THAT(processesRunning(driver.program()), IsEmpty());
}

const Line rejectedLines[] = {
    {"NoArguments", {}, 255},
    {"NoDash", {"stop"}, 255},
    {"EmptyWord", {""}, 255},
    {"RowWithoutAName", {"-"}, 255},
    {"FlagAlone", {"-enable"}, 255},
    {"TwoCommands", {"-stop", "-d"}, 255},
    {"SameCommandTwice", {"-d", "-d"}, 255},
    {"UpperCase", {"-D"}, 255},
    {"TwoDashes", {"--d"}, 255},
    {"UnknownFlag", {"-d", "-unknown"}, 255},
    {"TrailingWord", {"-d", "trailing"}, 255},
};

INSTANTIATE_TEST_SUITE_P(CommandLine, RejectedLine, testing::ValuesIn(rejectedLines), rowName);

} // namespace
