#include "responder/commands/Daemonize.h"

#include "responder/Globals.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Skipping.h"
#include "tests/support/StandIns.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Waiting.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

using ZNORBRESPONDER::daemonize;
using namespace ZNORBTEST;

constexpr int daemonStatus = 7; // the test's: how a daemon ends
constexpr int invokerStatus = 8;

const std::vector<int> terminalSignals = {SIGTTOU, SIGTTIN, SIGTSTP, SIGHUP};

/// What a process finds out about itself.
struct Facts {
    pid_t pid;
    pid_t parent;
    pid_t group;
    pid_t session;
    unsigned long long ignoredSignals; ///< as in /proc: signal n is bit n - 1
    mode_t mask;
    char directory[PATH_MAX];
    char standard[3][64]; ///< where descriptors 0, 1 and 2 lead
    int access[3];        ///< how they are open
    int lowestOpen;       ///< of the descriptors from 3 on; -1 when none is open up to 1023
    int highestOpen;
    int highestPassedOn; ///< to programs that the process executes
};

unsigned long long ignoredSignals() {
    char text[8192] = {};
    const int file = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    const ssize_t length = read(file, text, sizeof text - 1);
    (void)close(file);
    const char* line = length > 0 ? std::strstr(text, "SigIgn:") : nullptr;
    return line != nullptr ? std::strtoull(line + std::strlen("SigIgn:"), nullptr, 16) : 0;
}

void find(Facts& facts) {
    facts.pid = getpid();
    facts.parent = getppid();
    facts.group = getpgrp();
    facts.session = getsid(0);
    facts.mask = umask(0);
    (void)umask(facts.mask);
    (void)getcwd(facts.directory, sizeof facts.directory);
    for (int descriptor = 0; descriptor < 3; ++descriptor) {
        char link[32];
        (void)std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
        (void)readlink(link, facts.standard[descriptor], sizeof facts.standard[descriptor] - 1);
        facts.access[descriptor] = fcntl(descriptor, F_GETFL) & O_ACCMODE;
    }
    facts.lowestOpen = -1;
    facts.highestOpen = -1;
    facts.highestPassedOn = -1;
    for (int descriptor = 3; descriptor < 1024; ++descriptor) {
        const int flags = fcntl(descriptor, F_GETFD);
        if (flags != -1) {
            facts.lowestOpen = facts.lowestOpen == -1 ? descriptor : facts.lowestOpen;
            facts.highestOpen = descriptor;
            facts.highestPassedOn = (flags & FD_CLOEXEC) == 0 ? descriptor : facts.highestPassedOn;
        }
    }
    facts.ignoredSignals = ignoredSignals();
}

bool isIgnored(const Facts& facts, int signalNumber) {
    return (facts.ignoredSignals >> (signalNumber - 1) & 1) != 0;
}

struct Report {
    Facts before; ///< of the invoking process
    Facts invoker;
    Facts daemon;
    pid_t intermediate;
    int intermediateStatus;
    int errorNumber; ///< the daemon's errno at once after the call
    bool invokerResult;
    bool daemonResult;
    std::atomic<bool> isDaemonDone;
};

/// The call in a process whose parent is not process 1: the invoking process and the daemon each report and
/// end with a status of their own.
class Daemonize : public testing::Test {
protected:
    /// Whatever the test was started with must not decide how it ends.
    static void setUsualDispositions() {
        for (const int signalNumber : {SIGHUP, SIGTTOU, SIGTTIN, SIGTSTP, SIGCHLD, SIGINT, SIGTERM}) {
            (void)std::signal(signalNumber, SIG_DFL);
        }
        (void)umask(022);
        // The intermediate process ends by exit: it must not destroy the event that the tests share with it.
        ZNORBRESPONDER::ORBFrontProcessBarrier.setOwner(false);
    }

    [[noreturn]] void invoke(bool ignoreChildren, const std::function<void()>& prepare) {
        setUsualDispositions();
        prepare();
        find(report->before);
        errno = EDOM;
        const bool result = daemonize(ignoreChildren);
        if (getpid() == report->before.pid && result) {
            report->invokerResult = result;
            report->intermediate = waitpid(-1, &report->intermediateStatus, 0);
            find(report->invoker);
            _exit(invokerStatus);
        }
        report->errorNumber = errno;
        report->daemonResult = result;
        find(report->daemon);
        report->isDaemonDone = true;
        _exit(daemonStatus);
    }

    void run(
        bool ignoreChildren, const std::function<void()>& prepare = []() {}) {
        ForkedChild invoker([this, ignoreChildren, &prepare]() -> int { invoke(ignoreChildren, prepare); });
        ASSERT_EQ(invoker.waitForEnd(), exitedWith(invokerStatus));
        ASSERT_TRUE(waitUntil([this]() { return report->isDaemonDone.load(); }));
        ASSERT_EQ(waitForEndOf(report->daemon.pid), exitedWith(daemonStatus));
    }

