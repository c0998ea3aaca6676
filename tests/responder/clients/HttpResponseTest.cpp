#include "responder/clients/HttpClient.h"
#include "tests/responder/AllocationFailure.h"
#include "tests/responder/SocketPair.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/SelectRecorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace ZNORBRESPONDER;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using ZNORBTEST::AllocationFailure;
using ZNORBTEST::LogRecorder;
using ZNORBTEST::SelectRecorder;
using ZNORBTEST::SocketPair;

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

TEST(ReadResponseHead, StatusLineAloneIsAResponse) {
    const Outcome outcome = readAll("HTTP/1.0 200 OK\r\n\r\n");
    EXPECT_TRUE(outcome.isRead);
    EXPECT_EQ(outcome.statusLine, "HTTP/1.0 200 OK");
    EXPECT_THAT(outcome.headers, IsEmpty()) << "old headers are cleared";
    EXPECT_FALSE(outcome.hasData);
}

TEST(ReadResponseHead, StatusLineIsAnyText) {
    const Outcome outcome = readAll("?\r\n\r\n");
    EXPECT_TRUE(outcome.isRead);
    EXPECT_EQ(outcome.statusLine, "?");
}

TEST(ReadResponseHead, StatusLineMayHoldLineFeedsAndNuls) {
    const std::string line("\nHTTP\0 \n200\n", 12);
    const Outcome outcome = readAll(line + "\r\n\r\n");
    EXPECT_TRUE(outcome.isRead);
    EXPECT_EQ(outcome.statusLine, line);
}

TEST(ReadResponseHead, ResponseThatStartsWithACarriageReturnFails) {
    EXPECT_FALSE(readAll("\r").isRead);
    EXPECT_FALSE(readAll("\r\n").isRead);
    EXPECT_FALSE(readAll("\r\n\r\n").isRead);
    EXPECT_FALSE(readAll("\rHTTP/1.0 200 OK\r\n\r\n").isRead);
}

TEST(ReadResponseHead, StatusLineWithoutAnEndFails) {
    const Outcome outcome = readAll("HTTP/1.0 200 OK");
    EXPECT_FALSE(outcome.isRead);
    EXPECT_EQ(outcome.statusLine, "");
}

TEST(ReadResponseHead, StatusLineThatEndsWithALineFeedAloneFails) {
    EXPECT_FALSE(readAll("HTTP/1.0 200 OK\n\n").isRead);
}

TEST(ReadResponseHead, LoneCarriageReturnInTheStatusLineFails) {
    const Outcome outcome = readAll("HTTP/1.0\r200 OK\r\n\r\n");
    EXPECT_FALSE(outcome.isRead);
    EXPECT_EQ(outcome.statusLine, "");
}

TEST(ReadResponseHead, CarriageReturnAsTheLastByteFails) {
    EXPECT_FALSE(readAll("HTTP/1.0 200 OK\r").isRead);
    EXPECT_FALSE(readAll("HTTP/1.0 200 OK\r\n\r").isRead);
    EXPECT_FALSE(readAll("HTTP/1.0 200 OK\r\nName: value\r").isRead);
}

TEST(ReadResponseHead, HeadersThatDoNotEndFail) {
    const Outcome outcome = readAll("HTTP/1.0 200 OK\r\nName: value\r\n");
    EXPECT_FALSE(outcome.isRead);
    EXPECT_EQ(outcome.statusLine, "HTTP/1.0 200 OK") << "the status line was there";
    EXPECT_FALSE(outcome.hasData);
}

TEST(ReadResponseHead, LoneCarriageReturnInAHeaderFails) {
    EXPECT_FALSE(readAll("HTTP/1.0 200 OK\r\nName: one\rtwo\r\n\r\n").isRead);
    EXPECT_FALSE(readAll("HTTP/1.0 200 OK\r\n\rName: value\r\n\r\n").isRead);
}

TEST(ReadResponseHead, LineFeedAloneDoesNotEndAHeader) {
    EXPECT_THAT(headersOf("One: 11\nTwo: 22"), ElementsAre(Pair("One", "11\nTwo: 22")));
}

TEST(ReadResponseHead, HeadersAreRecordedByTheirNames) {
    EXPECT_THAT(headersOf("Server: test\r\nX-Name: some value"),
                UnorderedElementsAre(Pair("Server", "test"), Pair("X-Name", "some value")));
}

TEST(ReadResponseHead, LineWithoutAColonIsSkipped) {
    EXPECT_THAT(headersOf("no colon here\r\nServer: test"), ElementsAre(Pair("Server", "test")));
}

TEST(ReadResponseHead, ValueMayFollowTheColonDirectly) {
    EXPECT_THAT(headersOf("X-Name:ab"), ElementsAre(Pair("X-Name", "ab")));
}

TEST(ReadResponseHead, SpacesBeforeTheValueAreSkipped) {
    EXPECT_THAT(headersOf("X-Name:  ab"), ElementsAre(Pair("X-Name", "ab")));
}

TEST(ReadResponseHead, ValueOfOneCharacterIsDropped) {
    EXPECT_THAT(headersOf("X-Name: a\r\nY-Name:b\r\nZ-Name:   c"), IsEmpty());
}

TEST(ReadResponseHead, EmptyValueIsDropped) {
    EXPECT_THAT(headersOf("X-Name:\r\nY-Name: \r\nZ-Name:     "), IsEmpty());
}

