/// What the tracer of system calls promises, seen on processes of its own.

#include "tests/support/SystemCallTracer.h"

#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Sanitizers.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <thread>
#include <vector>

namespace {

using namespace ZNORBTEST;
using Kind = TracedStop::Kind;

class SystemCalls : public testing::Test {
protected:
    void SetUp() override { ZNORB_SKIP_IF(!canTrace()) << "no process can be traced here"; }

    static bool isBefore(const TracedStop& stop, long number) {
        return stop.kind == Kind::Call && stop.call.isStart && stop.call.number == number;
    }

    SystemCallTracer tracer;
};

TEST_F(SystemCalls, StopBeforeAndBehindOfEveryThreadAndDescendant) {
    const pid_t first = tracer.start([]() {
        std::thread([]() { (void)getppid(); }).join();
        const pid_t child = fork();
        if (child == 0) {
            (void)getppid();
            _exit(3);
        }
        (void)waitpid(child, nullptr, 0);
    });
    std::map<pid_t, int> calls;
    std::map<pid_t, int> ends;
    std::vector<bool> births;
    long last = -1;
    EXPECT_TRUE(tracer.follow([&](const TracedStop& stop) {
        if (stop.kind == Kind::Birth) {
            births.push_back(stop.isThread);
        } else if (stop.kind == Kind::End) {
            ends[stop.thread] = stop.waitStatus;
        } else if (isBefore(stop, SYS_getppid)) {
            ++calls[stop.thread];
        } else if (stop.kind == Kind::Call && !stop.call.isStart) {
            last = stop.call.result;
        }
    }));
    if (!underThreadSanitizer) { // which has threads of its own
        EXPECT_EQ(births, (std::vector<bool>{true, false}));
    }
    EXPECT_EQ(calls.size(), 2U);
    EXPECT_EQ(calls.count(first), 0U);
    EXPECT_EQ(ends.size(), 1 + births.size());
    EXPECT_EQ(endFrom(ends.at(first)), exitedWith(0));
    EXPECT_EQ(endFrom(ends.at(ends.rbegin()->first)), exitedWith(3));
    EXPECT_GE(last, 0);
}

TEST_F(SystemCalls, SignalAtAStopIsAStopOfItsOwnAndCanBeTakenAway) {
    for (const bool isTaken : {true, false}) {
        ProcessEnd end;
        int signals = 0;
        const pid_t process = tracer.start([]() { (void)getppid(); });
        EXPECT_TRUE(tracer.follow([&](TracedStop& stop) {
            if (isBefore(stop, SYS_getppid)) {
                EXPECT_EQ(kill(process, SIGTERM), 0);
            } else if (stop.kind == Kind::Signal) {
                EXPECT_EQ(stop.signal, SIGTERM);
                ++signals;
                stop.signal = isTaken ? 0 : stop.signal;
            } else if (stop.kind == Kind::End) {
                end = endFrom(stop.waitStatus);
            }
        }));
        EXPECT_EQ(signals, 1);
        EXPECT_EQ(end, isTaken ? exitedWith(0) : endedBy(SIGTERM));
    }
}

TEST_F(SystemCalls, OfAChildWhoseParentDiedInMakingItAreSeenAllTheSame) {
    const pid_t parent = tracer.start([]() { (void)fork(); });
    const auto isStopped = [parent]() {
        const std::string status = readFileIfAny("/proc/" + std::to_string(parent) + "/status");
        return status.find("\nState:\tt") != std::string::npos;
    };
    TracedStop stop = tracer.next();
    while (!isBefore(stop, SYS_clone) && stop.kind != Kind::Nobody) {
        tracer.goOn(stop);
        stop = tracer.next();
    }
    tracer.goOn(stop);
    ASSERT_TRUE(waitUntil(isStopped)); // to tell of its child
    ASSERT_EQ(kill(parent, SIGKILL), 0);
    pid_t child = -1;
    std::vector<ProcessEnd> ends;
    EXPECT_TRUE(tracer.follow([&](const TracedStop& next) {
        child = next.kind == Kind::Birth && child == -1 ? next.child : child;
        const bool isSanitizers = underThreadSanitizer && next.thread != parent && next.thread != child;
        if (next.kind == Kind::End && !isSanitizers) {
            EXPECT_EQ(next.thread, ends.empty() ? parent : child);
            ends.push_back(endFrom(next.waitStatus));
        }
    }));
    EXPECT_THAT(ends, testing::ElementsAre(endedBy(SIGKILL), exitedWith(0)));
}

TEST_F(SystemCalls, OfAProcessThatIsHeldLetAnotherGoFirst) {
    const pid_t held = tracer.start([]() {});
    EXPECT_EQ(tracer.next().kind, Kind::Start);
    const pid_t other = tracer.start([]() {});
    EXPECT_TRUE(tracer.follow([&](const TracedStop& stop) { EXPECT_EQ(stop.thread, other); }));
    tracer.goOn({.kind = Kind::Start, .thread = held});
    EXPECT_TRUE(tracer.follow([&](const TracedStop& stop) { EXPECT_EQ(stop.thread, held); }));
    EXPECT_EQ(tracer.next().kind, Kind::Nobody);
}

TEST_F(SystemCalls, AreNotAwaitedForEverNorAtTheCostOfOtherChildren) {
    ForkedChild stranger([]() { return 4; });
    (void)tracer.start([]() { (void)pause(); });
    EXPECT_FALSE(tracer.follow([](const TracedStop&) {}, Milliseconds(200)));
    EXPECT_EQ(stranger.waitForEnd(), exitedWith(4));
}

TEST_F(SystemCalls, OfAReleasedProcessStopItNoMore) {
    const pid_t process = tracer.start([]() {
        (void)getppid();
        _exit(5);
    });
    EXPECT_TRUE(tracer.follow([](TracedStop& stop) { stop.isReleased = isBefore(stop, SYS_getppid); }));
    EXPECT_EQ(waitForEndOf(process), exitedWith(5));
}

} // namespace
