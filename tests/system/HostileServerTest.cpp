/// HTTP servers that mean no good in the place of a client, one per test: on "QUIT" the daemon passes on to
/// the next client or waits without working, and can be terminated meanwhile.

#include "tests/support/DaemonDriver.h"
#include "tests/support/ListeningPeer.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/LocalPort.h"
#include "tests/support/Matchers.h"
#include "tests/support/ProcessorTime.h"
#include "tests/support/Rows.h"
#include "tests/support/SharedTable.h"

#include <csignal>

namespace {

using namespace ZNORBTEST;

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
        connection.emplace(LocalConnection::toPath(socketPath));
        ASSERT_TRUE(connection->send("QUIT"));
    }

    void expectPassedOver() {
        EXPECT_EQ(connection->receiveUntilClosed(), "0");
        EXPECT_EQ(driver.waitForDaemon(), exitedWith(255));
        EXPECT_THAT(next.received(), ElementsAre(exitRequest));
    }

    void expectWaitedFor() {
        const ProcessorUse use = watchProcessor(driver.daemon(), Milliseconds(1000));
        EXPECT_TRUE(use.isWaiting()) << use;
        EXPECT_THAT(next.received(), IsEmpty());
        EXPECT_EQ(driver.endBy(SIGTERM), exitedWith(10));
    }

    /// Whether there is memory for what is announced is the machine's matter.
    void expectWaitedForOrPassedOver() {
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

    DaemonDriver driver;
    const ListeningPeer next{{requestSize, {statusLine + "\r\n"}}};
    std::optional<LocalConnection> connection;
};

/// A server's script and what becomes of it.
enum Fate { PassedOver, WaitedFor, EitherOfThem };
using Server = Row<PeerScript, Fate>;

class ScriptedServer : public HostileServer, public testing::WithParamInterface<Server> {};

TEST_P(ScriptedServer, IsPassedOverOrWaitedForWithoutWork) {
    const ListeningPeer server(GetParam().given);
    quitWith(server.port());
    if (GetParam().expected == PassedOver) {
        expectPassedOver();
        EXPECT_EQ(server.received().size(), 1U);
        return;
    }
    ASSERT_TRUE(server.waitForServed(1));
    if (GetParam().expected == WaitedFor) {
        expectWaitedFor();
    } else {
        expectWaitedForOrPassedOver();
    }
}

std::string garbage() {
    std::string bytes;
    for (int number = 0; number < 8192; ++number) {
        bytes += static_cast<char>(number * 167 + 13);
    }
    return bytes;
}

std::string stating(const std::string& length, const std::string& body) {
    return statusLine + "Content-Length: " + length + "\r\n\r\n" + body;
}

constexpr Milliseconds atOnce{0};
constexpr Milliseconds drip{20};

const std::string beyondNumbers = "99999999999999999999999999999999";

const Server passedOver[] = {
    {"ClosesAtOnce", {0, {}}, PassedOver},
    {"ClosesInTheMiddleOfTheRequest", {20, {}}, PassedOver},
    {"ClosesWithoutAnAnswer", {requestSize, {}}, PassedOver},
    {"ResetsAtOnce", {requestSize, {}, !holdOpen, atOnce, !repeatLast, !finishSending, reset}, PassedOver},
    {"ResetsInItsBody",
     {requestSize, {stating("1000", "x")}, !holdOpen, Milliseconds(50), !repeatLast, !finishSending, reset},
     PassedOver},
    {"SendsGarbage", {requestSize, {garbage()}}, PassedOver},
    {"SendsOnlyZeroBytes", {requestSize, {std::string(8192, '\0')}}, PassedOver},
    {"BeginsWithALineEnd", {requestSize, {"\r\nHTTP/1.0 200 OK\r\n\r\n"}}, PassedOver},
    {"EndsNoLine", {requestSize, {"HTTP/1.0 200 OK"}}, PassedOver},
    {"SendsOneByte", {requestSize, {"\r"}}, PassedOver},
    {"SendsAnEndlessHeaderLine",
     {requestSize, {statusLine + "X-Name: ", std::string(8192, 'a')}, !holdOpen, atOnce, repeatLast},
     PassedOver},
    {"SendsHeadersWithoutEnd",
     {requestSize, {statusLine, "X-Name: value\r\n"}, !holdOpen, atOnce, repeatLast},
     PassedOver},
    {"DripsItsHead", {requestSize, {"H", "T"}, !holdOpen, drip, repeatLast}, PassedOver},
    {"StatesNoNumber", {requestSize, {stating("many", "body")}}, PassedOver},
    {"StatesZeroInTwoDigits", {requestSize, {stating("00", "body")}}, PassedOver},
    {"StatesMinusZero", {requestSize, {stating("-0", "body")}}, PassedOver},
    {"SendsMoreThanItStates", {requestSize, {stating("10", std::string(100000, 'x'))}}, PassedOver},
    {"StatesAndSendsMuch", {requestSize, {stating("20000000", std::string(20000000, 'x'))}}, PassedOver},
};

const Server waitedFor[] = {
    {"NeverAnswers", {requestSize, {}, holdOpen}, WaitedFor},
    {"SendsLessThanItStates", {requestSize, {stating("1000", "x")}, holdOpen}, WaitedFor},
    {"ClosesInItsBody", {requestSize, {stating("1000", "x")}}, WaitedFor},
    {"HalfClosesInItsBody",
     {requestSize, {stating("1000", "x")}, holdOpen, atOnce, !repeatLast, finishSending},
     WaitedFor},
    {"DripsItsBody", {requestSize, {stating("1000000", ""), "x"}, !holdOpen, drip, repeatLast}, WaitedFor},
    {"StatesTheGreatestLength", {requestSize, {stating("4294967295", "x")}, holdOpen}, EitherOfThem},
    {"StatesANegativeLength", {requestSize, {stating("-1", "x")}, holdOpen}, EitherOfThem},
    {"StatesMoreThanANumberCanBe", {requestSize, {stating(beyondNumbers, "x")}, holdOpen}, EitherOfThem},
};

INSTANTIATE_TEST_SUITE_P(PassedOver, ScriptedServer, testing::ValuesIn(passedOver), rowName);
INSTANTIATE_TEST_SUITE_P(WaitedFor, ScriptedServer, testing::ValuesIn(waitedFor), rowName);

TEST_F(HostileServer, ThatRefusesIsPassedOver) {
    const LocalPort port(false);
    quitWith(port.number());
    expectPassedOver();
}

TEST_F(HostileServer, ThatNeverAcceptsIsWaitedForWithoutWork) {
    const LocalPort port(true);
    quitWith(port.number());
    expectWaitedFor();
}

} // namespace