TEST(ReadResponseHead, ColonAloneIsDropped) {
    EXPECT_THAT(headersOf(":\r\n: \r\n:a"), IsEmpty());
}

TEST(ReadResponseHead, EmptyNameIsAName) {
    EXPECT_THAT(headersOf(": value"), ElementsAre(Pair("", "value")));
}

TEST(ReadResponseHead, TrailingSpacesBelongToTheValue) {
    EXPECT_THAT(headersOf("X-Name: ab  \r\nY-Name: c "),
                UnorderedElementsAre(Pair("X-Name", "ab  "), Pair("Y-Name", "c ")));
}

TEST(ReadResponseHead, TabBelongsToTheValue) {
    EXPECT_THAT(headersOf("X-Name:\tab\r\nY-Name: \tc\r\nZ-Name:\t"),
                UnorderedElementsAre(Pair("X-Name", "\tab"), Pair("Y-Name", "\tc")));
}

TEST(ReadResponseHead, NameIsNotTrimmed) {
    EXPECT_THAT(headersOf(" X-Name : ab"), ElementsAre(Pair(" X-Name ", "ab")));
}

TEST(ReadResponseHead, NameEndsAtTheFirstColon) {
    EXPECT_THAT(headersOf("X-Name: a:b:c"), ElementsAre(Pair("X-Name", "a:b:c")));
    EXPECT_THAT(headersOf("X-Name::"), IsEmpty()) << "the second colon is a value of one character";
}

TEST(ReadResponseHead, LaterHeaderOfTheSameNameReplacesTheEarlier) {
    EXPECT_THAT(headersOf("X-Name: one\r\nX-Name: two"), ElementsAre(Pair("X-Name", "two")));
}

TEST(ReadResponseHead, DroppedHeaderReplacesNothing) {
    EXPECT_THAT(headersOf("X-Name: one\r\nX-Name: 2"), ElementsAre(Pair("X-Name", "one")));
}

TEST(ReadResponseHead, NamesThatDifferInCaseAreDifferent) {
    EXPECT_THAT(headersOf("X-Name: one\r\nx-name: two"),
                UnorderedElementsAre(Pair("X-Name", "one"), Pair("x-name", "two")));
}

TEST(ReadResponseHead, HeaderMayHoldNuls) {
    EXPECT_THAT(headersOf(std::string("X\0Y: a\0b", 8)),
                ElementsAre(Pair(std::string("X\0Y", 3), std::string("a\0b", 3))));
}

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

TEST(ReadResponseHead, HeadOfExactlyOneReadIsRead) {
    const Outcome outcome = readAll(headOfLength(8192));
    EXPECT_TRUE(outcome.isRead);
    EXPECT_EQ(outcome.headers.at("X-Name").size(), 8192U - 29U);
}

TEST(ReadResponseHead, HeadThatDoesNotEndWithinOneReadFails) {
    EXPECT_FALSE(readAll(headOfLength(8193)).isRead);
    EXPECT_FALSE(readAll(headOfLength(20000)).isRead);
}

TEST(ReadResponseHead, NothingIsReadBehindAHeadThatFails) {
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

TEST(ReadResponseHead, PeerThatClosesWithoutAByteFails) {
    const LogRecorder log;
    const Outcome outcome = readAll("");
    EXPECT_FALSE(outcome.isRead);
    EXPECT_THAT(outcome.headers, IsEmpty()) << "cleared all the same";
    EXPECT_FALSE(outcome.hasData);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ReadResponseHead, PeerThatResetsWithoutAByteFailsWithoutAMessage) {
    const LogRecorder log;
    SocketPair peer;
    peer.resetFar();
    EXPECT_FALSE(readFrom(peer.near()).isRead);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ReadResponseHead, WaitsForHalfAnHourOnTheDescriptorAlone) {
    const SelectRecorder waits;
    SocketPair peer;
    peer.write("HTTP/1.0 200 OK\r\n\r\n");
    EXPECT_TRUE(readFrom(peer.near()).isRead);
    const auto calls = SelectRecorder::calls();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].seconds, 1800);
    EXPECT_EQ(calls[0].microseconds, 0);
    EXPECT_THAT(calls[0].reading, ElementsAre(peer.near()));
    EXPECT_EQ(calls[0].highestPlusOne, peer.near() + 1);
    EXPECT_TRUE(calls[0].onlyReading);
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
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ReadResponseHead, WaitThatFlagsAnotherDescriptorIsAFailedRead) {
    const SelectRecorder waits;
    SelectRecorder::returnOneWithoutDescriptor();
    SocketPair peer;
    peer.write("HTTP/1.0 200 OK\r\n\r\n");
    EXPECT_FALSE(readFrom(peer.near()).isRead);
}

TEST(ReadResponseHead, HeadThatFindsNoMemoryIsAFailedRead) {
    if (!AllocationFailure::isPossible()) {
        GTEST_SKIP() << "allocations cannot be made to fail here";
    }
    const LogRecorder log;
    SocketPair peer;
    peer.write("HTTP/1.0 " + std::string(3000, '2') + "\r\n\r\n");
    const AllocationFailure failure(3000);
    const Outcome outcome = readFrom(peer.near());
    EXPECT_TRUE(AllocationFailure::hasHappened());
    EXPECT_FALSE(outcome.isRead);
    EXPECT_FALSE(outcome.hasData);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ReadResponseHead, ClosedDescriptorFails) {
    EXPECT_FALSE(readFrom(-1).isRead);
}

} // namespace
