#include "responder/clients/ExitSweep.h"

#include "tests/support/Allocations.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/LocalPort.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Matchers.h"
#include "tests/support/Rows.h"
#include "tests/support/SelectRecorder.h"
#include "tests/support/StandIns.h"
#include "tests/support/Waiting.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string_view>
#include <thread>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;

constexpr const char* exitRequest = "POST /ExitApplication.json HTTP/1.0\r\nContent-Length: 0\r\n\r\n";
static_assert(std::string_view(exitRequest).size() == 58);

/// A client's HTTP port. The kernel takes the connection and the request; the test looks at them when it
/// likes, so that it decides how long the sweep is held up.
class ClientPort {
public:
    [[nodiscard]] std::uint16_t port() const { return m_listener.number(); }

    /// Waits for a connection that is on its way.
    bool awaitAsked() {
        return waitUntil([this]() { return isAsked(); });
    }

    /// Whether a connection has come; takes it.
    bool isAsked() {
        if (!m_connection.isOpen()) {
            m_connection.reset(m_listener.acceptOne());
        }
        return m_connection.isOpen();
    }

    /// All that comes over the connection until the sweep closes it.
    std::string receivedUntilClosed() {
        std::string bytes;
        while (awaitAsked()) {
            pollfd wanted = {m_connection.get(), POLLIN, 0};
            char buffer[1024];
            const ssize_t count =
                poll(&wanted, 1, static_cast<int>(usualBound.count())) == 1
                    ? recvfrom(m_connection.get(), buffer, sizeof buffer, 0, nullptr, nullptr)
                    : -1;
            EXPECT_GE(count, 0) << "the connection was not closed in good order";
            if (count <= 0) {
                break;
            }
            bytes.append(buffer, static_cast<std::size_t>(count));
        }
        return bytes;
    }

    void answer(const std::string& bytes) {
        ASSERT_TRUE(awaitAsked());
        ASSERT_EQ(sendto(m_connection.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL, nullptr, 0),
                  static_cast<ssize_t>(bytes.size()));
    }

    void hangUp() { m_connection.reset(); }

    /// Ends the connection so that the other side fails with ECONNRESET.
    void reset() {
        ASSERT_TRUE(awaitAsked());
        const linger atOnce = {1, 0};
        ASSERT_EQ(setsockopt(m_connection.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce), 0);
        hangUp();
    }

    /// From here on connections are refused.
    void closeListener() { m_listener.stopListening(); }

private:
    LocalPort m_listener{true};
    Descriptor m_connection;
};

/// A table as clients have filled it in, and a sweep over it.
class ExitSweep : public testing::Test {
protected:
    void enter(unsigned index, const ClientPort& client) { enter(index, client.port()); }

    void enter(unsigned index, std::uint16_t port, std::uint8_t inUse = 1) {
        ClientEntry& entry = table->entries[index];
        entry.inUse = inUse;
        entry.port = port;
        (void)std::strcpy(entry.identifier, "client");
        if (table->count <= index) {
            table->count = index + 1;
        }
    }

    /// The sweep with every wait failing at once: what the clients were asked waits at their ports.
    void sweepWithoutWaiting() {
        SelectRecorder::fail(EINTR, 100);
        exitAllClients(holder);
    }

    void startSweep() {
        sweep = std::thread([this]() { exitAllClients(holder); });
    }

    /// Waits until the sweep waits for its n-th answer.
    static void awaitWait(std::size_t number) { ASSERT_TRUE(SelectRecorder::awaitCalls(number)); }

    ~ExitSweep() override {
        for (ClientPort* client : {&first, &second, &third}) {
            client->closeListener(); // so that nothing holds the sweep any more
            client->hangUp();
        }
        if (sweep.joinable()) {
            sweep.join();
        }
    }

    LogRecorder log;
    const SelectRecorder waits;
    // On the heap and of exactly its size, so that sanitizers see an access beyond it.
    const std::unique_ptr<SharedVariables> table = std::make_unique<SharedVariables>();
    SharedVariables* const holder = table.get();
    ClientPort first;
    ClientPort second;
    ClientPort third;
    std::thread sweep;
};

TEST_F(ExitSweep, EveryClientInUseIsAskedOnceAndGivenHalfAnHour) {
    enter(0, first);
    enter(1, second);
    enter(2, third);
    sweepWithoutWaiting();
    for (ClientPort* client : {&first, &second, &third}) {
        EXPECT_EQ(client->receivedUntilClosed(), exitRequest);
        client->hangUp();
        EXPECT_FALSE(client->isAsked()) << "asked twice";
    }
    EXPECT_EQ(SelectRecorder::calls().size(), 3U);
    EXPECT_THAT(SelectRecorder::calls(), Each(Field(&SelectRecorder::Call::seconds, 1800)));
}

