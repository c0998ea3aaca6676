#include "responder/clients/HttpClient.h"
#include "tests/support/Allocations.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Matchers.h"
#include "tests/support/ProcessorTime.h"
#include "tests/support/Rows.h"
#include "tests/support/SelectRecorder.h"
#include "tests/support/SocketPair.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <thread>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;

std::string head(const std::string& lengthText) {
    return "HTTP/1.0 200 OK\r\nContent-Length: " + lengthText + "\r\n\r\n";
}

/// A response and what the reader made of it.
class ReadResponseBody : public testing::Test {
protected:
    bool read(const SocketPair& from) {
        ORBCOMMON::ClientSocket unused;
        length = 1;
        const bool isRead = readResponse(unused, from.near(), statusLine, headers, data, length);
        EXPECT_TRUE(data != nullptr || length == 0);
        return isRead;
    }

    /// Reads a response that has arrived, whole or not. A reader that wants more meets a reset.
    bool readAll(const std::string& response) {
        SocketPair from;
        from.write(response);
        from.resetFar();
        return read(from);
    }

    [[nodiscard]] bool hasData() const { return data != nullptr; }

    [[nodiscard]] std::string body() const {
        return hasData() ? std::string(reinterpret_cast<const char*>(data.get()), length) : "no data";
    }

    /// Reads what is no whole body, without a message.
    void expectQuietFailure(const SocketPair& from) {
        EXPECT_FALSE(read(from));
        EXPECT_FALSE(hasData());
        EXPECT_THAT(log.lines(), IsEmpty());
    }

    LogRecorder log;
    std::string statusLine;
    HttpHeaders headers;
    std::unique_ptr<std::uint8_t[]> data;
    std::uint32_t length = 0;
};

/// A response, and the body that is read of it.
using Response = Row<std::string, std::string>;

class BodyOfAResponse : public ReadResponseBody, public testing::WithParamInterface<Response> {};

TEST_P(BodyOfAResponse, IsOfTheStatedLength) {
    EXPECT_TRUE(readAll("HTTP/1.0 200 OK\r\n" + GetParam().given));
    EXPECT_EQ(body(), GetParam().expected);
}

const std::string hello = "hello, world";

const Response responses[] = {
    {"ThatFollows", "Content-Length: 12\r\n\r\n" + hello, hello},
    {"WithAByteBeyondIt", "Content-Length: 12\r\n\r\n" + hello + "!", hello},
    {"WithManyBytesBeyondIt", "Content-Length: 12\r\n\r\n" + hello + std::string(5000, '!'), hello},
    {"LastOfSeveral", "Content-Length: 99\r\nContent-Length: 12\r\n\r\n" + hello, hello},
    {"SmallLettersInItsName", "content-length: 12\r\n\r\n" + hello, "no data"},
    {"CapitalLettersInItsName", "CONTENT-LENGTH: 12\r\n\r\n" + hello, "no data"},
    {"SmallLetterInItsName", "Content-length: 12\r\n\r\n" + hello, "no data"},
    {"SpaceBeforeItsName", " Content-Length: 12\r\n\r\n" + hello, "no data"},
    {"SpaceBehindItsName", "Content-Length : 12\r\n\r\n" + hello, "no data"},
    {"LongerName", "Content-Lengths: 12\r\n\r\n" + hello, "no data"},
};

INSTANTIATE_TEST_SUITE_P(ReadResponseBody, BodyOfAResponse, testing::ValuesIn(responses), rowName);

TEST_F(ReadResponseBody, LengthOfOneDigitIsDroppedAndSoIsTheBody) {
    EXPECT_TRUE(readAll(head("5") + "hello"));
    EXPECT_EQ(statusLine, "HTTP/1.0 200 OK");
    EXPECT_TRUE(headers.empty());
    EXPECT_FALSE(hasData());
}

TEST_F(ReadResponseBody, BytesBeyondTheLengthAreLeftUnreadByLaterReads) {
    SocketPair peer;
    const std::string sent = pattern(10000);
    peer.write(head("10000") + sent + "!");
    EXPECT_TRUE(read(peer));
    EXPECT_TRUE(body() == sent);
    char rest[8] = {};
    EXPECT_EQ(recvfrom(peer.near(), rest, sizeof rest, MSG_DONTWAIT, nullptr, nullptr), 1);
    EXPECT_STREQ(rest, "!");
}

TEST_F(ReadResponseBody, ReadsAreAsManyAsTheResponseFills) {
    const Row<std::string, std::size_t> bodies[] = {
        {"ends with the first read", "hello, world", 1},
        {"fills the first read exactly", pattern(8192 - head("8151").size()), 1},
        {"one byte beyond the first read", pattern(8152), 2},
    };
    for (const auto& row : bodies) {
        const SelectRecorder waits;
        EXPECT_TRUE(readAll(head(std::to_string(row.given.size())) + row.given)) << row.name;
        EXPECT_TRUE(body() == row.given) << row.name;
        EXPECT_EQ(SelectRecorder::calls().size(), row.expected) << row.name;
    }
}

