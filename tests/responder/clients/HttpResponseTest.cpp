#include "responder/clients/HttpClient.h"
#include "tests/support/Allocations.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Matchers.h"
#include "tests/support/Rows.h"
#include "tests/support/SelectRecorder.h"
#include "tests/support/SocketPair.h"

#include <cerrno>
#include <map>

namespace {

using namespace ZNORBRESPONDER;

using namespace ZNORBTEST;

/// What one call made of a response.
struct Outcome {
    bool isRead = false;
    std::string statusLine;
    std::map<std::string, std::string> headers;
    bool hasData = false;
    std::string body;
};

/// Reads what waits at the near end. The results hold old values before.
Outcome readFrom(int descriptor) {
    ORBCOMMON::ClientSocket unused;
    Outcome outcome;
    HttpHeaders headers;
    (void)headers.insert("Old", "value");
    std::unique_ptr<std::uint8_t[]> data(new std::uint8_t[1]);
    std::uint32_t length = 1;
    outcome.isRead = readResponse(unused, descriptor, outcome.statusLine, headers, data, length);
    for (const auto& header : headers) {
        outcome.headers[header.first] = header.second;
    }
    outcome.hasData = data != nullptr;
    outcome.body = outcome.hasData ? std::string(reinterpret_cast<const char*>(data.get()), length) : "";
    EXPECT_TRUE(outcome.hasData || length == 0);
    return outcome;
}

/// Reads the response of a peer that writes all of it at once and closes.
Outcome readAll(const std::string& response) {
    SocketPair peer;
    peer.write(response);
    peer.finish();
    return readFrom(peer.near());
}

std::map<std::string, std::string> headersOf(const std::string& lines) {
    const Outcome outcome = readAll("HTTP/1.0 200 OK\r\n" + lines + "\r\n\r\n");
    EXPECT_TRUE(outcome.isRead);
    return outcome.headers;
}

constexpr const char* status = "HTTP/1.0 200 OK\r\n";

/// Status lines that are responses with nothing behind them.
class StatusLine : public testing::TestWithParam<NamedText> {};

TEST_P(StatusLine, AloneIsAResponse) {
    const Outcome outcome = readAll(GetParam().text + "\r\n\r\n");
    EXPECT_TRUE(outcome.isRead);
    EXPECT_EQ(outcome.statusLine, GetParam().text);
    EXPECT_THAT(outcome.headers, IsEmpty()) << "old headers are cleared";
    EXPECT_FALSE(outcome.hasData);
}

const NamedText statusLines[] = {
    {"Usual", "HTTP/1.0 200 OK"},
    {"AnyText", "?"},
    {"LineFeedsAndNuls", {"\nHTTP\0 \n200\n", 12}},
};

INSTANTIATE_TEST_SUITE_P(ReadResponseHead, StatusLine, testing::ValuesIn(statusLines), rowName);

/// Heads that fail whatever else is right about them, and the status line that is read of them.
using BadHead = Row<std::string, std::string>;

class ReadResponseOfABadHead : public testing::TestWithParam<BadHead> {};

TEST_P(ReadResponseOfABadHead, Fails) {
    const Outcome outcome = readAll(GetParam().given);
    EXPECT_FALSE(outcome.isRead);
    EXPECT_EQ(outcome.statusLine, GetParam().expected);
    EXPECT_FALSE(outcome.hasData);
}

const std::string ok = "HTTP/1.0 200 OK";

const BadHead badHeads[] = {
    {"CarriageReturnAlone", "\r", ""},
    {"LineEndAlone", "\r\n", ""},
    {"LineEndsAlone", "\r\n\r\n", ""},
    {"CarriageReturnFirst", "\rHTTP/1.0 200 OK\r\n\r\n", ""},
    {"CarriageReturnInTheStatusLine", "HTTP/1.0\r200 OK\r\n\r\n", ""},
    {"StatusLineWithoutAnEnd", ok, ""},
    {"StatusLineThatEndsWithALineFeedAlone", ok + "\n\n", ""},
    {"CarriageReturnAsTheLastByteOfTheStatusLine", ok + "\r", ""},
    {"CarriageReturnAsTheLastByteBehindTheStatusLine", ok + "\r\n\r", ok},
    {"CarriageReturnAsTheLastByteOfAHeader", ok + "\r\nName: value\r", ok},
    {"LoneCarriageReturnInAHeader", ok + "\r\nName: one\rtwo\r\n\r\n", ok},
    {"LoneCarriageReturnBeforeAHeader", ok + "\r\n\rName: value\r\n\r\n", ok},
    {"HeadersThatDoNotEnd", ok + "\r\nName: value\r\n", ok},
};

INSTANTIATE_TEST_SUITE_P(ReadResponseHead, ReadResponseOfABadHead, testing::ValuesIn(badHeads), rowName);

/// The lines behind a status line and what is recorded of them.
using HeaderLines = Row<std::string, std::map<std::string, std::string>>;

class ReadResponseHeaders : public testing::TestWithParam<HeaderLines> {};

TEST_P(ReadResponseHeaders, AreRecorded) {
    EXPECT_EQ(headersOf(GetParam().given), GetParam().expected);
}

const HeaderLines headerLines[] = {
    {"ByTheirNames", "Server: test\r\nX-Name: some value", {{"Server", "test"}, {"X-Name", "some value"}}},
    {"LineFeedAloneDoesNotEndAHeader", "One: 11\nTwo: 22", {{"One", "11\nTwo: 22"}}},
    {"LineWithoutAColonIsSkipped", "no colon here\r\nServer: test", {{"Server", "test"}}},
    {"ValueMayFollowTheColonDirectly", "X-Name:ab", {{"X-Name", "ab"}}},
    {"SpacesBeforeTheValueAreSkipped", "X-Name:  ab", {{"X-Name", "ab"}}},
    {"ValueOfOneCharacterIsDropped", "X-Name: a\r\nY-Name:b\r\nZ-Name:   c", {}},
    {"EmptyValueIsDropped", "X-Name:\r\nY-Name: \r\nZ-Name:     ", {}},
    {"ColonAloneIsDropped", ":\r\n: \r\n:a", {}},
    {"EmptyNameIsAName", ": value", {{"", "value"}}},
    {"TrailingSpacesBelongToTheValue", "X: ab  \r\nY: c ", {{"X", "ab  "}, {"Y", "c "}}},
    {"TabBelongsToTheValue", "X:\tab\r\nY: \tc\r\nZ:\t", {{"X", "\tab"}, {"Y", "\tc"}}},
    {"NameIsNotTrimmed", " X-Name : ab", {{" X-Name ", "ab"}}},
    {"NameEndsAtTheFirstColon", "X-Name: a:b:c", {{"X-Name", "a:b:c"}}},
    {"SecondColonIsAValueOfOneCharacter", "X-Name::", {}},
    {"LaterHeaderOfTheSameNameReplacesTheEarlier", "X: one\r\nX: two", {{"X", "two"}}},
    {"DroppedHeaderReplacesNothing", "X: one\r\nX: 2", {{"X", "one"}}},
    {"NamesThatDifferInCaseAreDifferent", "X: one\r\nx: two", {{"X", "one"}, {"x", "two"}}},
    {"MayHoldNuls", {"X\0Y: a\0b", 8}, {{{"X\0Y", 3}, {"a\0b", 3}}}},
};

INSTANTIATE_TEST_SUITE_P(ReadResponseHead, ReadResponseHeaders, testing::ValuesIn(headerLines), rowName);

TEST(ReadResponseHead, ManyHeadersAreAllRecorded) {
    std::string lines;
    for (int i = 100; i < 400; ++i) {
        lines += (i == 100 ? "" : "\r\n") + ("N" + std::to_string(i)) + ": v" + std::to_string(i);
    }
    const auto headers = headersOf(lines);
    EXPECT_EQ(headers.size(), 300U);
    EXPECT_EQ(headers.at("N100"), "v100");
    EXPECT_EQ(headers.at("N399"), "v399");
}

/// A response without a body whose head has exactly this length.
std::string headOfLength(std::size_t length) {
    const std::string begin = std::string(status) + "X-Name: ";
    return begin + std::string(length - begin.size() - 4, 'v') + "\r\n\r\n";
}

TEST(ReadResponseHead, HeadMustEndWithinOneReadAndNothingIsReadBehindOneThatDoesNot) {
    const Outcome outcome = readAll(headOfLength(8192));
    EXPECT_TRUE(outcome.isRead);
    EXPECT_EQ(outcome.headers.at("X-Name").size(), 8192U - 29U);
    EXPECT_FALSE(readAll(headOfLength(8193)).isRead);
    EXPECT_FALSE(readAll(headOfLength(20000)).isRead);
    SocketPair peer;
    peer.write(headOfLength(8292));
    EXPECT_FALSE(readFrom(peer.near()).isRead);
    char rest[200];
    EXPECT_EQ(recvfrom(peer.near(), rest, sizeof rest, MSG_DONTWAIT, nullptr, nullptr), 100);
}

TEST(ReadResponseHead, ResponseThatArrivesByteByByteFails) {
    const LogRecorder log;
    SocketPair peer(SOCK_SEQPACKET);
    for (const char byte : std::string("HTTP/1.0 200 OK\r\n\r\n")) {
        peer.write(std::string(1, byte));
    }
    EXPECT_FALSE(readFrom(peer.near()).isRead) << "the head must arrive with the first read";
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ReadResponseHead, HeadInTwoPiecesFails) {
    SocketPair peer(SOCK_SEQPACKET);
    peer.write("HTTP/1.0 200 OK\r\nServer: test\r\n");
    peer.write("\r\n");
    const Outcome outcome = readFrom(peer.near());
    EXPECT_FALSE(outcome.isRead);
    EXPECT_EQ(outcome.statusLine, "HTTP/1.0 200 OK");
}

TEST(ReadResponseHead, ResponseCutAnywhereInItsHeadFails) {
    const std::string response = "HTTP/1.0 200 OK\r\nServer: test\r\nX: y\r\n\r\n";
    const std::size_t statusEnd = 17;
    for (std::size_t length = 0; length < response.size(); ++length) {
        const Outcome outcome = readAll(response.substr(0, length));
        EXPECT_FALSE(outcome.isRead) << length;
        EXPECT_FALSE(outcome.hasData) << length;
        EXPECT_EQ(outcome.statusLine, length >= statusEnd ? "HTTP/1.0 200 OK" : "") << length;
    }
    EXPECT_TRUE(readAll(response).isRead);
}

TEST(ReadResponseHead, PeerThatClosesOrResetsWithoutAByteFailsWithoutAMessage) {
    const LogRecorder log;
    const Outcome outcome = readAll("");
    EXPECT_FALSE(outcome.isRead);
    EXPECT_THAT(outcome.headers, IsEmpty()) << "cleared all the same";
    EXPECT_FALSE(outcome.hasData);
    SocketPair peer;
    peer.resetFar();
    EXPECT_FALSE(readFrom(peer.near()).isRead);
    EXPECT_FALSE(readFrom(-1).isRead) << "a closed descriptor";
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ReadResponseHead, WaitsForHalfAnHourOnTheDescriptorAlone) {
    const SelectRecorder waits;
    SocketPair peer;
    peer.write("HTTP/1.0 200 OK\r\n\r\n");
    EXPECT_TRUE(readFrom(peer.near()).isRead);
    EXPECT_THAT(SelectRecorder::calls(), ElementsAre(isWaitFor(peer.near(), 1800)));
}

TEST(ReadResponseHead, PeerThatSaysNothingInTimeFails) {
    const LogRecorder log;
    const SelectRecorder waits;
    SelectRecorder::divideWaitsBy(36000);
    const SocketPair peer;
    EXPECT_FALSE(readFrom(peer.near()).isRead);
    EXPECT_EQ(SelectRecorder::calls().size(), 1U);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ReadResponseHead, WaitThatFailsIsAFailedRead) {
    const LogRecorder log;
    const SelectRecorder waits;
    SelectRecorder::fail(EINTR);
    SocketPair peer;
    peer.write("HTTP/1.0 200 OK\r\n\r\n");
    EXPECT_FALSE(readFrom(peer.near()).isRead);
    EXPECT_EQ(SelectRecorder::calls().size(), 1U) << "an interrupted wait is not resumed";
    SelectRecorder::returnOneWithoutDescriptor();
    EXPECT_FALSE(readFrom(peer.near()).isRead) << "a wait that flags another descriptor";
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ReadResponseHead, HeadThatFindsNoMemoryIsAFailedRead) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be made to fail here";
    const LogRecorder log;
    SocketPair peer;
    peer.write("HTTP/1.0 " + std::string(3000, '2') + "\r\n\r\n");
    const FailingAllocation failure(0, 3000);
    const Outcome outcome = readFrom(peer.near());
    EXPECT_TRUE(FailingAllocation::hasHappened());
    EXPECT_FALSE(outcome.isRead);
    EXPECT_FALSE(outcome.hasData);
    EXPECT_THAT(log.lines(), IsEmpty());
}

} // namespace