TEST_F(ExitSweep, ClientsAreAskedInTheOrderOfTheirEntriesOneAfterTheOther) {
    enter(0, third);
    enter(1, first);
    enter(2, second);
    startSweep();
    awaitWait(1);
    EXPECT_TRUE(third.awaitAsked());
    EXPECT_FALSE(first.isAsked() || second.isAsked());
    third.answer("HTTP/1.0 200 OK\r\n\r\n");
    awaitWait(2);
    EXPECT_TRUE(first.awaitAsked());
    EXPECT_FALSE(second.isAsked());
    first.answer("HTTP/1.0 200 OK\r\n\r\n");
    awaitWait(3);
    EXPECT_TRUE(second.awaitAsked());
    second.answer("HTTP/1.0 200 OK\r\n\r\n");
}

TEST_F(ExitSweep, NullTableIsPassedOver) {
    SharedVariables* const none = nullptr;
    exitAllClients(none);
    EXPECT_THAT(SelectRecorder::calls(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

/// The count of a table of three entries, their marks, and who is asked.
struct Table {
    const char* name;
    std::uint32_t count;
    std::vector<std::uint8_t> marks;
    std::vector<bool> asked;

    friend void PrintTo(const Table& row, std::ostream* stream) { *stream << row.name; }
};

class AskedClients : public ExitSweep, public testing::WithParamInterface<Table> {};

TEST_P(AskedClients, AreThoseOfTheCountedEntriesInUse) {
    ClientPort* const clients[] = {&first, &second, &third};
    for (unsigned index = 0; index < 3; ++index) {
        enter(index, clients[index]->port(), GetParam().marks[index]);
    }
    table->count = GetParam().count;
    sweepWithoutWaiting();
    for (unsigned index = 0; index < 3; ++index) {
        const bool isToBeAsked = GetParam().asked[index];
        EXPECT_EQ(isToBeAsked ? clients[index]->awaitAsked() : clients[index]->isAsked(), isToBeAsked)
            << index;
    }
}

const Table tables[] = {
    {"CountOfNothing", 0, {1, 1, 1}, {false, false, false}},
    {"EntriesBeyondTheCount", 1, {1, 1, 1}, {true, false, false}},
    {"FreeEntries", 3, {0, 1, 0}, {false, true, false}},
    {"AnyOtherMarkThanZero", 3, {2, 0x80, 255}, {true, true, true}},
};

INSTANTIATE_TEST_SUITE_P(ExitSweep, AskedClients, testing::ValuesIn(tables), rowName);

TEST_F(ExitSweep, ClientWithoutAPortIsTriedInVainQuietly) {
    enter(0, std::uint16_t{0});
    enter(1, first.port(), 0);
    std::vector<std::uint16_t> tried;
    const InPlaceOf<::connect> connections(
        [&tried](int descriptor, const sockaddr* address, socklen_t length) {
            sockaddr_in copy{};
            std::memcpy(&copy, address, sizeof copy);
            tried.push_back(ntohs(copy.sin_port));
            return ::connect(descriptor, address, length);
        });
    sweepWithoutWaiting();
    EXPECT_THAT(tried, ElementsAre(0));
    EXPECT_FALSE(first.isAsked());
    EXPECT_THAT(SelectRecorder::calls(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ExitSweep, ClientThatHasGoneIsPassedOverQuietlyAndTheNextIsAsked) {
    enter(0, first);
    enter(1, second);
    first.closeListener();
    sweepWithoutWaiting();
    EXPECT_EQ(second.receivedUntilClosed(), exitRequest);
    EXPECT_EQ(SelectRecorder::calls().size(), 1U);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ExitSweep, ClientForWhichThereIsNoSocketIsPassedOverQuietly) {
    enter(0, std::uint16_t{0});
    exitAllClients(holder); // the undefined-behaviour sanitizer has to see the classes before the limit
    enter(0, first);
    SharedVariables* const full = holder;
    {
        const DescriptorLimit limit(0);
        exitAllClients(full);
    }
    EXPECT_FALSE(first.isAsked());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ExitSweep, ClientForWhichThereIsNoMemoryIsPassedOverQuietlyAndTheNextIsAsked) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be made to fail here";
    enter(0, first);
    enter(1, second);
    SelectRecorder::fail(EINTR, 100);
    const FailingAllocation failure(0);
    exitAllClients(holder);
    EXPECT_TRUE(FailingAllocation::hasHappened());
    EXPECT_EQ(first.receivedUntilClosed(), "");
    EXPECT_EQ(second.receivedUntilClosed(), exitRequest);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ExitSweep, LastEntryOfTheTableIsAskedAlsoWithACountThatSomebodyMadeTooLarge) {
    enter(63, first);
    std::size_t sweeps = 0;
    for (const std::uint32_t count : {64U, 65U, 1000U, 0x7fffffffU, 0xffffffffU}) {
        table->count = count;
        sweepWithoutWaiting();
        EXPECT_EQ(first.receivedUntilClosed(), exitRequest) << count;
        EXPECT_EQ(SelectRecorder::calls().size(), ++sweeps) << count;
        first.hangUp();
        EXPECT_FALSE(first.isAsked()) << count;
    }
}

TEST_F(ExitSweep, TableFullOfRubbishEndsTheSweepAllTheSame) {
    std::memset(static_cast<void*>(table.get()), 0xff, sizeof *table);
    for (ClientEntry& entry : table->entries) {
        entry.port = first.port();
    }
    first.closeListener();
    exitAllClients(holder);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ExitSweep, EntriesAreNotModifiedAndNoDescriptorIsLeftOpen) {
    enter(0, first);
    enter(1, std::uint16_t{0});
    enter(2, second.port(), 255);
    table->entries[2].reserved = 0x12345678;
    SharedVariables before;
    std::memcpy(static_cast<void*>(&before), table.get(), sizeof before);
    const int descriptor = lowestFreeDescriptor();
    sweepWithoutWaiting();
    EXPECT_EQ(lowestFreeDescriptor(), descriptor);
    EXPECT_TRUE(second.awaitAsked());
    EXPECT_EQ(std::memcmp(&before, table.get(), sizeof before), 0);
}

TEST_F(ExitSweep, ClientThatNeverAnswersHoldsTheSweepUntilItsTimeIsOver) {
    SelectRecorder::divideWaitsBy(18000);
    enter(0, first);
    enter(1, second);
    second.closeListener();
    const auto begin = std::chrono::steady_clock::now();
    exitAllClients(holder);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(90));
    EXPECT_TRUE(first.awaitAsked());
    EXPECT_THAT(log.lines(), IsEmpty());
}

/// Whatever a client answers, the next one is asked.
class HostileAnswer : public ExitSweep, public testing::WithParamInterface<NamedText> {};

TEST_P(HostileAnswer, DoesNotKeepTheNextClientFromBeingAsked) {
    enter(0, first);
    enter(1, second);
    startSweep();
    awaitWait(1);
    first.answer(GetParam().text);
    first.reset();
    ASSERT_TRUE(second.awaitAsked());
    second.answer("HTTP/1.0 500 No\r\nContent-Length: 12\r\n\r\nhello, world");
    EXPECT_EQ(second.receivedUntilClosed(), exitRequest);
}

const NamedText hostileAnswers[] = {
    {"CarriageReturn", "\r"},
    {"LineEnds", "\r\n\r\n"},
    {"Garbage", "garbage"},
    {"Nul", std::string(1, '\0')},
    {"EndlessLine", std::string(9000, 'x')},
    {"EmptyHeader", "HTTP/1.0 200 OK\r\n:\r\n\r\n"},
    {"HugeLength", "HTTP/1.0 200 OK\r\nContent-Length: 4294967295\r\n\r\nx"},
    {"NegativeLength", "HTTP/1.0 200 OK\r\nContent-Length: -1\r\n\r\nx"},
    {"LengthThatIsNotKept", "HTTP/1.0 200 OK\r\nContent-Length: 50\r\n\r\nx"},
    {"MoreThanTheLength", "HTTP/1.0 200 OK\r\nContent-Length: 10\r\n\r\n" + std::string(7000, 'x')},
};

INSTANTIATE_TEST_SUITE_P(ExitSweep, HostileAnswer, testing::ValuesIn(hostileAnswers), rowName);

TEST_F(ExitSweep, ClientThatHangsUpWithoutAnAnswerDoesNotKeepTheNextFromBeingAsked) {
    enter(0, first);
    enter(1, second);
    startSweep();
    awaitWait(1);
    EXPECT_TRUE(first.awaitAsked());
    first.reset();
    awaitWait(2);
    EXPECT_TRUE(second.awaitAsked());
    second.reset();
    sweep.join();
    EXPECT_THAT(log.lines(), IsEmpty());
}

} // namespace
