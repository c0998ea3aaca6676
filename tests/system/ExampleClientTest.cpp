#include "tests/support/Addresses.h"
#include "tests/support/Descriptor.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Matchers.h"
#include "tests/support/Results.h"
#include "tests/support/Rows.h"
#include "tests/support/SharedTable.h"
#include "tests/system/Example.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <list>

namespace {

using namespace ZNORBTEST;

constexpr const char* exitRequest = "POST /ExitApplication.json HTTP/1.0\r\nContent-Length: 0\r\n\r\n";
constexpr const char* exitResponse = "HTTP/1.0 200 OK\r\n"
                                     "Content-Type: application/json\r\n"
                                     "Content-Length: 21\r\n\r\n"
                                     "{\"result\":\"exiting\"}\n";
constexpr const char* notFoundResponse = "HTTP/1.0 404 Not Found\r\n"
                                         "Content-Type: application/json\r\n"
                                         "Content-Length: 23\r\n\r\n"
                                         "{\"result\":\"not found\"}\n";

const Example clients[] = {{"C", "znorbclient"}, {"Python", "znorbclient.py"}};

class ExampleClient : public ExampleTest, public testing::WithParamInterface<Example> {
protected:
    ExampleClient() : ExampleTest(GetParam()) {}

    // The usual client of an entry, claimed for it; returns when it has filled the entry in.
    ChildProcess& startClient(unsigned index, const std::vector<std::string>& more = {}) {
        table.claim(index);
        std::vector<std::string> arguments = {"-lang", "en", "-wbx", "-index", std::to_string(index)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        ChildProcess& client = m_clients.emplace_back(launch(arguments));
        EXPECT_TRUE(waitUntil([this, index]() { return table.portOf(index) != 0; })) << client.errors();
        return client;
    }

    std::string ask(unsigned index, const std::string& request) const {
        LocalConnection connection = LocalConnection::toPort(table.portOf(index));
        EXPECT_TRUE(connection.isConnected() && connection.send(request));
        const std::string response = connection.receiveUntilClosed();
        EXPECT_TRUE(connection.wasClosed());
        return response;
    }

    // Ends the client as the daemon would; it must be there and in order.
    void endInOrder(unsigned index, ChildProcess& client) const {
        EXPECT_EQ(ask(index, exitRequest), exitResponse);
        EXPECT_EQ(client.waitForEnd(), exitedWith(0));
        EXPECT_FALSE(table.isInUse(index));
    }

    OwnSharedTable table;

private:
    std::list<ChildProcess> m_clients;
};

INSTANTIATE_TEST_SUITE_P(, ExampleClient, testing::ValuesIn(clients), rowName);

TEST_P(ExampleClient, WritesItsIdentifierAndPortIntoItsEntry) {
    ChildProcess& client = startClient(3);
    EXPECT_EQ(identifierOf(table->entries[3]), "znorbclient-" + std::to_string(client.pid()) + " en");
    EXPECT_EQ(table->entries[3].in_use, 1);
    EXPECT_TRUE(LocalConnection::toPort(table.portOf(3)).isConnected());
}

TEST_P(ExampleClient, TouchesNoOtherPartOfTheTable) {
    const znorb_shared_table before = *table;
    ChildProcess& client = startClient(5);
    endInOrder(5, client);

    EXPECT_EQ(table->count, 6U); // from the claim
    EXPECT_EQ(table->entries[5].reserved, 0U);
    table->entries[5] = before.entries[5];
    table->count = before.count;
    EXPECT_EQ(std::memcmp(&before, &*table, sizeof before), 0);
}

TEST_P(ExampleClient, AnswersTheExitRequestAndFreesItsEntryAndEndsAndSaysNothing) {
    ChildProcess& client = startClient(0);
    endInOrder(0, client);
    EXPECT_EQ(client.errors(), "");
    EXPECT_EQ(client.output(), "");
}

TEST_P(ExampleClient, ServesTheFirstAndTheLastEntryAtTheSameTime) {
    ChildProcess& first = startClient(0);
    ChildProcess& last = startClient(63);
    EXPECT_NE(table.portOf(0), table.portOf(63));
    endInOrder(63, last);
    EXPECT_TRUE(table.isInUse(0));
    endInOrder(0, first);
}

TEST_P(ExampleClient, ListensOnTheLoopbackAddressOnly) {
    startClient(0);
    const Descriptor descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = addressOf(table.portOf(0));
    address.sin_addr.s_addr = inet_addr("127.0.0.2"); // answered by a socket that is bound to any address
    EXPECT_EQ(connectTo(descriptor.get(), address), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
}

TEST_P(ExampleClient, AnswersOtherRequestsWithNotFoundAndGoesOn) {
    ChildProcess& client = startClient(0);
    for (const char* request :
         {"GET /ExitApplication.json HTTP/1.0\r\n\r\n", "POST / HTTP/1.0\r\n\r\n",
          "post /ExitApplication.json HTTP/1.0\r\n\r\n", "\r\n\r\n",
          "POST /ExitApplication.jsonp HTTP/1.0\r\n\r\n", "POST /ExitApplication.json?now HTTP/1.0\r\n\r\n",
          "POST /ExitApplication.json\r\n\r\n"}) {
        EXPECT_EQ(ask(0, request), notFoundResponse) << request;
    }
    endInOrder(0, client);
}

TEST_P(ExampleClient, UnderstandsARequestThatArrivesInPieces) {
    ChildProcess& client = startClient(0);
    {
        LocalConnection connection = LocalConnection::toPort(table.portOf(0));
        for (const char* byte = exitRequest; *byte != '\0'; ++byte) {
            ASSERT_TRUE(connection.send(std::string(1, *byte)));
        }
        EXPECT_EQ(connection.receiveUntilClosed(), exitResponse);
    }
    EXPECT_EQ(client.waitForEnd(), exitedWith(0));
}

TEST_P(ExampleClient, IsNotHeldUpByPeersThatSayNothing) {
    ChildProcess& client = startClient(0);
    const LocalConnection silent = LocalConnection::toPort(table.portOf(0));
    const LocalConnection alsoSilent = LocalConnection::toPort(table.portOf(0));
    ASSERT_TRUE(silent.isConnected() && alsoSilent.isConnected());
    endInOrder(0, client); // it gave up on both before
}

TEST_P(ExampleClient, SurvivesPeersThatHangUp) {
    ChildProcess& client = startClient(0);
    for (const char* begun : {"", "P", "POST /ExitApplication.json HTTP/1.0\r\n", "GET / HTTP/1.0\r\n\r\n"}) {
        const LocalConnection connection = LocalConnection::toPort(table.portOf(0));
        const linger reset = {1, 0}; // closed with a reset, which meets the answer
        ASSERT_EQ(setsockopt(connection.descriptor(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset), 0);
        ASSERT_TRUE(*begun == '\0' || connection.send(begun));
    }
    endInOrder(0, client);
}

TEST_P(ExampleClient, HangsUpOnARequestThatHasNoEnd) {
    ChildProcess& client = startClient(0);
    for (const std::string& endless :
         {std::string(8193, 'x'),
          std::string("POST /ExitApplication.json HTTP/1.0\r\nX: ") + std::string(9000, 'x'),
          std::string("\0\0\r\n\r\n", 6) + std::string(9000, '\0')}) {
        LocalConnection connection = LocalConnection::toPort(table.portOf(0));
        (void)connection.send(endless);
        (void)connection.receiveUntilClosed();
        EXPECT_TRUE(connection.wasClosed());
    }
    endInOrder(0, client);
}

TEST_P(ExampleClient, EndsByItselfWhenItsTimeIsUpAlsoWhileAPeerHoldsIt) {
    for (const bool isHeld : {false, true}) {
        ChildProcess& client = startClient(0, {"-timeout", "1"});
        std::optional<LocalConnection> silent;
        if (isHeld) {
            silent.emplace(LocalConnection::toPort(table.portOf(0)));
        }
        EXPECT_EQ(client.waitForEnd(), exitedWith(0));
        EXPECT_FALSE(table.isInUse(0));
    }
}

TEST_P(ExampleClient, TakesZeroAndGarbageForTheUsualTimeOut) {
    unsigned index = 0;
    for (const char* timeOut : {"0", "", "-1", "x", "1x", " 1", "0.1", "99999999999999999999"}) {
        ChildProcess& client = startClient(index, {"-timeout", timeOut});
        EXPECT_EQ(client.waitForEnd(Milliseconds(20)), stillRunning()) << timeOut;
        endInOrder(index, client);
        ++index;
    }
}

TEST_P(ExampleClient, FreesItsEntryWhenItIsEndedByASignal) {
    unsigned index = 0;
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        ChildProcess& client = startClient(index);
        ASSERT_EQ(kill(client.pid(), number), 0);
        EXPECT_EQ(client.waitForEnd(), exitedWith(0));
        EXPECT_FALSE(table.isInUse(index));
        ++index;
    }
}

TEST_P(ExampleClient, WritesAnyLanguageAsItIsAndCutsOneThatIsTooLongForTheField) {
    unsigned index = 0;
    for (const std::string& language : {std::string(), std::string("%s%n"), std::string(500, 'x')}) {
        table.claim(index);
        ChildProcess client(launch({"-lang", language, "-wbx", "-index", std::to_string(index)}));
        ASSERT_TRUE(waitUntil([this, index]() { return table.portOf(index) != 0; }));
        const std::string whole = "znorbclient-" + std::to_string(client.pid()) + " " + language;
        EXPECT_EQ(identifierOf(table->entries[index]), whole.substr(0, ZNORB_IDENTIFIER_SIZE - 1));
        EXPECT_EQ(table->entries[index].identifier[ZNORB_IDENTIFIER_SIZE - 1], '\0');
        endInOrder(index, client);
        ++index;
    }
}

TEST_P(ExampleClient, KeepsNoDescriptorOfAConnection) {
    ChildProcess& client = startClient(0);
    const std::string descriptors = "/proc/" + std::to_string(client.pid()) + "/fd";
    const std::vector<std::string> before = namesIn(descriptors);
    ASSERT_FALSE(before.empty());
    EXPECT_EQ(ask(0, "GET / HTTP/1.0\r\n\r\n"), notFoundResponse);
    (void)LocalConnection::toPort(table.portOf(0)); // hangs up at once
    EXPECT_EQ(ask(0, "GET / HTTP/1.0\r\n\r\n"), notFoundResponse);
    EXPECT_TRUE(waitUntil([&]() { return namesIn(descriptors) == before; }));
    endInOrder(0, client);
}

TEST_P(ExampleClient, SaysItsPortAndWhyItEndsInTestMode) {
    table.claim(0);
    ChildProcess client(launch({"-v", "-lang", "en", "-wbx", "-index", "0"}));
    ASSERT_TRUE(waitUntil([this]() { return table.portOf(0) != 0; }));
    const std::uint16_t port = table.portOf(0);
    endInOrder(0, client);
    EXPECT_EQ(client.errors(), "znorbclient: entry 0, port " + std::to_string(port) +
                                   "\nznorbclient: entry 0, asked to exit over HTTP\n");
}

TEST_P(ExampleClient, RefusesAnEntryThatIsNotInTheTableOrNotClaimed) {
    for (const char* index : {"64", "65536", "-1", "", "x", "1x", "99999999999999999999"}) {
        EXPECT_THAT(runProgram(launch({"-lang", "en", "-wbx", "-index", index})),
                    resultIs(exitedWith(1), _, HasSubstr("-index")))
            << index;
    }
    EXPECT_EQ(runProgram(launch({"-lang", "en", "-wbx"})).end, exitedWith(1));
    EXPECT_EQ(runProgram(launch({"-lang", "en", "-wbx", "-index"})).end, exitedWith(1));
    EXPECT_EQ(runProgram(launch({})).end, exitedWith(1));
    EXPECT_THAT(runProgram(launch({"-lang", "en", "-wbx", "-index", "0"})),
                resultIs(exitedWith(1), _, HasSubstr("not claimed")));
    EXPECT_EQ(table.portOf(0), 0);
}

TEST_P(ExampleClient, SkipsWordsThatItDoesNotKnow) {
    ChildProcess& client = startClient(0, {"-newer", "-option", "value"});
    endInOrder(0, client);
}

// Without the daemon's table.
class ExampleClientAlone : public ExampleClient {
protected:
    ExampleClientAlone() { (void)shm_unlink(ZNORB_TABLE_NAME); }
};

INSTANTIATE_TEST_SUITE_P(, ExampleClientAlone, testing::ValuesIn(clients), rowName);

TEST_P(ExampleClientAlone, SaysThatThereIsNoTable) {
    EXPECT_THAT(
        runProgram(launch({"-lang", "en", "-wbx", "-index", "0"})),
        resultIs(exitedWith(1), _, StartsWith("znorbclient: the table /znorb.shvars cannot be opened")));
    EXPECT_FALSE(readSharedTable().has_value()); // and makes none
}

TEST_P(ExampleClientAlone, RefusesATableThatIsTooSmall) {
    const Descriptor descriptor(shm_open(ZNORB_TABLE_NAME, O_RDWR | O_CREAT | O_EXCL, 0666));
    ASSERT_EQ(ftruncate(descriptor.get(), ZNORB_TABLE_SIZE - 1), 0);
    EXPECT_EQ(runProgram(launch({"-lang", "en", "-wbx", "-index", "0"})).end, exitedWith(1));
}

} // namespace
