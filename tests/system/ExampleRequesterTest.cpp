#include "tests/support/ChildProcess.h"
#include "tests/support/ListeningPeer.h"
#include "tests/support/Processes.h"
#include "tests/support/SanitizerReports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using namespace ZNORBTEST;

constexpr const char* socketPath = "/var/run/znorb.socket";

class ExampleRequester : public testing::Test {
protected:
    Launch launch(const std::vector<std::string>& arguments) const {
        Launch result;
        const std::string self = programOf(getpid());
        result.program = self.substr(0, self.rfind('/')) + "/znorbrequestor";
        result.arguments = arguments;
        result.environment = m_reports.environment();
        return result;
    }

    ProgramResult run(const std::vector<std::string>& arguments) const {
        return runProgram(launch(arguments));
    }

    // A daemon that replies with these pieces once it has received the request.
    static PeerScript replying(const std::string& request, const std::vector<std::string>& pieces) {
        PeerScript script;
        script.receiveFirst = request.size();
        script.pieces = pieces;
        return script;
    }

private:
    SanitizerReports m_reports;
};

TEST_F(ExampleRequester, SendsTheRequestAsItIsAndPrintsTheReply) {
    const ListeningPeer daemon(replying("GET|en|30", {"3"}), socketPath);
    const ProgramResult result = run({"GET|en|30"});
    EXPECT_EQ(result.end, exitedWith(0));
    EXPECT_EQ(result.output, "3\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(daemon.received(), ElementsAre("GET|en|30"));
}

TEST_F(ExampleRequester, SendsARequestOfTheGreatestLength) {
    const std::string request(1024, 'x');
    const ListeningPeer daemon(replying(request, {"0"}), socketPath);
    EXPECT_EQ(run({request}).end, exitedWith(0));
    EXPECT_THAT(daemon.received(), ElementsAre(request));
}

TEST_F(ExampleRequester, PrintsAReplyThatArrivesInPieces) {
    const ListeningPeer daemon(replying("GET|en", {"1", "2"}), socketPath);
    const ProgramResult result = run({"GET|en"});
    EXPECT_EQ(result.end, exitedWith(0));
    EXPECT_EQ(result.output, "12\n");
}

TEST_F(ExampleRequester, PrintsWhatItHasWhenTheConnectionStaysOpen) {
    PeerScript script = replying("GET|en", {"7"});
    script.holdOpen = true;
    const ListeningPeer daemon(script, socketPath);
    const ProgramResult result = run({"-reply", "1", "GET|en"});
    EXPECT_EQ(result.end, exitedWith(0));
    EXPECT_EQ(result.output, "7\n");
}

TEST_F(ExampleRequester, TakesNoMoreThanTheLongestReply) {
    PeerScript script = replying("GET|en", {std::string(5000, '9')});
    const ListeningPeer daemon(script, socketPath);
    const ProgramResult result = run({"GET|en"});
    EXPECT_EQ(result.end, exitedWith(0));
    EXPECT_EQ(result.output, std::string(1024, '9') + "\n");
}

TEST_F(ExampleRequester, FailsWithoutAReply) {
    const ListeningPeer daemon(replying("GET|en", {}), socketPath);
    const ProgramResult result = run({"GET|en"});
    EXPECT_EQ(result.end, exitedWith(1));
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "znorbrequestor: no reply\n");
}

TEST_F(ExampleRequester, DoesNotWaitForAReplyForEver) {
    PeerScript script = replying("GET|en", {});
    script.holdOpen = true;
    const ListeningPeer daemon(script, socketPath);
    EXPECT_EQ(run({"-reply", "1", "GET|en"}).end, exitedWith(1));
    EXPECT_EQ(run({"-reply", "0", "GET|en"}).end, exitedWith(1));
}

TEST_F(ExampleRequester, FailsWhenNobodyListens) {
    const ProgramResult result = run({"-wait", "0", "GET|en"});
    EXPECT_EQ(result.end, exitedWith(1));
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "znorbrequestor: the responder cannot be reached: is it running?\n");
}

TEST_F(ExampleRequester, TriesAgainUntilSomebodyListens) {
    ChildProcess requester(launch({"-wait", "20", "GET|en"}));
    EXPECT_EQ(requester.waitForEnd(Milliseconds(150)), stillRunning()); // one attempt has failed
    const ListeningPeer daemon(replying("GET|en", {"0"}), socketPath);
    EXPECT_EQ(requester.waitForEnd(), exitedWith(0));
    EXPECT_EQ(requester.output(), "0\n");
}

TEST_F(ExampleRequester, TriesForFiveSecondsUnlessToldOtherwise) {
    const std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
    EXPECT_EQ(run({"GET|en"}).end, exitedWith(1));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

TEST_F(ExampleRequester, ExplainsItsUsage) {
    for (const std::vector<std::string>& words :
         std::vector<std::vector<std::string>>{{},
                                               {""},
                                               {"GET|en", "more"},
                                               {"-wait", "5"},
                                               {"-wait", "x", "GET|en"},
                                               {"-wait", "-1", "GET|en"},
                                               {"-reply", "", "GET|en"},
                                               {"-reply", "5s", "GET|en"},
                                               {"-unknown", "5", "GET|en"},
                                               {"-help"},
                                               {std::string(1025, 'x')}}) {
        const ProgramResult result = run(words);
        EXPECT_EQ(result.end, exitedWith(2));
        EXPECT_THAT(result.errors, StartsWith("usage: znorbrequestor"));
        EXPECT_EQ(result.output, "");
    }
}

TEST_F(ExampleRequester, FailsWhenTheReplyCannotBePrinted) {
    const ListeningPeer daemon(replying("GET|en", {"0"}), socketPath);
    Launch shell;
    shell.program = "/bin/sh";
    shell.arguments = {"-c", launch({}).program + " 'GET|en' >/dev/full"};
    const ProgramResult result = runProgram(shell);
    EXPECT_EQ(result.end, exitedWith(1));
    EXPECT_THAT(result.errors, HasSubstr("cannot be printed"));
}

} // namespace
