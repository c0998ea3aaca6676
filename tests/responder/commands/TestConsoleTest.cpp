#include "responder/commands/TestConsole.h"

#include "common/log/Logger.h"
#include "foundation/containers/SharedPtr.h"
#include "responder/Globals.h"
#include "tests/support/Descriptor.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Matchers.h"
#include "tests/support/ProcessorTime.h"
#include "tests/support/RecordingStream.h"
#include "tests/support/Rows.h"
#include "tests/support/SelectRecorder.h"
#include "tests/support/SharedTable.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <memory>
#include <thread>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;

/// A pipe to type into.
class Keys {
public:
    Keys() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        m_readingEnd.reset(ends[0]);
        m_writingEnd.reset(ends[1]);
    }

    [[nodiscard]] int readingEnd() const { return m_readingEnd.get(); }

    void type(const std::string& keys) const {
        EXPECT_EQ(write(m_writingEnd.get(), keys.data(), keys.size()), std::ssize(keys));
    }

    /// No more keys will come.
    void end() { m_writingEnd.reset(); }

private:
    Descriptor m_readingEnd;
    Descriptor m_writingEnd;
};

// ---- one key --------------------------------------------------------------------------------------------

/// Standard input is a pipe.
class ConsoleInput : public testing::Test {
protected:
    ConsoleInput() { (void)dup2(keys.readingEnd(), STDIN_FILENO); }
    ~ConsoleInput() override { (void)dup2(m_before.get(), STDIN_FILENO); }

    const SelectRecorder waits;
    Keys keys;

private:
    const Descriptor m_before{dup(STDIN_FILENO)};
};

TEST_F(ConsoleInput, IsWaitedForOnDescriptorZeroAloneForSixtySecondsAtATime) {
    keys.type("p");
    EXPECT_TRUE(waitForInput());
    EXPECT_THAT(SelectRecorder::calls(), ElementsAre(isWaitFor(STDIN_FILENO, 60)));
}

TEST_F(ConsoleInput, TimeThatPassesOnlyWakesUp) {
    SelectRecorder::divideWaitsBy(6000);
    std::thread typist([this]() {
        EXPECT_TRUE(SelectRecorder::awaitCalls(5));
        keys.type("p");
    });
    EXPECT_TRUE(waitForInput());
    typist.join();
    EXPECT_GE(SelectRecorder::calls().size(), 5U);
    EXPECT_THAT(SelectRecorder::calls(), Each(isWaitFor(STDIN_FILENO, 60))) << "set afresh each time";
}

TEST_F(ConsoleInput, WaitThatFailsIsFalseAndWaitingTakesNothingAway) {
    keys.type("p");
    SelectRecorder::fail(EINTR);
    EXPECT_FALSE(waitForInput());
    EXPECT_EQ(SelectRecorder::calls().size(), 1U);
    EXPECT_TRUE(waitForInput());
    EXPECT_TRUE(waitForInput());
    EXPECT_EQ(readKey(), 'p');
}

TEST_F(ConsoleInput, KeysAreReadOneByOneAsBytesWithoutASign) {
    keys.type(std::string("pq\n\xff\x80\0", 6));
    for (const int key : {int{'p'}, int{'q'}, int{'\n'}, 255, 128, 0}) {
        EXPECT_EQ(readKey(), key);
    }
}

TEST_F(ConsoleInput, KeyIsZeroAtTheEndOfInputAgainAndAgain) {
    keys.type("x");
    keys.end();
    EXPECT_EQ(readKey(), 'x');
    EXPECT_TRUE(waitForInput()) << "the end counts as input";
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(readKey(), 0);
    }
}

TEST_F(ConsoleInput, KeyIsZeroWhenWaitingFailsAndIsThereStill) {
    keys.type("p");
    SelectRecorder::fail(EINTR);
    EXPECT_EQ(readKey(), 0);
    EXPECT_EQ(readKey(), 'p');
}

TEST_F(ConsoleInput, ClosedStandardInputIsAFailedWait) {
    (void)close(STDIN_FILENO);
    EXPECT_FALSE(waitForInput());
    EXPECT_EQ(readKey(), 0);
}

// ---- the whole console ----------------------------------------------------------------------------------

const std::string greeting = "Press: p, then Enter to show stats.\r\n"
                             "Press: q, then Enter to exit.\r\n"
                             "Unified responder starting\r\n"
                             "Unified responder waiting for connections\r\n";

const std::string farewell = "Received QUIT command\r\n"
                             "Unified responder stopped\r\n";

/// Of the clients that a test enters.
constexpr const char* table = "Entry:  0, Valid?: Y, ID: one\r\n"
                              "Entry:  1, Valid?: N, ID: \r\n";

/// Test mode in a process of its own, its standard output in a file of memory.
class TestConsole : public testing::Test {
protected:
    ~TestConsole() override {
        console.reset();
        (void)unlink(socketPath);
        (void)unlink(tableFile);
    }

    /// What the process finds, most of it when test mode has ended.
    struct Findings {
        std::atomic<bool> isLoggedInAnotherMode;
        std::atomic<bool> isTestMode;
        std::atomic<bool> isTableGone;
        std::atomic<bool> isBarrierSet;
    };

