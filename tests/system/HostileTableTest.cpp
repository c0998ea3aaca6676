/// What any local user can do to the table, which is writable by all: the daemon lists, claims and sweeps
/// what makes sense, and outlives the rest.

#include "tests/support/DaemonDriver.h"
#include "tests/support/Files.h"
#include "tests/support/ListeningPeer.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Matchers.h"
#include "tests/support/Rows.h"
#include "tests/support/SharedTable.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <thread>

namespace {

using namespace ZNORBTEST;

constexpr const char* waitingLine = "Unified responder waiting for connections\r\n";

/// A daemon in test mode, where its log can be seen.
class HostileTable : public testing::Test {
protected:
    void SetUp() override {
        console = driver.startServingConsole();
        ASSERT_TRUE(console->waitForOutput(waitingLine)); // it says so before it listens
        seen = console->output().size();
    }

    /// What the daemon has logged since the last call. All of a request's, when it has been answered.
    std::string newOutput() {
        std::string text = console->outputFrom(seen);
        seen += text.size();
        return text;
    }

    void expectListed(const std::string& lines) {
        EXPECT_EQ(askDaemon("PRINT"), "0");
        EXPECT_EQ(newOutput(), lines);
    }

    void expectNothingLeft() {
        expectListed("");
        EXPECT_EQ(askDaemon("GET|en"), "0");
        EXPECT_EQ(newOutput(), "Received GET command\r\n"); // and no new process
        EXPECT_THAT(driver.clients(), IsEmpty());
    }

    void quit() {
        EXPECT_EQ(askDaemon("QUIT"), "0");
        ASSERT_TRUE(console->writeInput("q"));
        EXPECT_EQ(console->waitForEnd(), exitedWith(255));
        EXPECT_THAT(driver.newNames(), ElementsAre("/run/znorb.socket"));
    }

    void loseWhileReading(std::int64_t size);

