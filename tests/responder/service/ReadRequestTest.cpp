#include "responder/service/UnifiedResponderMonitor.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Matchers.h"
#include "tests/support/Rows.h"
#include "tests/support/SelectRecorder.h"
#include "tests/support/SocketPair.h"

#include <cerrno>

namespace {

using ZNORBRESPONDER::UnifiedResponderMonitor;
using namespace ZNORBTEST;

class ReadRequest : public testing::Test {
protected:
    ReadRequest() : socket(peer.releaseNear()) {}

    bool read() { return UnifiedResponderMonitor::readRequest(socket, command, tokens); }

    void expectNothingRead() {
        command = "before";
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

/// A request that arrives whole, and its tokens.
using Request = Row<std::string, std::vector<std::string>>;

class RequestTokens : public ReadRequest, public testing::WithParamInterface<Request> {};

TEST_P(RequestTokens, AreWhatItsBarsSeparate) {
    peer.write(GetParam().given);
    EXPECT_TRUE(read());
    EXPECT_EQ(tokens, GetParam().expected) << "and those before are forgotten";
    EXPECT_EQ(command, GetParam().expected.front());
}

const std::string longLanguage(1020, 'l');

const Request requests[] = {
    {"WordAlone", "QUIT", {"QUIT"}},
    {"BarsBetweenWords", "GET|en|30", {"GET", "en", "30"}},
    {"BarAtTheEndIsFollowedByAnEmptyToken", "GET|en|", {"GET", "en", ""}},
    {"BarAtTheBeginFollowsAnEmptyCommand", "|GET", {"", "GET"}},
    {"BarsInARowHaveEmptyTokensBetween", "GET|||x", {"GET", "", "", "x"}},
    {"BarAloneIsTwoEmptyTokens", "|", {"", ""}},
    {"BarsOnlyAreOneTokenMoreThanBars", std::string(2000, '|'), std::vector<std::string>(1025)},
    {"AWordIsNotTrimmed", " QUIT \r\n", {" QUIT \r\n"}},
    {"NoTokenIsTrimmed", "GET | en\n", {"GET ", " en\n"}},
    {"NulIsAByteLikeOthers", {"QUIT\0", 5}, {{"QUIT\0", 5}}},
    {"NulsAroundABar", {"\0|\0", 3}, {std::string(1, '\0'), std::string(1, '\0')}},
    {"BytesAboveAscii", "GET|\xc3\xa9\xff", {"GET", "\xc3\xa9\xff"}},
    {"RequestOf1024Bytes", "GET|" + longLanguage, {"GET", longLanguage}},
};

INSTANTIATE_TEST_SUITE_P(ReadRequest, RequestTokens, testing::ValuesIn(requests), rowName);

TEST_F(ReadRequest, LongerRequestIsCutAt1024BytesAndTheRestStaysUnread) {
    peer.write("GET|" + longLanguage + "rest|");
    EXPECT_TRUE(read());
    EXPECT_THAT(tokens, ElementsAre("GET", longLanguage));
    char rest[16] = {};
    EXPECT_EQ(recvfrom(socket.descriptor(), rest, sizeof rest, MSG_DONTWAIT, nullptr, nullptr), 5);
    EXPECT_STREQ(rest, "rest|");
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
    EXPECT_THAT(SelectRecorder::calls(), ElementsAre(isWaitFor(socket.descriptor(), 60)));
}

TEST_F(ReadRequest, NothingInTimeIsNoRequest) {
    SelectRecorder::divideWaitsBy(600);
    expectNothingRead();
    EXPECT_EQ(SelectRecorder::calls().size(), 1U) << "one wait and no other";
}

TEST_F(ReadRequest, WaitThatFailsOrFlagsAnotherDescriptorIsNoRequest) {
    peer.write("QUIT");
    SelectRecorder::fail(EINTR);
    expectNothingRead();
    SelectRecorder::returnOneWithoutDescriptor();
    expectNothingRead();
}

TEST_F(ReadRequest, PeerThatSendsNothingOrHasClosedOrIsNotThereIsNoRequest) {
    peer.finish();
    expectNothingRead();
    peer.closeFar();
    expectNothingRead();
    socket.close();
    expectNothingRead();
}

TEST_F(ReadRequest, PeerThatHasResetTheConnectionIsNoRequest) {
    EXPECT_EQ(sendto(socket.descriptor(), "x", 1, MSG_NOSIGNAL, nullptr, 0), 1); // it closes with this unread
    peer.closeFar();
    expectNothingRead();
}

} // namespace