    void expectDaemonsDescriptors() {
        const int expected[] = {O_RDONLY, O_WRONLY, O_WRONLY};
        for (int descriptor = 0; descriptor < 3; ++descriptor) {
            EXPECT_STREQ(report->daemon.standard[descriptor], "/dev/null") << descriptor;
            EXPECT_EQ(report->daemon.access[descriptor], expected[descriptor]) << descriptor;
        }
    }

    const SharedReport<Report> report;
};

TEST_F(Daemonize, ForksTwiceAndTheDaemonIsInTheGroupBetweenWithAMaskOfZeroAndWithoutAnError) {
    run(false);
    EXPECT_TRUE(report->invokerResult);
    EXPECT_FALSE(report->daemonResult);
    EXPECT_NE(report->daemon.pid, report->before.pid);
    EXPECT_NE(report->daemon.parent, report->before.pid);
    EXPECT_GT(report->intermediate, 0);
    EXPECT_NE(report->daemon.pid, report->intermediate);
    EXPECT_TRUE(WIFEXITED(report->intermediateStatus));
    EXPECT_EQ(WEXITSTATUS(report->intermediateStatus), 0);
    EXPECT_EQ(report->daemon.group, report->intermediate);
    EXPECT_NE(report->daemon.group, report->before.group);
    EXPECT_EQ(report->daemon.session, report->before.session) << "no session of its own";
    EXPECT_EQ(report->before.mask, 022U);
    EXPECT_EQ(report->daemon.mask, 0U);
    EXPECT_EQ(report->errorNumber, 0);
}

TEST_F(Daemonize, InvokingProcessKeepsItsGroupItsDescriptorsAndItsMask) {
    run(false);
    EXPECT_EQ(report->invoker.pid, report->before.pid);
    EXPECT_EQ(report->invoker.group, report->before.group);
    EXPECT_EQ(report->invoker.mask, 022U);
    for (int descriptor = 0; descriptor < 3; ++descriptor) {
        EXPECT_STREQ(report->invoker.standard[descriptor], report->before.standard[descriptor]);
    }
    EXPECT_EQ(report->invoker.highestOpen, report->before.highestOpen);
}

TEST_F(Daemonize, BothIgnoreTheTerminalsSignalsAndTheDaemonTheHangUpAndNoOther) {
    run(false);
    unsigned long long others = report->before.ignoredSignals ^ report->daemon.ignoredSignals;
    for (const int signalNumber : terminalSignals) {
        EXPECT_FALSE(isIgnored(report->before, signalNumber)) << signalNumber;
        EXPECT_TRUE(isIgnored(report->daemon, signalNumber)) << signalNumber;
        EXPECT_EQ(isIgnored(report->invoker, signalNumber), signalNumber != SIGHUP) << signalNumber;
        others &= ~(1ULL << (signalNumber - 1));
    }
    EXPECT_EQ(others, 0U);
}

TEST_F(Daemonize, EndsOfChildrenAreIgnoredWhenThatIsAskedFor) {
    for (const bool isAskedFor : {true, false}) {
        run(isAskedFor);
        EXPECT_EQ(isIgnored(report->daemon, SIGCHLD), isAskedFor);
        EXPECT_FALSE(isIgnored(report->invoker, SIGCHLD)) << "only the daemon's";
        report->isDaemonDone = false;
    }
}

TEST_F(Daemonize, StandardDescriptorsOfTheDaemonLeadNowhereWhicheverWereClosed) {
    for (const std::vector<int>& closed : std::vector<std::vector<int>>{{}, {0}, {1}, {0, 1, 2}}) {
        SCOPED_TRACE(closed.size());
        run(false, [&closed]() {
            for (const int descriptor : closed) {
                (void)close(descriptor);
            }
        });
        expectDaemonsDescriptors();
        EXPECT_TRUE(closed.size() < 3 || report->daemon.lowestOpen == -1);
        report->isDaemonDone = false;
    }
}

/// Opens these descriptors.
std::function<void()> opening(const std::vector<int>& descriptors) {
    return [descriptors]() {
        for (const int descriptor : descriptors) {
            (void)dup2(STDERR_FILENO, descriptor);
        }
    };
}

TEST_F(Daemonize, DescriptorsUpTo255AreClosedAndThoseAboveAreKept) {
    run(false, opening({3, 4, 100, 254, 255, 256, 257, 300}));
    EXPECT_EQ(report->daemon.lowestOpen, 256);
    EXPECT_EQ(report->daemon.highestOpen, 300);
}