    void launch(unsigned failingWaits = 0) {
        console = std::make_unique<ForkedChild>([this, failingWaits]() {
            (void)dup2(keys.readingEnd(), STDIN_FILENO);
            (void)dup2(m_output.get(), STDOUT_FILENO);
            keys.end();
            const SelectRecorder waits;
            SelectRecorder::fail(EINTR, failingWaits);
            std::vector<std::string> writes;
            ORBCOMMON::Logger::addOutputStream(
                Common::shared_ptr<Common::OutputStream>(new ActingStream(writes, [this](const std::string&) {
                    findings->isLoggedInAnotherMode = findings->isLoggedInAnotherMode || !gIsTestMode;
                })));
            const int status = runTestConsole();
            findings->isTestMode = gIsTestMode;
            findings->isTableGone = !exists(tableFile);
            findings->isBarrierSet = mainExitBarrier.timedWait(0);
            ORBCOMMON::Logger::log("nobody is to see this");
            return status;
        });
    }

    /// Starts it; returns when it can be talked to.
    void start(unsigned failingWaits = 0) {
        launch(failingWaits);
        ASSERT_TRUE(waitUntil([]() { return askDaemon("are you there?") == "0"; })) << output();
    }

    [[nodiscard]] std::string output() const { return contentOf(m_output.get()); }

    void awaitOutput(const std::string& expected) {
        EXPECT_TRUE(waitUntil([this, &expected]() { return output() == expected; })) << output();
    }

    void expectEnd() { EXPECT_EQ(console->waitForEnd(), exitedWith(255)); }

    /// As clients fill their entries in.
    static void enterClients() { ASSERT_TRUE(writeSharedTable(0, countOf(2) + "\1one")); }

    Keys keys;
    const SharedReport<Findings> findings;
    std::unique_ptr<ForkedChild> console;

private:
    const Descriptor m_output{memfd_create("output", MFD_CLOEXEC)};
};

TEST_F(TestConsole, GreetsPrintsAndEndsAlsoWhenTheFirstWaitsFail) {
    start(10);
    awaitOutput(greeting);
    enterClients();
    keys.type("p\n");
    awaitOutput(greeting + table);
    keys.type("q\n");
    expectEnd();
    EXPECT_EQ(output(), greeting + table + farewell);
}

/// Keys, and what they show between the greeting and the farewell.
class TypedKeys : public TestConsole, public testing::WithParamInterface<Row<std::string, std::string>> {};

TEST_P(TypedKeys, EndTestMode) {
    start();
    enterClients();
    keys.type(GetParam().given);
    expectEnd();
    EXPECT_EQ(output(), greeting + GetParam().expected + farewell) << "without a title";
}

const Row<std::string, std::string> typedKeys[] = {
    {"QAndEnter", "q\n", ""},
    {"QWithoutEnter", "q", ""},
    {"CountAsTheyArrive", "pq\n", table},
    {"BehindTheLastAreNotRead", "qp\nppp", ""},
};

INSTANTIATE_TEST_SUITE_P(TestConsole, TypedKeys, testing::ValuesIn(typedKeys), rowName);

TEST_F(TestConsole, OtherKeysAreIgnored) {
    start();
    enterClients();
    keys.type(std::string("PQ\r\n \0\xff\x1b[Aors0", 14));
    keys.type("p");
    awaitOutput(greeting + table);
    EXPECT_EQ(console->waitForEnd(std::chrono::milliseconds(0)), stillRunning());
    keys.type("q");
    expectEnd();
    EXPECT_EQ(output(), greeting + table + farewell);
}

TEST_F(TestConsole, TakesNoLockAndLeavesNothingBehindAndNobodyInTheLog) {
    start();
    EXPECT_FALSE(exists("/dev/shm/sem.znorb.appLock"));
    keys.type("q\n");
    expectEnd();
    EXPECT_TRUE(findings->isTestMode);
    EXPECT_TRUE(findings->isTableGone);
    EXPECT_TRUE(findings->isBarrierSet);
    EXPECT_EQ(output(), greeting + farewell) << "its stream has left the log";
}

TEST_F(TestConsole, IsInTestModeBeforeItSaysAnything) {
    start();
    keys.type("q");
    expectEnd();
    EXPECT_FALSE(findings->isLoggedInAnotherMode);
}

TEST_F(TestConsole, QuitFromOutsideEndsTheResponderAndTheKeyThenEndsTheRest) {
    start();
    EXPECT_EQ(askDaemon("QUIT"), "0");
    awaitOutput(greeting + farewell);
    EXPECT_EQ(console->waitForEnd(std::chrono::milliseconds(100)), stillRunning())
        << "the keys are served still";
    keys.type("pq");
    expectEnd();
    EXPECT_EQ(output(), greeting + farewell);
}

TEST_F(TestConsole, AtTheEndOfInputItGoesOnUntilASignalEndsIt) {
    start();
    const auto begin = std::chrono::steady_clock::now();
    keys.end();
    clockid_t clock = CLOCK_MONOTONIC;
    ASSERT_EQ(clock_getcpuclockid(console->pid(), &clock), 0);
    EXPECT_TRUE(waitUntil([clock]() { return processorTimeOn(clock) > Milliseconds(300); }))
        << "reads on and on, busily";
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(100));
    EXPECT_EQ(askDaemon("PRINT"), "0");
    EXPECT_EQ(console->waitForEnd(std::chrono::milliseconds(0)), stillRunning());
    ASSERT_EQ(kill(console->pid(), SIGTERM), 0);
    EXPECT_EQ(console->waitForEnd(), endedBy(SIGTERM));
}

TEST_F(TestConsole, ShowsWhatGoesWrongAtTheStart) {
    writeFile(tableFile, "left behind");
    keys.type("q\n");
    launch();
    expectEnd();
    EXPECT_EQ(output(), "Press: p, then Enter to show stats.\r\n"
                        "Press: q, then Enter to exit.\r\n"
                        "Unified responder starting\r\n"
                        "Unable to get to shared global variables\r\n"
                        "Unified responder stopped\r\n");
}

} // namespace
