#include "responder/clients/HttpClient.h"
#include "tests/responder/clients/SendRecorder.h"
#include "tests/support/Allocations.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Matchers.h"
#include "tests/support/Rows.h"
#include "tests/support/SelectRecorder.h"
#include "tests/support/SocketPair.h"

#include <fcntl.h>
#include <poll.h>

#include <cerrno>
#include <thread>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;

constexpr int boundMilliseconds = 20000;

/// Keeps each write apart.
class WriteRecorder : public Common::OutputStream {
public:
    void write(const char* data, const unsigned int& length) override { m_writes.emplace_back(data, length); }

    [[nodiscard]] const std::vector<std::string>& writes() const { return m_writes; }

private:
    std::vector<std::string> m_writes;
};

/// One request to a peer whose answer is written beforehand.
class SendRequest : public testing::Test {
protected:
    SendRequest() : socket(peer.releaseNear()) {}

    bool send(const std::string& method, const std::string& url, const std::string& body) {
        return sendRequest(socket, method, url, body, statusLine, headers, stream);
    }

    bool post(const std::string& body) { return send("POST", "/u", body); }

    /// A peer that reads no more than the beginning of the request and closes with the rest unread.
    std::thread readerThatGoes() {
        return std::thread([this]() {
            char buffer[16];
            (void)recvfrom(peer.far(), buffer, sizeof buffer, 0, nullptr, nullptr);
            peer.closeFar();
        });
    }

    /// What the peer gets of a request that needs no answer.
    std::string sentBytes(const std::string& method, const std::string& url, const std::string& body) {
        peer.finish();
        EXPECT_TRUE(send(method, url, body));
        return peer.received();
    }

    /// Posts in vain: nothing is waited for, and the results are cleared.
    void expectFailedPost() {
        const SelectRecorder waits;
        (void)headers.insert("Old", "value");
        EXPECT_FALSE(post("body"));
        EXPECT_FALSE(socket.isConnected());
        EXPECT_EQ(statusLine, "");
        EXPECT_TRUE(headers.empty());
        EXPECT_THAT(stream.writes(), IsEmpty());
        EXPECT_THAT(SelectRecorder::calls(), IsEmpty());
    }

    LogRecorder log;
    SocketPair peer;
    ORBCOMMON::ClientSocket socket;
    std::string statusLine = "before";
    HttpHeaders headers;
    WriteRecorder stream;
};

std::string headOfPost(std::size_t length, const std::string& url = "/u") {
    return "POST " + url + " HTTP/1.0\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n";
}

/// Method, URL and body of a request, what is sent of it, and in which lengths.
struct Request {
    const char* name;
    std::string method;
    std::string url;
    std::string body;
    std::string sent;
    std::vector<std::size_t> lengths;

    friend void PrintTo(const Request& row, std::ostream* stream) { *stream << row.name; }
};

class SentRequest : public SendRequest, public testing::WithParamInterface<Request> {};

TEST_P(SentRequest, IsItsLineAndOfAPostItsLengthAndItsBodyWithoutASignal) {
    const SendRecorder sends;
    EXPECT_EQ(sentBytes(GetParam().method, GetParam().url, GetParam().body), GetParam().sent);
    EXPECT_EQ(sends.lengths(), GetParam().lengths);
    EXPECT_THAT(sends.calls(), Each(Field(&SendRecorder::Call::flags, MSG_NOSIGNAL)));
}

const std::string hello = "hello, world";
const std::string exitUrl = "/ExitApplication.json";
const std::string longUrl = "/" + std::string(1000, 'u');
const std::string anyBytes("\0\r\n\xff%s|", 7);

