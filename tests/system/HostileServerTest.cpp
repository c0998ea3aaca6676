/// HTTP servers that mean no good in the place of a client, one per test: on "QUIT" the daemon passes on to
/// the next client or waits without working, and can be terminated meanwhile.

#include "tests/support/DaemonDriver.h"
#include "tests/support/ListeningPeer.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/ProcessorTime.h"
#include "tests/support/SharedTable.h"
#include "tests/support/SilentPort.h"

#include <gmock/gmock.h>

#include <csignal>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace ZNORBTEST;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr std::size_t requestSize = 58;
constexpr const char* exitRequest = "POST /ExitApplication.json HTTP/1.0\r\nContent-Length: 0\r\n\r\n";
const std::string statusLine = "HTTP/1.0 200 OK\r\n";

/// Entry 0 of the table is the test's, entry 1 is a client as it should be.
class HostileServer : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(driver.startServing()); }

    void quitWith(std::uint16_t port) {
        ASSERT_TRUE(enterClient(0, port));
        ASSERT_TRUE(enterClient(1, next.port()));
        connection.emplace(LocalConnection::toPath("/var/run/znorb.socket"));
        ASSERT_TRUE(connection->send("QUIT"));
    }

    void expectPassedOver() {
        EXPECT_EQ(connection->receiveUntilClosed(), "0");
        EXPECT_EQ(driver.waitForDaemon(), exitedWith(255));
        EXPECT_THAT(next.received(), ElementsAre(exitRequest));
    }

    void expectPassedOver(const PeerScript& script) {
        const ListeningPeer server(script);
        quitWith(server.port());
        expectPassedOver();
        EXPECT_EQ(server.received().size(), 1U);
    }

    void expectWaitedFor() {
        const ProcessorUse use = watchProcessor(driver.daemon(), Milliseconds(1000));
        EXPECT_TRUE(use.isWaiting()) << use;
        EXPECT_THAT(next.received(), IsEmpty());
        EXPECT_EQ(kill(driver.daemon(), SIGTERM), 0);
        EXPECT_EQ(driver.waitForDaemon(), exitedWith(10));
    }

    void expectWaitedFor(const PeerScript& script) {
        const ListeningPeer server(script);
        quitWith(server.port());
        ASSERT_TRUE(server.waitForServed(1));
        expectWaitedFor();
    }

    /// Whether there is memory for what is announced is the machine's matter.
    void expectWaitedForOrPassedOver(const PeerScript& script) {
        const ListeningPeer server(script);
        quitWith(server.port());
        ASSERT_TRUE(server.waitForServed(1));
        if (next.waitForServed(1, Milliseconds(1000))) {
            expectPassedOver();
            forgetReportsOfFailedAllocations();
        } else {
            expectWaitedFor();
        }
    }

    /// AddressSanitizer does not give the memory, and says so.
    void forgetReportsOfFailedAllocations() {
        for (const std::string& report : driver.sanitizerReports().reports()) {
            EXPECT_THAT(report, HasSubstr("WARNING: AddressSanitizer failed to allocate"));
            EXPECT_THAT(report, Not(HasSubstr("ERROR")));
        }
        driver.sanitizerReports().clear();
    }

    static PeerScript answering(std::vector<std::string> pieces) {
        PeerScript script;
        script.receiveFirst = requestSize;
        script.pieces = std::move(pieces);
        return script;
    }

    static PeerScript stating(const std::string& length, const std::string& body) {
        return answering({statusLine + "Content-Length: " + length + "\r\n\r\n" + body});
    }

    DaemonDriver driver;
    const ListeningPeer next{answering({statusLine + "\r\n"})};
    std::optional<LocalConnection> connection;
};

// ---- passed over ---------------------------------------------------------------------------------------

TEST_F(HostileServer, ThatRefusesIsPassedOver) {
    const SilentPort port(false);
    quitWith(port.number());
    expectPassedOver();
}

TEST_F(HostileServer, ThatClosesAtOnceIsPassedOver) {
    expectPassedOver(PeerScript{});
}

TEST_F(HostileServer, ThatClosesInTheMiddleOfTheRequestIsPassedOver) {
    PeerScript script;
    script.receiveFirst = 20;
    expectPassedOver(script);
}

TEST_F(HostileServer, ThatClosesWithoutAnAnswerIsPassedOver) {
    expectPassedOver(answering({}));
}

TEST_F(HostileServer, ThatResetsTheConnectionIsPassedOver) {
    PeerScript script = answering({});
    script.reset = true;
    expectPassedOver(script);
}

TEST_F(HostileServer, ThatResetsInItsBodyIsPassedOver) {
    PeerScript script = stating("1000", "x");
    script.pause = Milliseconds(50);
    script.reset = true;
    expectPassedOver(script);
}