TEST_F(Daemonize, DescriptorsAreClosedAtOnceAndThenNotOneByOne) {
    const InPlaceOf<close_range> ranges([](unsigned first, unsigned last, int flags) {
        const int result = close_range(first, last, flags);
        if (flags == 0 && result == 0) {
            (void)dup2(STDOUT_FILENO, 3);
        }
        return result;
    });
    run(false);
    EXPECT_EQ(report->daemon.lowestOpen, 3);
}

TEST_F(Daemonize, DescriptorsAreClosedOneByOneOnAKernelThatClosesNoRange) {
    const FailingCall<close_range> ranges(ENOSYS);
    run(false, opening({3, 4, 100, 255, 256, 300}));
    expectDaemonsDescriptors();
    EXPECT_EQ(report->daemon.lowestOpen, 256);
    EXPECT_EQ(report->daemon.highestOpen, 300);
    EXPECT_EQ(report->daemon.highestPassedOn, 300);
    EXPECT_EQ(report->errorNumber, 0);
}

TEST_F(Daemonize, DescriptorsThatAreKeptAreNotPassedOnToPrograms) {
    run(false, opening({256, 300, 1023}));
    EXPECT_EQ(report->before.highestPassedOn, 1023);
    EXPECT_EQ(report->daemon.highestOpen, 1023);
    EXPECT_EQ(report->daemon.highestPassedOn, -1);
    EXPECT_EQ(report->invoker.highestPassedOn, 1023);
}

TEST_F(Daemonize, WorkingDirectoryStays) {
    const TemporaryFolder folder;
    run(false, [&folder]() { (void)!chdir(folder.path().c_str()); });
    EXPECT_STREQ(report->before.directory, report->daemon.directory);
    EXPECT_EQ(std::string(report->daemon.directory).substr(0, 1), "/");
    EXPECT_NE(report->daemon.directory, std::string("/"));
}

/// The call in processes of a pid namespace of the test's own, where it must not fork.
class DaemonizeWithoutForks : public Daemonize {
protected:
    /// Ends with the body's status; what the body's process forks is in the namespace.
    void runInNamespace(const std::function<int()>& body) {
        constexpr int noNamespace = 9;
        ForkedChild outside([&body]() { return unshare(CLONE_NEWPID) == 0 ? body() : noNamespace; });
        const auto end = outside.waitForEnd();
        ZNORB_SKIP_IF(end == exitedWith(noNamespace)) << "needs a pid namespace";
        ASSERT_EQ(end, exitedWith(daemonStatus)) << "the calling process is the daemon";
        EXPECT_TRUE(report->isDaemonDone);
        EXPECT_FALSE(report->daemonResult);
        EXPECT_EQ(report->daemon.pid, report->before.pid);
        EXPECT_EQ(report->daemon.session, report->before.session);
        EXPECT_EQ(report->daemon.parent, report->before.parent);
        expectDaemonsDescriptors();
        EXPECT_EQ(report->daemon.mask, 0U);
        EXPECT_EQ(report->errorNumber, 0) << "also where a fork has failed";
    }

    /// In a child of process 1.
    void runUnderInit(bool ignoreChildren) {
        const auto call = [this, ignoreChildren]() -> int { invoke(ignoreChildren, []() {}); };
        runInNamespace(
            [&call]() { return endOfForked([&call]() { return endOfForked(call).number; }).number; });
    }
};

TEST_F(DaemonizeWithoutForks, ChildOfProcessOneGoesOnAsTheDaemonWithItsGroupAndSignals) {
    runUnderInit(false);
    if (!IsSkipped()) {
        EXPECT_EQ(report->before.parent, 1);
        EXPECT_EQ(report->daemon.group, report->before.group);
        EXPECT_TRUE(report->daemon.lowestOpen == -1 || report->daemon.lowestOpen > 255);
        EXPECT_EQ(report->daemon.ignoredSignals, report->before.ignoredSignals);
    }
}

TEST_F(DaemonizeWithoutForks, ChildOfProcessOneIgnoresEndsOfChildrenWhenThatIsAskedFor) {
    runUnderInit(true);
    if (!IsSkipped()) {
        EXPECT_TRUE(isIgnored(report->daemon, SIGCHLD));
    }
}

TEST_F(DaemonizeWithoutForks, ProcessThatCannotForkGoesOnAsTheDaemonInAGroupOfItsOwn) {
    runInNamespace([this]() -> int {
        (void)endOfForked([]() { return 0; }); // process 1 of the namespace, after which there is no other
        invoke(false, []() {});
    });
    if (!IsSkipped()) {
        EXPECT_NE(report->before.parent, 1);
        EXPECT_EQ(report->daemon.group, report->daemon.pid);
        for (const int signalNumber : terminalSignals) {
            EXPECT_TRUE(isIgnored(report->daemon, signalNumber)) << signalNumber;
        }
    }
}

} // namespace