TEST_F(ReadResponseBody, LongBodyIsReadWhole) {
    const std::string sent = pattern(1'000'000);
    SocketPair peer;
    std::thread writer([&peer, &sent]() {
        const std::string all = head("1000000") + sent;
        std::size_t written = 0;
        while (written < all.size()) {
            const ssize_t count =
                sendto(peer.far(), all.data() + written, all.size() - written, MSG_NOSIGNAL, nullptr, 0);
            if (count <= 0) {
                return;
            }
            written += static_cast<std::size_t>(count);
        }
    });
    EXPECT_TRUE(read(peer));
    peer.closeNear();
    writer.join();
    EXPECT_TRUE(body() == sent);
}

TEST_F(ReadResponseBody, BodyInPiecesTakesAReadForEachWithHalfAnHourAnew) {
    const std::vector<std::string> pieces[] = {
        {head("12") + "hello, worl", "d"},
        {head("12") + "hello", ", ", "world"},
        {head("12"), "h", "e", "l", "l", "o", ",", " ", "w", "o", "r", "l", "d"},
    };
    for (const std::vector<std::string>& writes : pieces) {
        const SelectRecorder waits;
        const FailingCall<usleep> pauses(EINTR);
        SocketPair peer(SOCK_SEQPACKET);
        for (const std::string& bytes : writes) {
            peer.write(bytes);
        }
        EXPECT_TRUE(read(peer));
        EXPECT_EQ(body(), "hello, world");
        EXPECT_EQ(SelectRecorder::calls().size(), writes.size());
        EXPECT_THAT(SelectRecorder::calls(), Each(isWaitFor(peer.near(), 1800)));
        EXPECT_EQ(pauses.calls(), 0U);
    }
}

// ---- what a length may look like -----------------------------------------------------------------------

/// A length's texts, and what of "hello" is the body.
using LengthTexts = Row<std::vector<std::string>, std::string>;

class LengthText : public ReadResponseBody, public testing::WithParamInterface<LengthTexts> {};

TEST_P(LengthText, SaysHowLongTheBodyIs) {
    for (const std::string& text : GetParam().given) {
        EXPECT_TRUE(readAll(head(text) + "hello")) << text;
        EXPECT_EQ(body(), GetParam().expected) << text;
    }
}

const LengthTexts lengthTexts[] = {
    {"LeadingZerosDoNotCount", {"0005"}, "hello"},
    {"WhiteSpaceBeforeTheNumberIsSkipped", {"\t\v\f\n 5"}, "hello"},
    {"PlusSignIsAccepted", {"+5"}, "hello"},
    {"NumberEndsAtAnyOtherCharacter", {"5x", "5 7", "5.9", "5,000", "5;q=1", "5 ", "5-", "05e9"}, "hello"},
    {"ZeroIsAnEmptyBody", {"00"}, ""},
    {"MinusZeroIsZero", {"-0"}, ""},
    {"OnlyOneSignIsAccepted", {"++5", "+-5", "-+5", "--5", "+ 5", "- 5", "+\t5"}, ""},
    {"TextWithoutADigitInFrontIsZero", {"x5", "~5", "garbage", "-x", "+-", "\t ", "--", "0x10"}, ""},
    {"CountOf32BitsStartsAnewAtZero", {"4294967296"}, ""},
    {"CountOf32BitsWrapsAround", {"4294967301", "-4294967291"}, "hello"},
};

INSTANTIATE_TEST_SUITE_P(ReadResponseBody, LengthText, testing::ValuesIn(lengthTexts), rowName);

/// Lengths that no response holds: whether the machine has the memory for them or not, the peer's reset ends
/// the read, and nothing is handed over.
class HugeLength : public ReadResponseBody, public testing::WithParamInterface<NamedText> {};

TEST_P(HugeLength, EndsInAFailedRead) {
    EXPECT_FALSE(readAll(head(GetParam().text) + "hello"));
    EXPECT_FALSE(hasData());
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(statusLine, "HTTP/1.0 200 OK");
}

const NamedText hugeLengths[] = {
    {"Largest", "4294967295"},
    {"SecondLargest", "4294967294"},
    {"MinusOne", "-1"},
    {"MinusFive", "-5"},
    {"Half", "2147483648"},
    {"BeyondCounts", "99999999999999"},
    {"BeyondNumbers", std::string(38, '9')},
};

INSTANTIATE_TEST_SUITE_P(ReadResponseBody, HugeLength, testing::ValuesIn(hugeLengths), rowName);