const Request requests[] = {
    {"Post", "POST", "/u", hello, headOfPost(12) + hello, {headOfPost(12).size(), 12}},
    {"EmptyPost", "POST", "/u", "", headOfPost(0), {headOfPost(0).size()}},
    {"PostToALongerUrl", "POST", exitUrl, "", headOfPost(0, exitUrl), {58}},
    {"PostToALongUrl", "POST", longUrl, "", headOfPost(0, longUrl), {headOfPost(0, longUrl).size()}},
    {"BodyOfAnyBytes", "POST", "/u", anyBytes, headOfPost(7) + anyBytes, {headOfPost(7).size(), 7}},
    {"Get", "GET", "/", hello, "GET / HTTP/1.0\r\n\r\n", {18}},
    {"AnyOtherMethod", "PUT", "/", hello, "PUT / HTTP/1.0\r\n\r\n", {18}},
    {"PostInSmallLetters", "post", "/", hello, "post / HTTP/1.0\r\n\r\n", {19}},
    {"MethodThatOnlyBeginsWithPost", "POSTER", "/", hello, "POSTER / HTTP/1.0\r\n\r\n", {21}},
    {"EmptyMethodAndUrl", "", "", hello, "  HTTP/1.0\r\n\r\n", {14}},
};

INSTANTIATE_TEST_SUITE_P(SendRequest, SentRequest, testing::ValuesIn(requests), rowName);

/// A body's length and those of the sends of it, the head's apart.
using Chunks = Row<std::size_t, std::vector<std::size_t>>;

class BodyChunks : public SendRequest, public testing::WithParamInterface<Chunks> {};

TEST_P(BodyChunks, AreAtMostOfTheLimitEachAndSentWithoutASignal) {
    const std::string body = pattern(GetParam().given);
    const SendRecorder sends;
    EXPECT_EQ(sentBytes("POST", "/u", body), headOfPost(body.size()) + body);
    std::vector<std::size_t> lengths = sends.lengths();
    lengths.erase(lengths.begin());
    EXPECT_EQ(lengths, GetParam().expected);
    EXPECT_THAT(sends.calls(), Each(Field(&SendRecorder::Call::flags, MSG_NOSIGNAL)));
}

const Chunks chunks[] = {
    {"OneByteIsOne", 1, {1}},
    {"OneLessThanTheLimitIsOne", 8191, {8191}},
    {"TheLimitIsOne", 8192, {8192}},
    {"OneMoreThanTheLimitIsTwo", 8193, {8192, 1}},
    {"TwiceTheLimitIsTwo", 16384, {8192, 8192}},
    {"LongerBodyIsFullOnesAndTheRest", 40000, {8192, 8192, 8192, 8192, 7232}},
};

INSTANTIATE_TEST_SUITE_P(SendRequest, BodyChunks, testing::ValuesIn(chunks), rowName);

TEST_F(SendRequest, BodyGoesOnBehindWhatWasActuallySent) {
    const std::string body = pattern(20000);
    SendRecorder sends;
    sends.shortenCall(1, 100);
    EXPECT_EQ(sentBytes("POST", "/u", body), headOfPost(20000) + body);
    EXPECT_THAT(sends.lengths(), ElementsAre(headOfPost(20000).size(), 8192, 8192, 8192, 3516));
}

TEST_F(SendRequest, HeadThatIsSentInPartIsNotContinued) {
    SendRecorder sends;
    sends.shortenCall(0, 10);
    EXPECT_EQ(sentBytes("GET", "/some/url", ""), "GET /some/");
    EXPECT_EQ(sends.calls().size(), 1U);
}

TEST_F(SendRequest, LongBodyReachesAPeerThatReadsMeanwhile) {
    const std::string body = pattern(4'000'000);
    const std::string expected = headOfPost(body.size()) + body;
    std::string received;
    std::thread reader([this, &received, &expected]() {
        char buffer[4096];
        pollfd wanted = {peer.far(), POLLIN, 0};
        while (received.size() < expected.size() && poll(&wanted, 1, boundMilliseconds) == 1) {
            const ssize_t count = recvfrom(peer.far(), buffer, sizeof buffer, 0, nullptr, nullptr);
            if (count <= 0) {
                break;
            }
            received.append(buffer, static_cast<std::size_t>(count));
        }
        peer.finish();
    });
    EXPECT_TRUE(post(body));
    socket.close();
    reader.join();
    EXPECT_TRUE(received == expected);
}