    DaemonDriver driver;
    std::unique_ptr<ChildProcess> console;
    std::size_t seen = 0;
};

std::string bytesOf(const znorb_shared_table& table) {
    return std::string(reinterpret_cast<const char*>(&table), sizeof table);
}

/// As "PRINT" logs it.
std::string line(unsigned index, const std::string& valid, const std::string& identifier) {
    return std::string(index < 10 ? "Entry:  " : "Entry: ") + std::to_string(index) + ", Valid?: " + valid +
           ", ID: " + identifier + "\r\n";
}

TEST_F(HostileTable, WithTheHighestCountIsListedToItsLastEntryAndClaimedFromAsAnyOther) {
    ASSERT_TRUE(writeSharedTable(0, "\xff\xff\xff\xff"));
    std::string expected;
    for (unsigned index = 0; index < ZNORB_TABLE_CAPACITY; ++index) {
        expected += line(index, "N", "");
    }
    expectListed(expected);
    EXPECT_EQ(askDaemon("GET|en"), "0");
    EXPECT_EQ(askDaemon("GET|en"), "1");
    quit();
}

TEST_F(HostileTable, WithoutATerminatorAnywhereIsListedFieldByField) {
    znorb_shared_table table;
    std::memset(&table, 'x', sizeof table);
    ASSERT_TRUE(writeSharedTable(0, bytesOf(table)));
    std::string expected;
    for (unsigned index = 0; index < ZNORB_TABLE_CAPACITY; ++index) {
        expected += line(index, "Y", std::string(ZNORB_IDENTIFIER_SIZE, 'x'));
    }
    expectListed(expected);
}

TEST_F(HostileTable, FullOfOnesAdmitsNoClaim) {
    ASSERT_TRUE(writeSharedTable(0, std::string(ZNORB_TABLE_SIZE, '\xff')));
    EXPECT_EQ(askDaemon("GET|en"), "0");
    EXPECT_EQ(newOutput(), "Received GET command\r\n");
    quit();
}

TEST_F(HostileTable, WhoseCountWasTakenBackGivesEntriesOutAnew) {
    EXPECT_EQ(askDaemon("GET|en"), "0");
    EXPECT_EQ(askDaemon("GET|en"), "1");
    ASSERT_TRUE(writeSharedTable(0, std::string(4, '\0')));
    (void)newOutput();
    expectListed("");
    EXPECT_EQ(askDaemon("GET|en"), "0");
}

TEST_F(HostileTable, WithFormatsForIdentifiersIsListedAsItStands) {
    znorb_shared_table table{};
    table.count = 1;
    (void)std::string("%n%s%1000000d\r\n").copy(table.entries[0].identifier, 15);
    ASSERT_TRUE(writeSharedTable(0, bytesOf(table)));
    expectListed(line(0, "N", "%n%s%1000000d\r\n"));
}

TEST_F(HostileTable, ShortenedToNothingIsLost) {
    ASSERT_EQ(askDaemon("GET|en|60"), "0");
    ASSERT_TRUE(DaemonDriver::waitForClient(0));
    ASSERT_EQ(kill(driver.clients()[0], SIGKILL), 0);
    ASSERT_TRUE(waitUntil([&]() { return driver.clients().empty(); }));
    (void)newOutput();
    ASSERT_TRUE(resizeSharedTable(0));
    expectNothingLeft();
    quit();
}

/// Shortens and lengthens while requests are served, then shortens for good.
void HostileTable::loseWhileReading(std::int64_t size) {
    ASSERT_TRUE(writeSharedTable(0, std::string(ZNORB_TABLE_SIZE, '\xff'))); // all entries are looked at
    std::atomic<bool> isOver = false;
    std::thread neighbour([&isOver, size]() {
        while (!isOver) {
            (void)resizeSharedTable(size);
            (void)resizeSharedTable(ZNORB_TABLE_SIZE);
        }
    });
    for (int round = 0; round < 50; ++round) {
        EXPECT_EQ(askDaemon("PRINT"), "0");
    }
    isOver = true;
    neighbour.join();
    EXPECT_TRUE(resizeSharedTable(size));
    EXPECT_EQ(askDaemon("PRINT"), "0");
    (void)newOutput();
}

class ShortenedTable : public HostileTable, public testing::WithParamInterface<Row<std::int64_t, bool>> {};

TEST_P(ShortenedTable, IsLost) {
    if (GetParam().expected) {
        loseWhileReading(GetParam().given);
    }
    ASSERT_TRUE(resizeSharedTable(GetParam().given));
    expectNothingLeft();
    quit();
}

// The size, and whether that happens while the table is read.
const Row<std::int64_t, bool> sizes[] = {
    {"ToOnePage", 4096, false},
    {"ByItsLastFourBytes", 8192, false},
    {"ToNothingWhileItIsRead", 0, true},
    {"ToOnePageWhileItIsRead", 4096, true},
};

INSTANTIATE_TEST_SUITE_P(HostileTable, ShortenedTable, testing::ValuesIn(sizes), rowName);

TEST_F(HostileTable, ShortenedAndPutBackStaysLost) {
    ASSERT_TRUE(resizeSharedTable(0));
    EXPECT_EQ(askDaemon("PRINT"), "0");
    ASSERT_TRUE(writeSharedTable(0, std::string(ZNORB_TABLE_SIZE, '\xff')));
    expectNothingLeft();
    quit();
}

TEST_F(HostileTable, ShortenedAndPutBackBetweenTwoLooksIsJustEmpty) {
    ASSERT_TRUE(writeSharedTable(0, "\x05"));
    ASSERT_TRUE(resizeSharedTable(0));
    ASSERT_TRUE(resizeSharedTable(ZNORB_TABLE_SIZE));
    expectListed("");
    EXPECT_EQ(askDaemon("GET|en"), "0");
    EXPECT_TRUE(waitUntil([&]() { return driver.clients().size() == 1; }));
}

TEST_F(HostileTable, MadeLongerIsUsedAsFarAsItIsTheTable) {
    ASSERT_TRUE(resizeSharedTable(1 << 20));
    EXPECT_EQ(askDaemon("GET|en"), "0");
    EXPECT_TRUE(DaemonDriver::waitForClient(0));
    quit();
}

TEST_F(HostileTable, ShortenedBeforeTheSweepIsSweptAsAnEmptyOne) {
    const ListeningPeer client({58, {"HTTP/1.0 200 OK\r\n\r\n"}});
    ASSERT_TRUE(enterClient(0, client.port()));
    ASSERT_TRUE(resizeSharedTable(4096));
    quit();
    EXPECT_THAT(client.received(), IsEmpty());
}

TEST_F(HostileTable, ShortenedInTheMiddleOfTheSweepEndsItThere) {
    auto silent = std::make_unique<ListeningPeer>(PeerScript{58, {}, true});
    const ListeningPeer next({58, {"HTTP/1.0 200 OK\r\n\r\n"}});
    ASSERT_TRUE(enterClient(0, silent->port()));
    ASSERT_TRUE(enterClient(1, next.port()));
    LocalConnection quitter = LocalConnection::toPath(socketPath);
    ASSERT_TRUE(quitter.send("QUIT"));
    ASSERT_TRUE(silent->waitForServed(1));
    ASSERT_TRUE(resizeSharedTable(0));
    silent.reset(); // the sweep goes on
    EXPECT_EQ(quitter.receiveUntilClosed(), "0");
    EXPECT_THAT(next.received(), IsEmpty());
    ASSERT_TRUE(console->writeInput("q"));
    EXPECT_EQ(console->waitForEnd(), exitedWith(255));
}

TEST_F(HostileTable, WhoseNameIsGoneGoesOnForTheDaemon) {
    ASSERT_TRUE(writeSharedTable(0, "\1"));
    ASSERT_EQ(shm_unlink("/znorb.shvars"), 0);
    expectListed(line(0, "N", ""));
    quit();
}

TEST_F(HostileTable, UnderWhoseNameThereIsAnotherGoesOnForTheDaemonWhichRemovesTheOther) {
    ASSERT_EQ(unlink(tableFile), 0);
    writeFile(tableFile, std::string(ZNORB_TABLE_SIZE, '\xff'), 0666);
    expectListed("");
    quit();
}

TEST(HostileTableOfADetachedDaemon, ShortenedLeavesItServingUntilItIsTerminated) {
    DaemonDriver driver;
    ASSERT_TRUE(driver.startServing());
    ASSERT_TRUE(resizeSharedTable(0));
    EXPECT_EQ(askDaemon("GET|en"), "0");
    EXPECT_EQ(askDaemon("PRINT"), "0");
    EXPECT_THAT(driver.clients(), IsEmpty());
    EXPECT_EQ(driver.endBy(SIGTERM), exitedWith(10));
}

} // namespace
