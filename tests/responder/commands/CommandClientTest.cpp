#include "responder/commands/CommandClient.h"

#include "tests/responder/clients/SendRecorder.h"
#include "tests/support/Addresses.h"
#include "tests/support/Allocations.h"
#include "tests/support/Descriptor.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/Files.h"
#include "tests/support/ListeningPeer.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Matchers.h"
#include "tests/support/SelectRecorder.h"
#include "tests/support/Skipping.h"
#include "tests/support/SystemCallTracer.h"

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;

/// The requests, without or with a stand-in for the daemon on its socket. Nothing may ever be logged.
class CommandClient : public testing::Test {
protected:
    ~CommandClient() override {
        EXPECT_THAT(log.lines(), IsEmpty());
        daemon.reset();
        (void)unlink(socketPath);
    }

    void serve(PeerScript script) { daemon = std::make_unique<ListeningPeer>(std::move(script), socketPath); }

    const LogRecorder log;
    const SelectRecorder waits;
    std::unique_ptr<ListeningPeer> daemon;
};

/// What the daemon gets of two requests. It serves the second only when the first one's sender has closed.
std::vector<std::string> requestsOf(bool (*command)()) {
    const ListeningPeer daemon({4, {"0"}, true}, socketPath);
    EXPECT_TRUE(command());
    EXPECT_TRUE(command());
    return daemon.received();
}

TEST_F(CommandClient, CommandSendsItsBytesAndCloses) {
    EXPECT_THAT(requestsOf(sendQuit), ElementsAre("QUIT", "QUIT"));
    EXPECT_THAT(requestsOf(sendPrint), ElementsAre("PRINT", "PRINT"));
}

TEST_F(CommandClient, OneByteOfAnyKindAndAllThatFollowsIsAnAnswerThatIsNotExamined) {
    const PeerScript scripts[] = {{4, {std::string(1, '\0')}, true},
                                  {4, {"an error, if it were looked at"}, false},
                                  {4, {std::string(5000, 'x')}, false}};
    for (const PeerScript& script : scripts) {
        daemon.reset();
        serve(script);
        EXPECT_TRUE(sendQuit()) << script.pieces[0];
        EXPECT_TRUE(sendPrint()) << script.pieces[0];
    }
}

TEST_F(CommandClient, RequestIsSentWithoutASignal) {
    serve({4, {"0"}, false});
    const SendRecorder sends;
    EXPECT_TRUE(sendQuit());
    ASSERT_EQ(sends.calls().size(), 1U);
    EXPECT_EQ(sends.calls()[0].flags, MSG_NOSIGNAL);
}

TEST_F(CommandClient, SendThatFailsShowsInTheAnswerThatDoesNotCome) {
    SelectRecorder::divideWaitsBy(600);
    serve({4, {"0"}, true});
    SendRecorder sends;
    sends.failCall(0, EPIPE);
    EXPECT_FALSE(sendQuit());
    EXPECT_EQ(SelectRecorder::calls().size(), 1U);
}

TEST_F(CommandClient, FailsAtOnceWithoutASocketFileOrWithOneThatNobodyServes) {
    const auto bindAndClose = []() {
        const Descriptor stale(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        EXPECT_EQ(bindTo(stale.get(), addressOf(socketPath)), 0);
        EXPECT_TRUE(exists(socketPath));
    };
    const std::function<void()> files[] = {[]() {}, bindAndClose, []() { writeFile(socketPath, ""); }};
    const SendRecorder sends;
    for (const auto& make : files) {
        make();
        EXPECT_FALSE(sendQuit());
        EXPECT_FALSE(sendPrint());
        (void)unlink(socketPath);
    }
    EXPECT_THAT(SelectRecorder::calls(), IsEmpty());
    EXPECT_TRUE(sends.calls().empty());
}

TEST_F(CommandClient, FailsAtOnceWhenNoSocketCanBeMade) {
    EXPECT_FALSE(sendQuit()); // the undefined-behaviour sanitizer has to see the classes before the limit
    serve({4, {"0"}, false});
    bool isAnswered = true;
    {
        const DescriptorLimit limit(0);
        isAnswered = sendQuit();
    }
    EXPECT_FALSE(isAnswered);
    EXPECT_THAT(daemon->received(), IsEmpty());
}

TEST_F(CommandClient, FailsAtOnceWhenMemoryRunsOut) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be made to fail here";
    const FailingAllocation failure(0);
    EXPECT_FALSE(sendQuit());
    EXPECT_TRUE(FailingAllocation::hasHappened());
    EXPECT_THAT(SelectRecorder::calls(), IsEmpty());
}

