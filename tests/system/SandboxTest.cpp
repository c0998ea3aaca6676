#include "tests/sandbox/Sandbox.h"

#include "tests/sandbox/Processes.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/ListeningPeer.h"
#include "tests/support/Matchers.h"
#include "tests/support/Results.h"
#include "tests/support/Skipping.h"
#include "tests/support/TemporaryFolder.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <utility>

namespace {

using namespace ZNORBTEST;

Launch shell(const std::string& script) {
    return {.program = "/bin/sh", .arguments = {"-c", script}};
}

// For shell scripts: a subshell that begins with it goes on when the shell that started it has gone.
const std::string whenDetached = "while kill -0 $$ 2>/dev/null; do sleep 0.01; done; ";

// The command of the scripts, which is built beside the tests.
Launch sandboxCommand(const std::vector<std::string>& arguments) {
    const std::string self = programOf(getpid());
    return {.program = self.substr(0, self.rfind('/')) + "/znorb-sandbox", .arguments = arguments};
}

// Tests of what only namespaces can give.
class IsolatedSandbox : public testing::Test {
protected:
    void SetUp() override {
        ZNORB_SKIP_IF(currentSandboxMode() != SandboxMode::Isolated) << "needs a sandbox with namespaces";
    }
};

TEST(Sandbox, RunsTheTestsAsRootAndMakesTheRunnerASubreaper) {
    EXPECT_NE(currentSandboxMode(), SandboxMode::None);
    EXPECT_EQ(geteuid(), 0U);
    int isSubreaper = 0;
    ASSERT_EQ(prctl(PR_GET_CHILD_SUBREAPER, &isSubreaper), 0);
    EXPECT_EQ(isSubreaper, 1);
}

TEST(Sandbox, HandsADetachedProcessToTheRunnerHoweverItEnds) {
    const std::pair<std::string, ProcessEnd> ends[] = {
        {"exit 3", exitedWith(3)}, {"kill -TERM $(exec sh -c 'echo $PPID')", endedBy(SIGTERM)}};
    for (const auto& [command, end] : ends) {
        const ProgramResult result = runProgram(shell("(" + whenDetached + command + ") & echo $!"));
        ASSERT_EQ(result.end, exitedWith(0));
        EXPECT_EQ(waitForEndOf(std::stoi(result.output)), end);
    }
}

TEST(Sandbox, AllowsToMakeTheInstallationDirectory) {
    writeFile("/opt/zn/znorb/bin/file", "content");
    EXPECT_EQ(readFile("/opt/zn/znorb/bin/file"), "content");
    EXPECT_EQ(runProgram(shell("rm -r /opt/zn/znorb")).end, exitedWith(0));
    (void)rmdir("/opt/zn"); // stays in a direct session, which has its mark in there
}

TEST_F(IsolatedSandbox, HasTheRunnerAsItsSecondProcess) {
    EXPECT_EQ(getpid(), 2);
    EXPECT_EQ(getppid(), 1);
    EXPECT_THAT(childrenOf(1), ElementsAre(2));
}

TEST_F(IsolatedSandbox, StartsWithEmptyDirectoriesForTheDaemonsNames) {
    EXPECT_THAT(namesIn("/run"), IsEmpty());
    EXPECT_THAT(namesIn("/var/run"), IsEmpty());
    EXPECT_THAT(namesIn("/dev/shm"), IsEmpty());
    EXPECT_THAT(namesIn("/opt"), Not(Contains("zn")));
    EXPECT_EQ(modeOf("/dev/shm"), 01777U);
}

TEST_F(IsolatedSandbox, RecordsTheEndsOfProcessesWhoseParentIsInit) {
    Launch launch = shell("echo $PPID; exit 5");
    launch.asChildOfInit = true;
    ChildProcess process(launch);

    EXPECT_EQ(process.waitForEnd(), exitedWith(5));
    EXPECT_EQ(process.output(), "1\n");
}

TEST_F(IsolatedSandbox, IsPrivateToEachSession) {
    writeFile("/run/of-this-session", "");
    EXPECT_THAT(runProgram(sandboxCommand({"--", "/bin/ls", "/run"})), resultIs(exitedWith(0)));
    (void)unlink("/run/of-this-session");
}

TEST(Sandbox, RunsAProgramAsSomebodyWhoIsNotRoot) {
    Launch launch = shell("id -u");
    launch.asOrdinaryUser = true;
    EXPECT_THAT(runProgram(launch), resultIs(exitedWith(0), "65534\n", _));
}

TEST_F(IsolatedSandbox, ShowsWhatElseThereIsInOptButNoInstallation) {
    writeFile("/opt/other/file", "content");
    writeFile("/opt/zn/file", "");
    ASSERT_EQ(symlink("other/file", "/opt/link"), 0);
    const ProgramResult result =
        runProgram(sandboxCommand({"--", "/bin/sh", "-c", "cat /opt/other/file /opt/link; ls -d /opt/zn"}));
    EXPECT_EQ(result.output, "contentcontent");
    EXPECT_NE(result.end, exitedWith(0)); // of ls
    EXPECT_EQ(runProgram(shell("rm -r /opt/other /opt/zn /opt/link")).end, exitedWith(0));
}

TEST_F(IsolatedSandbox, ShowsTheDirectoryOfItsProgramWhereverThatIs) {
    for (const std::string directory : {"/run", "/dev/shm", "/opt"}) {
        writeFile(directory + "/unrelated", "");
        Launch launch = sandboxCommand({"--", "/bin/ls", directory});
        copyProgram(launch.program, directory + "/of-tests/znorb-sandbox");
        launch.program = directory + "/of-tests/znorb-sandbox";
        const ProgramResult result = runProgram(launch);
        EXPECT_EQ(result.end, exitedWith(0)) << result.errors;
        EXPECT_THAT(result.output, HasSubstr("of-tests\n"));
        EXPECT_EQ(result.output.find("unrelated") != std::string::npos, directory == "/opt");
        EXPECT_EQ(runProgram(shell("rm -r " + directory + "/unrelated " + directory + "/of-tests")).end,
                  exitedWith(0));
    }
}

TEST_F(IsolatedSandbox, EndsWhatTheCommandLeavesRunning) {
    const TemporaryFolder folder;
    const std::string fifo = folder / "fifo";
    // The reader sees the end of the pipe when the process that was left behind has gone.
    Launch launch = shell("mkfifo " + fifo + "; cat " + fifo + " & exec 3>" + fifo + "; " +
                          sandboxCommand({}).program + " -- sh -c 'sleep 1000 & exit 0'; exec 3>&-; wait");
    EXPECT_EQ(runProgram(launch).end, exitedWith(0));
}

TEST_F(IsolatedSandbox, EndsWithItsCaller) {
    const TemporaryFolder folder;
    const std::string fifo = folder / "fifo";
    ASSERT_EQ(runProgram(shell("mkfifo " + fifo)).end, exitedWith(0));
    ChildProcess reader(shell("echo ready; exec cat " + fifo));
    ASSERT_TRUE(reader.waitForOutput("ready"));
    {
        ChildProcess caller(
            sandboxCommand({"--", "/bin/sh", "-c", "exec >" + fifo + "; echo up; exec sleep 1000"}));
        ASSERT_TRUE(reader.waitForOutput("up"));
    } // killed
    EXPECT_EQ(reader.waitForEnd(), exitedWith(0));
}

TEST(SandboxCommand, EndsAsItsCommandEndsAndSaysWhenThatCannotBeRun) {
    EXPECT_EQ(runProgram(sandboxCommand({"--", "/bin/sh", "-c", "exit 37"})).end, exitedWith(37));
    EXPECT_EQ(runProgram(sandboxCommand({"--", "/bin/sh", "-c", "kill -KILL $$"})).end, endedBy(SIGKILL));
    EXPECT_THAT(runProgram(sandboxCommand({"--", "/no/such/command"})),
                resultIs(exitedWith(127), _, HasSubstr("/no/such/command")));
    EXPECT_EQ(runProgram(sandboxCommand({"--", "/dev/null"})).end, exitedWith(126));
}

TEST(SandboxCommand, PassesStandardOutputAndErrorThrough) {
    const ProgramResult result =
        runProgram(sandboxCommand({"--", "/bin/sh", "-c", "echo out; echo err >&2"}));
    EXPECT_EQ(result.output, "out\n");
    EXPECT_EQ(result.errors, "err\n");
}

TEST(SandboxCommand, WritesDownHowOrphansEnd) {
    const TemporaryFolder folder;
    writeFile(folder / "leave-orphans", "(" + whenDetached +
                                            "exit 9) & echo $! >first\n"
                                            "(" +
                                            whenDetached +
                                            "kill -KILL $(exec sh -c 'echo $PPID')) & echo $! >second\n");
    writeFile(folder / "command", "sh ./leave-orphans\n"
                                  "while test $(wc -l <ends) -lt 2; do sleep 0.01; done\n");
    Launch launch = sandboxCommand({"--statuses", "ends", "--", "/bin/sh", "./command"});
    launch.workingDirectory = folder.path();
    const ProgramResult result = runProgram(launch);
    ASSERT_EQ(result.end, exitedWith(0)) << result.errors;

    const std::string first = std::to_string(std::stoi(readFile(folder / "first")));
    const std::string second = std::to_string(std::stoi(readFile(folder / "second")));
    const std::string ends = readFile(folder / "ends");
    EXPECT_THAT(ends, HasSubstr(first + " status 9\n"));
    EXPECT_THAT(ends, HasSubstr(second + " signal 9\n"));
    EXPECT_EQ(ends.size(), first.size() + second.size() + 20);
}

TEST(SandboxCommand, SaysWhatIsWrongWithItsCommandLine) {
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {}, {"--"}, {"/bin/true"}, {"--statuses"}, {"--unknown", "x", "--", "/bin/true"}}) {
        EXPECT_THAT(runProgram(sandboxCommand(words)),
                    resultIs(exitedWith(125), _, StartsWith("usage: znorb-sandbox")));
    }
}