TEST_F(HostileServer, ThatSendsGarbageIsPassedOver) {
    std::string garbage;
    for (int number = 0; number < 8192; ++number) {
        garbage += static_cast<char>(number * 167 + 13);
    }
    expectPassedOver(answering({garbage}));
}

TEST_F(HostileServer, ThatSendsOnlyZeroBytesIsPassedOver) {
    expectPassedOver(answering({std::string(8192, '\0')}));
}

TEST_F(HostileServer, ThatBeginsWithALineEndIsPassedOver) {
    expectPassedOver(answering({"\r\nHTTP/1.0 200 OK\r\n\r\n"}));
}

TEST_F(HostileServer, ThatEndsNoLineIsPassedOver) {
    expectPassedOver(answering({"HTTP/1.0 200 OK"}));
}

TEST_F(HostileServer, ThatSendsOneByteIsPassedOver) {
    expectPassedOver(answering({"\r"}));
}

TEST_F(HostileServer, ThatSendsAnEndlessHeaderLineIsPassedOver) {
    PeerScript script = answering({statusLine + "X-Name: ", std::string(8192, 'a')});
    script.repeatLast = true;
    expectPassedOver(script);
}

TEST_F(HostileServer, ThatSendsHeadersWithoutEndIsPassedOver) {
    PeerScript script = answering({statusLine, "X-Name: value\r\n"});
    script.repeatLast = true;
    expectPassedOver(script);
}

TEST_F(HostileServer, ThatDripsItsHeadIsPassedOver) {
    PeerScript script = answering({"H", "T"});
    script.pause = Milliseconds(20);
    script.repeatLast = true;
    expectPassedOver(script);
}

TEST_F(HostileServer, ThatStatesNoNumberIsPassedOver) {
    expectPassedOver(stating("many", "body"));
}

TEST_F(HostileServer, ThatStatesZeroInTwoDigitsIsPassedOver) {
    expectPassedOver(stating("00", "body"));
}

TEST_F(HostileServer, ThatStatesMinusZeroIsPassedOver) {
    expectPassedOver(stating("-0", "body"));
}

TEST_F(HostileServer, ThatSendsMoreThanItStatesIsPassedOver) {
    expectPassedOver(stating("10", std::string(100000, 'x')));
}

TEST_F(HostileServer, ThatStatesAndSendsMuchIsReadAndPassedOver) {
    expectPassedOver(stating("20000000", std::string(20000000, 'x')));
}

// ---- waited for ----------------------------------------------------------------------------------------

TEST_F(HostileServer, ThatNeverAcceptsIsWaitedForWithoutWork) {
    const SilentPort port(true);
    quitWith(port.number());
    expectWaitedFor();
}

TEST_F(HostileServer, ThatNeverAnswersIsWaitedForWithoutWork) {
    PeerScript script = answering({});
    script.holdOpen = true;
    expectWaitedFor(script);
}

TEST_F(HostileServer, ThatSendsLessThanItStatesIsWaitedForWithoutWork) {
    PeerScript script = stating("1000", "x");
    script.holdOpen = true;
    expectWaitedFor(script);
}

TEST_F(HostileServer, ThatClosesInItsBodyIsWaitedForWithoutWork) {
    expectWaitedFor(stating("1000", "x"));
}

TEST_F(HostileServer, ThatHalfClosesInItsBodyIsWaitedForWithoutWork) {
    PeerScript script = stating("1000", "x");
    script.finishSending = true;
    script.holdOpen = true;
    expectWaitedFor(script);
}

TEST_F(HostileServer, ThatDripsItsBodyIsWaitedForWithoutWork) {
    PeerScript script = stating("1000000", "");
    script.pieces.emplace_back("x");
    script.pause = Milliseconds(20);
    script.repeatLast = true;
    expectWaitedFor(script);
}

TEST_F(HostileServer, ThatStatesTheGreatestLengthIsWaitedForOrPassedOver) {
    PeerScript script = stating("4294967295", "x");
    script.holdOpen = true;
    expectWaitedForOrPassedOver(script);
}

TEST_F(HostileServer, ThatStatesANegativeLengthIsWaitedForOrPassedOver) {
    PeerScript script = stating("-1", "x"); // the greatest there is
    script.holdOpen = true;
    expectWaitedForOrPassedOver(script);
}

TEST_F(HostileServer, ThatStatesMoreThanANumberCanBeIsWaitedForOrPassedOver) {
    PeerScript script = stating("99999999999999999999999999999999", "x");
    script.holdOpen = true;
    expectWaitedForOrPassedOver(script);
}

} // namespace