TEST_F(SendRequest, UnconnectedSocketFailsAtOnceAndClearsTheResults) {
    const SendRecorder sends;
    socket.close();
    expectFailedPost();
    EXPECT_TRUE(sends.calls().empty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(SendRequest, HeadThatCannotBeSentClosesTheSocketWithoutAMessage) {
    peer.closeFar();
    expectFailedPost();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(SendRequest, BodyThatCannotBeSentIsLoggedAndClosesTheSocket) {
    SendRecorder sends;
    sends.failCall(1, EPIPE);
    peer.write("HTTP/1.0 200 OK\r\n\r\n"); // it is not read
    expectFailedPost();
    EXPECT_THAT(log.lines(), ElementsAre("Error Sending to Server. Code: 32"));
    EXPECT_EQ(peer.received(), headOfPost(4));
}

TEST_F(SendRequest, LaterChunkThatCannotBeSentIsLoggedWithItsError) {
    SendRecorder sends;
    sends.failCall(3, ECONNRESET);
    EXPECT_FALSE(post(pattern(30000)));
    EXPECT_FALSE(socket.isConnected());
    EXPECT_THAT(log.lines(), ElementsAre("Error Sending to Server. Code: 104"));
    EXPECT_EQ(sends.calls().size(), 4U) << "nothing is sent after a failure";
}

TEST_F(SendRequest, LoggedErrorIsThatOfTheSendWhateverErrorTheCloseHas) {
    ORBCOMMON::ClientSocket noSocket(open("/dev/null", O_RDWR | O_CLOEXEC)); // which cannot be shut down
    unsigned calls = 0;
    const InPlaceOf<::send> sends([&calls](int, const void*, std::size_t length, int) {
        errno = EPIPE;
        return calls++ == 0 ? static_cast<ssize_t>(length) : -1;
    });
    EXPECT_FALSE(sendRequest(noSocket, "POST", "/u", "body", statusLine, headers, stream));
    EXPECT_THAT(log.lines(), ElementsAre("Error Sending to Server. Code: 32"));
}

TEST_F(SendRequest, PeerThatGoesInTheMiddleOfTheBodyFailsTheRequest) {
    std::thread reader = readerThatGoes();
    EXPECT_FALSE(post(std::string(8'000'000, 'b')));
    reader.join();
    EXPECT_FALSE(socket.isConnected());
    EXPECT_THAT(log.lines(), ElementsAre(AnyOf("Error Sending to Server. Code: 32",
                                               "Error Sending to Server. Code: 104")));
}

TEST_F(SendRequest, AnswerFillsStatusHeadersAndBody) {
    (void)headers.insert("Old", "value");
    peer.write("HTTP/1.0 200 OK\r\nServer: test\r\nContent-Length: 12\r\n\r\nhello, world");
    EXPECT_TRUE(post("body"));
    EXPECT_EQ(statusLine, "HTTP/1.0 200 OK");
    EXPECT_EQ(headers.size(), 2U);
    ASSERT_NE(headers.find("Server"), headers.end());
    EXPECT_EQ(headers.find("Server")->second, "test");
    EXPECT_THAT(stream.writes(), ElementsAre("hello, world"));
    EXPECT_TRUE(socket.isConnected()) << "closing after success is the caller's";
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(SendRequest, GetIsAnsweredToo) {
    peer.write("HTTP/1.0 200 OK\r\nContent-Length: 12\r\n\r\nhello, world");
    EXPECT_TRUE(send("GET", "/", ""));
    EXPECT_THAT(stream.writes(), ElementsAre("hello, world"));
}

/// What follows an answer's status line, and what the stream gets of it.
using Answer = Row<std::string, std::vector<std::string>>;

class AnswersBody : public SendRequest, public testing::WithParamInterface<Answer> {};

TEST_P(AnswersBody, GoesToTheStreamInOneWriteHoweverItArrived) {
    peer.write("HTTP/1.0 200 OK\r\n" + GetParam().given);
    EXPECT_TRUE(post(""));
    EXPECT_EQ(statusLine, "HTTP/1.0 200 OK");
    EXPECT_EQ(stream.writes(), GetParam().expected);
}

const std::string withNulBytes("a\0b\0\0cdefghi", 12);
const Answer answers[] = {
    {"LongerThanARead", "Content-Length: 30000\r\n\r\n" + pattern(30000), {pattern(30000)}},
    {"OfAnyBytes", "Content-Length: 12\r\n\r\n" + withNulBytes, {withNulBytes}},
    {"WithoutALength", "\r\nignored", {}},
    {"OfLengthZero", "Content-Length: 00\r\n\r\nignored", {}},
};

INSTANTIATE_TEST_SUITE_P(SendRequest, AnswersBody, testing::ValuesIn(answers), rowName);

/// An answer that cannot be read as a whole, and the status line that is read of it.
struct BadAnswer {
    const char* name;
    std::string answer;
    bool isFinished;
    std::string statusLine;
    std::size_t headers;

    friend void PrintTo(const BadAnswer& row, std::ostream* stream) { *stream << row.name; }
};

class BadlyAnsweredRequest : public SendRequest, public testing::WithParamInterface<BadAnswer> {};

TEST_P(BadlyAnsweredRequest, CountsAsSent) {
    const SelectRecorder waits;
    SelectRecorder::divideWaitsBy(36000);
    peer.write(GetParam().answer);
    if (GetParam().isFinished) {
        peer.finish();
    }
    EXPECT_TRUE(post("body"));
    EXPECT_EQ(statusLine, GetParam().statusLine);
    EXPECT_EQ(headers.size(), GetParam().headers);
    EXPECT_THAT(stream.writes(), IsEmpty()) << "half a body is not written";
    EXPECT_TRUE(socket.isConnected());
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(SelectRecorder::calls(), Each(Field(&SelectRecorder::Call::seconds, 1800)));
    EXPECT_FALSE(SelectRecorder::calls().empty());
}

const std::string lengthOfTwelve = "Content-Length: 12\r\n\r\n";

const BadAnswer badAnswers[] = {
    {"NoneFromAPeerThatCloses", "", true, "", 0},
    {"NoneInTime", "", false, "", 0},
    {"Malformed", "\r\n" + lengthOfTwelve + "hello, world", false, "", 0},
    {"BodyThatBreaksOff", "HTTP/1.0 200 OK\r\n" + lengthOfTwelve + "hello", false, "HTTP/1.0 200 OK", 1},
};

INSTANTIATE_TEST_SUITE_P(SendRequest, BadlyAnsweredRequest, testing::ValuesIn(badAnswers), rowName);

TEST_F(SendRequest, PeerThatResetsInsteadOfAnsweringLeavesNoTrace) {
    const SelectRecorder waits;
    std::thread reader = readerThatGoes();
    EXPECT_TRUE(send("GET", "/a/url/of/more/than/sixteen/bytes", ""));
    reader.join();
    EXPECT_EQ(statusLine, "");
    EXPECT_THAT(log.lines(), IsEmpty()) << "only a body that breaks off is logged";
}

TEST_F(SendRequest, WithoutMemoryForItsTextNothingIsSentAndTheSocketIsClosed) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be made to fail here";
    {
        const FailingAllocation failure(0);
        EXPECT_FALSE(post("body"));
        EXPECT_TRUE(FailingAllocation::hasHappened());
    }
    EXPECT_FALSE(socket.isConnected());
    EXPECT_EQ(peer.received(), "");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(SendRequest, TextIsMadeInOnePieceOfMemory) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be counted here";
    peer.finish();
    const AllocationWatch memory;
    EXPECT_TRUE(send("POST", exitUrl, ""));
    EXPECT_EQ(memory.allocations(), 1);
}

TEST_F(SendRequest, SecondRequestOnTheSameSocketForgetsTheFirst) {
    peer.write("HTTP/1.0 200 OK\r\nServer: test\r\n\r\n");
    EXPECT_TRUE(post("one"));
    peer.finish();
    EXPECT_TRUE(post("two"));
    EXPECT_EQ(statusLine, "");
    EXPECT_TRUE(headers.empty());
    EXPECT_EQ(peer.received(), headOfPost(3) + "one" + headOfPost(3) + "two");
}

} // namespace