// Direct sessions, tried inside of an isolated one: what they do to "the machine" stays in here.
class DirectSandbox : public IsolatedSandbox {
protected:
    Launch direct(std::vector<std::string> command) const {
        command.insert(command.begin(), {"--lock-wait", "0", "--"});
        Launch launch = sandboxCommand(command);
        launch.environment = {"ZNORB_SANDBOX=direct", "TMPDIR=" + folder.path()};
        return launch;
    }

    Launch directShell(const std::string& script) const { return direct({"/bin/sh", "-c", script}); }

    TemporaryFolder folder;
};

TEST_F(DirectSandbox, RunsTheCommandWithoutNamespaces) {
    writeFile("/run/mine", "");
    EXPECT_THAT(runProgram(directShell("ls /run; exit 4")), resultIs(exitedWith(4), "mine\n", _));
    (void)unlink("/run/mine");
}

TEST_F(DirectSandbox, CollectsDetachedProcesses) {
    writeFile(folder / "leave-orphan", "(" + whenDetached + "exec sh -c 'echo $PPID' >parent) &\n");
    Launch launch = directShell("sh ./leave-orphan; until test -s parent; do sleep 0.01; done; echo $PPID");
    launch.workingDirectory = folder.path();
    const ProgramResult result = runProgram(launch);
    ASSERT_EQ(result.end, exitedWith(0)) << result.errors;
    EXPECT_EQ(result.output, readFile(folder / "parent")); // the runner is the parent of both
}