TEST_F(ReadResponseBody, BodyThatFindsNoMemoryIsAFailedReadWithoutAMessage) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be made to fail here";
    SocketPair peer;
    peer.write(head("5000") + pattern(5000));
    const FailingAllocation failure(0, 5000);
    expectQuietFailure(peer);
    EXPECT_TRUE(FailingAllocation::hasHappened());
}

// ---- bodies that do not come ---------------------------------------------------------------------------

TEST_F(ReadResponseBody, ResetBeforeTheBodyIsCompleteIsLoggedWithItsError) {
    EXPECT_FALSE(readAll(head("12") + "hello"));
    EXPECT_THAT(log.lines(), ElementsAre("Error Receiving from Server. Code: 104"));
    EXPECT_FALSE(hasData());
    EXPECT_EQ(statusLine, "HTTP/1.0 200 OK");
    EXPECT_NE(headers.find("Content-Length"), headers.end());
}

TEST_F(ReadResponseBody, BodyCutAnywhereByAResetFails) {
    const std::string response = head("12") + "hello, world";
    for (std::size_t kept = head("12").size(); kept < response.size(); ++kept) {
        EXPECT_FALSE(readAll(response.substr(0, kept))) << kept;
        EXPECT_FALSE(hasData()) << kept;
    }
    EXPECT_TRUE(readAll(response)) << "the reset comes behind what is needed";
    EXPECT_EQ(body(), "hello, world");
}

TEST_F(ReadResponseBody, ResponseCutInItsHeadByAResetFailsWithoutAMessage) {
    const std::string response = head("12");
    for (std::size_t kept = 0; kept < response.size(); ++kept) {
        EXPECT_FALSE(readAll(response.substr(0, kept))) << kept;
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ReadResponseBody, BodyThatDoesNotGoOnInTimeFailsWithoutAMessage) {
    const SelectRecorder waits;
    SelectRecorder::divideWaitsBy(36000);
    SocketPair peer;
    peer.write(head("12") + "hello");
    expectQuietFailure(peer);
    EXPECT_EQ(SelectRecorder::calls().size(), 2U);
}

TEST_F(ReadResponseBody, WaitForTheBodyThatFailsIsAFailedReadWithoutAMessage) {
    const SelectRecorder waits;
    SelectRecorder::fail(EINTR, 1, 1);
    SocketPair peer(SOCK_SEQPACKET);
    peer.write(head("12") + "hello");
    peer.write(", world");
    expectQuietFailure(peer);
    EXPECT_EQ(SelectRecorder::calls().size(), 2U);
}

/// A reader on a thread of its own, whose peer closes its side before the body is complete.
class ClosedPeer : public ReadResponseBody {
protected:
    ~ClosedPeer() override {
        peer.resetFar();
        if (reader.joinable()) {
            reader.join();
        }
    }

    void startReading() {
        peer.write(head("12") + "hello");
        peer.finish();
        reader = std::thread([this]() {
            isRead = read(peer);
            isDone = true;
        });
        ASSERT_TRUE(SelectRecorder::awaitCalls(4)) << "it has met the end of the connection at least twice";
    }

    const SelectRecorder waits;
    SocketPair peer;
    std::thread reader;
    std::atomic<bool> isDone = false;
    bool isRead = true;
};

TEST_F(ClosedPeer, IsNotRecognisedAndEndsTheReadOnlyWhenTheConnectionFails) {
    startReading();
    EXPECT_FALSE(isDone);
    peer.resetFar();
    reader.join();
    EXPECT_FALSE(isRead);
    EXPECT_FALSE(hasData());
    EXPECT_THAT(log.lines(), ElementsAre("Error Receiving from Server. Code: 104"));
}

TEST_F(ClosedPeer, IsLookedAtAgainAfterATenthOfASecond) {
    std::atomic<useconds_t> pause = 0;
    const InPlaceOf<usleep> pauses([&pause](useconds_t microseconds) {
        pause = microseconds;
        return usleep(microseconds);
    });
    startReading();
    peer.resetFar();
    reader.join();
    EXPECT_EQ(pause, 100'000U);
}

TEST_F(ClosedPeer, CostsAtMostAHundredthOfACore) {
    startReading();
    clockid_t clock = CLOCK_MONOTONIC;
    ASSERT_EQ(pthread_getcpuclockid(reader.native_handle(), &clock), 0);
    const auto usedBefore = processorTimeOn(clock);
    const auto begin = std::chrono::steady_clock::now();
    const std::size_t callsBefore = SelectRecorder::calls().size();
    ASSERT_TRUE(SelectRecorder::awaitCalls(callsBefore + 20));
    const auto elapsed = std::chrono::steady_clock::now() - begin;
    const auto used = processorTimeOn(clock) - usedBefore;
    peer.resetFar();
    reader.join();
    EXPECT_LE(used, elapsed / 100);
}

} // namespace
