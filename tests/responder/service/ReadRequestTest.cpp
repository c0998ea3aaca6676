#include "responder/service/UnifiedResponderMonitor.h"
#include "tests/responder/SocketPair.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/SelectRecorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using ZNORBRESPONDER::UnifiedResponderMonitor;
using ZNORBTEST::LogRecorder;
using ZNORBTEST::SelectRecorder;
using ZNORBTEST::SocketPair;

class ReadRequest : public testing::Test {
protected:
    ReadRequest() : socket(peer.releaseNear()) {}

    bool read() { return UnifiedResponderMonitor::readRequest(socket, command, tokens); }

    /// The tokens of a request that arrives whole.
    std::vector<std::string> tokensOf(const std::string& request) {
        peer.write(request);
        EXPECT_TRUE(read());
        EXPECT_FALSE(tokens.empty());
        EXPECT_EQ(command, tokens.empty() ? "" : tokens.front());
        return tokens;
    }

    void expectNothingRead() {
        EXPECT_FALSE(read());
        EXPECT_EQ(command, "");
        EXPECT_THAT(tokens, IsEmpty());
        EXPECT_THAT(log.lines(), IsEmpty());
    }

    const LogRecorder log;
    const SelectRecorder waits;
    SocketPair peer;
    ORBCOMMON::ClientSocket socket;
    std::string command = "before";
    std::vector<std::string> tokens = {"before", "that"};
};

TEST_F(ReadRequest, WordAloneIsTheOnlyToken) {
    EXPECT_THAT(tokensOf("QUIT"), ElementsAre("QUIT"));
}

TEST_F(ReadRequest, BarSeparatesTokens) {
    EXPECT_THAT(tokensOf("GET|en|30"), ElementsAre("GET", "en", "30"));
}

TEST_F(ReadRequest, BarAtTheEndIsFollowedByAnEmptyToken) {
    EXPECT_THAT(tokensOf("GET|en|"), ElementsAre("GET", "en", ""));
}

TEST_F(ReadRequest, BarAtTheBeginFollowsAnEmptyCommand) {
    EXPECT_THAT(tokensOf("|GET"), ElementsAre("", "GET"));
    EXPECT_EQ(command, "");
}

TEST_F(ReadRequest, BarsInARowHaveEmptyTokensBetween) {
    EXPECT_THAT(tokensOf("GET|||x"), ElementsAre("GET", "", "", "x"));
}

TEST_F(ReadRequest, BarAloneIsTwoEmptyTokens) {
    EXPECT_THAT(tokensOf("|"), ElementsAre("", ""));
}

TEST_F(ReadRequest, NothingIsTrimmed) {
    EXPECT_THAT(tokensOf(" QUIT \r\n"), ElementsAre(" QUIT \r\n"));
    EXPECT_THAT(tokensOf("GET | en\n"), ElementsAre("GET ", " en\n"));
}

TEST_F(ReadRequest, NulsAreBytesLikeOthers) {
    EXPECT_THAT(tokensOf(std::string("QUIT\0", 5)), ElementsAre(std::string("QUIT\0", 5)));
    EXPECT_THAT(tokensOf(std::string("\0|\0", 3)), ElementsAre(std::string(1, '\0'), std::string(1, '\0')));
}

TEST_F(ReadRequest, BytesAboveAsciiAreKept) {
    EXPECT_THAT(tokensOf("GET|\xc3\xa9\xff"), ElementsAre("GET", "\xc3\xa9\xff"));
}

TEST_F(ReadRequest, EarlierResultsAreForgotten) {
    EXPECT_THAT(tokensOf("GET|en|30"), ElementsAre("GET", "en", "30"));
    EXPECT_THAT(tokensOf("PRINT"), ElementsAre("PRINT"));
}

TEST_F(ReadRequest, RequestOf1024BytesIsReadWhole) {
    const std::string language(1020, 'l');
    EXPECT_THAT(tokensOf("GET|" + language), ElementsAre("GET", language));
}

TEST_F(ReadRequest, LongerRequestIsCutAt1024BytesAndTheRestStaysUnread) {
    EXPECT_THAT(tokensOf("GET|" + std::string(1020, 'l') + "rest|"),
                ElementsAre("GET", std::string(1020, 'l')));
    char rest[16] = {};
    EXPECT_EQ(recvfrom(socket.descriptor(), rest, sizeof rest, MSG_DONTWAIT, nullptr, nullptr), 5);
    EXPECT_STREQ(rest, "rest|");
}

TEST_F(ReadRequest, RequestOfBarsOnlyIsOneTokenMoreThanBars) {
    EXPECT_EQ(tokensOf(std::string(2000, '|')).size(), 1025U);
}

TEST_F(ReadRequest, RequestIsOneReadHoweverMuchFollows) {
    SocketPair pieces(SOCK_SEQPACKET);
    const ORBCOMMON::ClientSocket connection(pieces.releaseNear());
    pieces.write("QU");
    pieces.write("IT");
    EXPECT_TRUE(UnifiedResponderMonitor::readRequest(connection, command, tokens));
    EXPECT_EQ(command, "QU");
}

TEST_F(ReadRequest, RequestOfAPeerThatSendsNoMoreIsRead) {
    peer.write("PRINT");
    peer.finish();
    EXPECT_TRUE(read());
    EXPECT_EQ(command, "PRINT");
}

TEST_F(ReadRequest, WaitsSixtySecondsForTheConnectionAlone) {
    peer.write("QUIT");
    EXPECT_TRUE(read());
    const auto calls = SelectRecorder::calls();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].seconds, 60);
    EXPECT_EQ(calls[0].microseconds, 0);
    EXPECT_THAT(calls[0].reading, ElementsAre(socket.descriptor()));
    EXPECT_EQ(calls[0].highestPlusOne, socket.descriptor() + 1);
    EXPECT_TRUE(calls[0].onlyReading);
}

TEST_F(ReadRequest, NothingInTimeIsNoRequest) {
    SelectRecorder::divideWaitsBy(600);
    expectNothingRead();
    EXPECT_EQ(SelectRecorder::calls().size(), 1U) << "one wait and no other";
}

TEST_F(ReadRequest, WaitThatFailsIsNoRequest) {
    peer.write("QUIT");
    SelectRecorder::fail(EINTR);
    expectNothingRead();
}

TEST_F(ReadRequest, WaitThatFlagsAnotherDescriptorIsNoRequest) {
    peer.write("QUIT");
    SelectRecorder::returnOneWithoutDescriptor();
    expectNothingRead();
}

TEST_F(ReadRequest, PeerThatSendsNothingAndNoMoreIsNoRequest) {
    peer.finish();
    expectNothingRead();
}

TEST_F(ReadRequest, PeerThatHasClosedIsNoRequest) {
    peer.closeFar();
    expectNothingRead();
}

TEST_F(ReadRequest, PeerThatHasResetTheConnectionIsNoRequest) {
    EXPECT_EQ(sendto(socket.descriptor(), "x", 1, MSG_NOSIGNAL, nullptr, 0), 1); // it closes with this unread
    peer.closeFar();
    expectNothingRead();
}

TEST_F(ReadRequest, SocketThatIsNotConnectedIsNoRequest) {
    socket.close();
    expectNothingRead();
}

} // namespace