TEST_F(DirectSandbox, RemovesItsNamesAndEndsWhatStillRuns) {
    const ProgramResult result =
        runProgram(directShell("mkdir -p /opt/zn/znorb/bin; touch /dev/shm/znorb.shvars "
                               "/dev/shm/sem.znorb.appLock /run/znorb.socket; "
                               "sleep 1000 & echo $!"));
    ASSERT_EQ(result.end, exitedWith(0)) << result.errors;
    EXPECT_THAT(namesIn("/dev/shm"), IsEmpty());
    EXPECT_THAT(namesIn("/run"), IsEmpty());
    EXPECT_FALSE(exists("/opt/zn"));
    EXPECT_THAT(namesIn(folder.path()), IsEmpty()); // the lock file
    EXPECT_EQ(nameOf(std::stoi(result.output)), "");
}

TEST_F(DirectSandbox, RefusesToTouchNamesThatExist) {
    for (const char* name : {"/dev/shm/znorb.shvars", "/dev/shm/sem.znorb.appLock", "/opt/zn/file"}) {
        writeFile(name, "somebody's");
        EXPECT_THAT(runProgram(directShell("echo ran")),
                    resultIs(exitedWith(125), "", HasSubstr(std::string(name).substr(0, 7))));
        EXPECT_EQ(readFile(name), "somebody's");
        (void)unlink(name);
    }
    (void)rmdir("/opt/zn");
}