TEST_F(CommandClient, WaitsSixtySecondsForTheAnswer) {
    serve({4, {"0"}, false});
    EXPECT_TRUE(sendQuit());
    EXPECT_TRUE(sendPrint());
    const auto calls = SelectRecorder::calls();
    ASSERT_EQ(calls.size(), 2U);
    for (const SelectRecorder::Call& call : calls) {
        ASSERT_EQ(call.reading.size(), 1U);
        EXPECT_THAT(call, isWaitFor(call.reading[0], 60));
    }
}

TEST_F(CommandClient, FailsWhenNoAnswerComesInTime) {
    SelectRecorder::divideWaitsBy(600);
    serve({4, {}, true});
    EXPECT_FALSE(sendQuit());
    EXPECT_FALSE(sendPrint());
    EXPECT_EQ(SelectRecorder::calls().size(), 2U) << "one wait each";
    EXPECT_THAT(daemon->received(), ElementsAre("QUIT", "PRINT"));
}

TEST_F(CommandClient, FailsWhenTheDaemonIsBusyWithAnotherConnection) {
    SelectRecorder::divideWaitsBy(600);
    serve({4, {"0"}, true});
    const LocalConnection other = LocalConnection::toPath(socketPath);
    ASSERT_TRUE(other.isConnected());
    EXPECT_FALSE(sendQuit());
}

TEST_F(CommandClient, FailsWhenTheDaemonClosesWithoutAnAnswerOrResetsTheConnection) {
    serve({4, {}, false});
    EXPECT_FALSE(sendQuit());
    EXPECT_FALSE(sendPrint());
    daemon.reset();
    serve({1, {}, false}); // closes with the rest of the request unread, or before it comes
    EXPECT_FALSE(sendQuit());
}

TEST_F(CommandClient, FailsWhenTheWaitFails) {
    serve({4, {"0"}, true});
    SelectRecorder::fail(EINTR);
    EXPECT_FALSE(sendQuit());
    EXPECT_EQ(SelectRecorder::calls().size(), 1U) << "an interrupted wait is not resumed";
}

TEST_F(CommandClient, LeavesNoDescriptorOpen) {
    const auto before = namesIn("/proc/self/fd");
    EXPECT_FALSE(sendQuit());
    serve({4, {"0"}, false});
    EXPECT_TRUE(sendQuit());
    EXPECT_TRUE(sendPrint());
    daemon.reset();
    EXPECT_EQ(namesIn("/proc/self/fd"), before);
}

TEST_F(CommandClient, TakesUpTo1024BytesOfTheAnswer) {
    ZNORB_SKIP_IF(!canTrace()) << "no process can be traced here";
    ZNORB_SKIP_IF(sizeof(void*) == 4) << "with 32 bits the calls are others";
    serve({4, {"0"}});
    SystemCallTracer tracer;
    (void)tracer.start([]() { (void)sendQuit(); });
    std::vector<std::uint64_t> sizes;
    EXPECT_TRUE(tracer.follow([&sizes](const TracedStop& stop) {
        if (stop.kind == TracedStop::Kind::Call && stop.call.isStart && stop.call.number == SYS_recvfrom) {
            sizes.push_back(stop.call.arguments[2]);
        }
    }));
    EXPECT_THAT(sizes, ElementsAre(1024U));
}

} // namespace
