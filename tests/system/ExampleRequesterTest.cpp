#include "tests/support/ListeningPeer.h"
#include "tests/support/Matchers.h"
#include "tests/support/Names.h"
#include "tests/support/Results.h"
#include "tests/support/Rows.h"
#include "tests/system/Example.h"

#include <chrono>
#include <tuple>

namespace {

using namespace ZNORBTEST;

const Example requesters[] = {{"C", "znorbrequestor"}, {"Python", "znorbrequestor.py"}};

class RequesterTest : public ExampleTest {
protected:
    using ExampleTest::ExampleTest;

    ProgramResult run(const std::vector<std::string>& arguments) const {
        return runProgram(launch(arguments));
    }

    // A daemon that replies with these pieces once it has received the request.
    static PeerScript replying(const std::string& request, const std::vector<std::string>& pieces) {
        return {request.size(), pieces};
    }
};

class ExampleRequester : public RequesterTest, public testing::WithParamInterface<Example> {
protected:
    ExampleRequester() : RequesterTest(GetParam()) {}
};

INSTANTIATE_TEST_SUITE_P(, ExampleRequester, testing::ValuesIn(requesters), rowName);

/// A request, the pieces of its reply, and what is printed.
struct Dialogue {
    const char* name;
    std::string request;
    std::vector<std::string> pieces;
    bool isHeldOpen;
    std::string output;
    std::string errors;

    friend void PrintTo(const Dialogue& row, std::ostream* stream) { *stream << row.name; }
};

class RequesterDialogue : public RequesterTest,
                          public testing::WithParamInterface<std::tuple<Example, Dialogue>> {
protected:
    RequesterDialogue() : RequesterTest(std::get<0>(GetParam())) {}
};

TEST_P(RequesterDialogue, SendsTheRequestAsItIsAndPrintsTheReply) {
    const Dialogue& row = std::get<1>(GetParam());
    const ListeningPeer daemon({row.request.size(), row.pieces, row.isHeldOpen}, socketPath);
    EXPECT_THAT(run({"-reply", row.isHeldOpen ? "1" : "5", row.request}),
                resultIs(exitedWith(row.errors.empty() ? 0 : 1), row.output, row.errors));
    EXPECT_THAT(daemon.received(), ElementsAre(row.request));
}

const std::string longestRequest(1024, 'x');
const std::string longestReply(1024, '9');
constexpr const char* noReply = "znorbrequestor: no reply\n";

const Dialogue dialogues[] = {
    {"OneByte", "GET|en|30", {"3"}, false, "3\n", ""},
    {"LongestRequest", longestRequest, {"0"}, false, "0\n", ""},
    {"ReplyInPieces", "GET|en", {"1", "2"}, false, "12\n", ""},
    {"ReplyOnAConnectionThatStaysOpen", "GET|en", {"7"}, true, "7\n", ""},
    {"ReplyThatIsTooLong", "GET|en", {longestReply + std::string(4000, '9')}, false, longestReply + "\n", ""},
    {"NoReply", "GET|en", {}, false, "", noReply},
};

INSTANTIATE_TEST_SUITE_P(ExampleRequester, RequesterDialogue,
                         testing::Combine(testing::ValuesIn(requesters), testing::ValuesIn(dialogues)),
                         [](const auto& row) {
                             return std::string(std::get<0>(row.param).name) + "_" +
                                    std::get<1>(row.param).name;
                         });

TEST_P(ExampleRequester, DoesNotWaitForAReplyForEver) {
    PeerScript script = replying("GET|en", {});
    script.holdOpen = true;
    const ListeningPeer daemon(script, socketPath);
    EXPECT_EQ(run({"-reply", "1", "GET|en"}).end, exitedWith(1));
    EXPECT_EQ(run({"-reply", "0", "GET|en"}).end, exitedWith(1));
}

TEST_P(ExampleRequester, FailsWhenNobodyListens) {
    EXPECT_THAT(
        run({"-wait", "0", "GET|en"}),
        resultIs(exitedWith(1), "", "znorbrequestor: the responder cannot be reached: is it running?\n"));
}

TEST_P(ExampleRequester, TriesAgainUntilSomebodyListens) {
    ChildProcess requester(launch({"-wait", "20", "GET|en"}));
    EXPECT_EQ(requester.waitForEnd(Milliseconds(150)), stillRunning()); // one attempt has failed
    const ListeningPeer daemon(replying("GET|en", {"0"}), socketPath);
    EXPECT_EQ(requester.waitForEnd(), exitedWith(0));
    EXPECT_EQ(requester.output(), "0\n");
}

TEST_P(ExampleRequester, TriesForFiveSecondsUnlessToldOtherwise) {
    const std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
    EXPECT_EQ(run({"GET|en"}).end, exitedWith(1));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

TEST_P(ExampleRequester, ExplainsItsUsage) {
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
                                               {"-wait", std::string(5000, '9'), "GET|en"},
                                               {std::string(1025, 'x')}}) {
        EXPECT_THAT(run(words),
                    resultIs(exitedWith(2), "", StartsWith("usage: " + program() + " [-wait SECONDS]")));
    }
}

TEST_P(ExampleRequester, FailsWhenTheReplyCannotBePrinted) {
    const ListeningPeer daemon(replying("GET|en", {"0"}), socketPath);
    EXPECT_THAT(
        runProgram({.program = "/bin/sh", .arguments = {"-c", launch({}).program + " 'GET|en' >/dev/full"}}),
        resultIs(exitedWith(1), _, HasSubstr("cannot be printed")));
}

} // namespace