TEST_F(DirectSandbox, RefusesWhileADaemonServesItsSocket) {
    const ListeningPeer daemon(PeerScript(), "/var/run/znorb.socket");
    EXPECT_THAT(runProgram(directShell("echo ran")),
                resultIs(exitedWith(125), "", HasSubstr("a daemon is running on this machine")));
    EXPECT_TRUE(exists("/var/run/znorb.socket"));
}

TEST_F(DirectSandbox, CleansUpAfterASessionThatWasKilled) {
    {
        ChildProcess killed(
            directShell("mkdir /opt/zn/left; touch /dev/shm/znorb.shvars; echo up; exec sleep 1000"));
        ASSERT_TRUE(killed.waitForOutput("up"));
    }
    ASSERT_TRUE(exists("/dev/shm/znorb.shvars"));
    ASSERT_TRUE(waitUntil([this]() {
        return runProgram(directShell("test ! -e /opt/zn/left && test ! -e /dev/shm/znorb.shvars")).end ==
               exitedWith(0);
    }));
    EXPECT_THAT(namesIn("/dev/shm"), IsEmpty());
    EXPECT_FALSE(exists("/opt/zn"));
}

TEST_F(DirectSandbox, RunsOneSessionAtATime) {
    ChildProcess first(directShell("echo up; exec sleep 1000"));
    ASSERT_TRUE(first.waitForOutput("up"));
    EXPECT_THAT(runProgram(directShell("echo ran")),
                resultIs(exitedWith(125), _, HasSubstr("another session")));

    Launch patient = directShell("echo ran");
    patient.arguments[1] = "20";
    ChildProcess third(patient);
    ASSERT_EQ(kill(first.pid(), SIGTERM), 0);
    EXPECT_EQ(third.waitForEnd(), exitedWith(0)) << third.errors();
}

TEST_F(DirectSandbox, CleansUpWhenItIsAskedToEnd) {
    ChildProcess session(directShell("touch /dev/shm/znorb.shvars; echo up; exec sleep 1000"));
    ASSERT_TRUE(session.waitForOutput("up"));
    ASSERT_EQ(kill(session.pid(), SIGTERM), 0);
    EXPECT_EQ(session.waitForEnd(), endedBy(SIGKILL)); // as its command, which was ended
    EXPECT_THAT(namesIn("/dev/shm"), IsEmpty());
    EXPECT_FALSE(exists("/opt/zn"));
}

TEST_F(DirectSandbox, IsNotForOrdinaryUsers) {
    Launch launch = directShell("echo ran");
    launch.asOrdinaryUser = true;
    // The build may lie where only root comes.
    const std::string everybodys = "/run/znorb-sandbox";
    copyProgram(launch.program, everybodys);
    launch.program = everybodys;
    const ProgramResult result = runProgram(launch);
    (void)unlink(everybodys.c_str());
    EXPECT_EQ(result.end, exitedWith(125));
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, HasSubstr("needs root, or a user who may create user namespaces"));
}

} // namespace
