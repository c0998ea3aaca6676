/// What SECURITY.md says that others on the machine can do to the daemon, and what an administrator can do
/// about it. Some of it nobody would wish for: it is pinned here so that the text stays true.

#include "tests/sandbox/Processes.h"
#include "tests/support/DaemonDriver.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Matchers.h"
#include "tests/support/Results.h"
#include "tests/support/Rows.h"
#include "tests/support/SharedTable.h"
#include "tests/support/Skipping.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace {

using namespace ZNORBTEST;

/// Runs a shell command as somebody who is not root.
ProgramResult asOrdinaryUser(const std::string& command) {
    return runProgram({.program = "/bin/sh", .arguments = {"-c", command}, .asOrdinaryUser = true});
}

/// Whether an ordinary user is another one than the owner of what this process makes.
bool knowsOtherUsers() {
    const std::string path = "/dev/shm/znorb-test-" + std::to_string(getpid());
    writeFile(path, "", 0600);
    const bool isClosed = asOrdinaryUser("cat " + path).end != exitedWith(0);
    (void)unlink(path.c_str());
    return isClosed;
}

constexpr const char* onlyRoot = "the sandbox knows no other user than root";

class Security : public testing::Test {
protected:
    ProgramResult request(const std::string& text) const {
        return asOrdinaryUser("exec " + driver.requestor() + " '" + text + "'");
    }

    std::vector<pid_t> daemons() const { return processesRunning(driver.program()); }

    DaemonDriver driver;
};

// ---- the socket and the table ----------------------------------------------------------------------------

TEST_F(Security, DaemonHasOneSocketAndThatIsOfThisMachine) {
    ASSERT_TRUE(driver.startServing());
    std::vector<std::string> sockets; // "socket:[4711]"
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(driver.daemon()) + "/fd")) {
        const std::string target = std::filesystem::read_symlink(entry.path()).string();
        if (target.starts_with("socket:")) {
            sockets.push_back(target.substr(8, target.size() - 9));
        }
    }
    ASSERT_EQ(sockets.size(), 1U);
    EXPECT_THAT(readFile("/proc/net/unix"), HasSubstr(" " + sockets[0] + " "));
}

TEST_F(Security, AnybodyMayStartClientsAndEndTheDaemon) {
    ASSERT_TRUE(driver.startServing());
    EXPECT_EQ(request("GET|en").output, "0\n");
    EXPECT_TRUE(waitUntil([this]() { return driver.clients().size() == 1; }));
    EXPECT_EQ(request("QUIT").output, "0\n");
    EXPECT_EQ(driver.waitForDaemon(), exitedWith(255));
}

TEST_F(Security, WhoeverFreesEntriesGetsMoreClientsThanThereAreEntries) {
    ASSERT_TRUE(driver.startServing());
    driver.installAsClient("znorb-waiter");
    for (std::size_t number = 1; number <= 70; ++number) {
        ASSERT_EQ(askDaemon("GET|en"), "0");
        ASSERT_TRUE(waitUntil([this, number]() { return driver.clients().size() == number; }));
        EXPECT_TRUE(writeSharedTable(offsetof(znorb_shared_table, entries), std::string(1, '\0')));
    }
}

TEST_F(Security, IdentifiersAndCommandLinesAreForEverybodyToRead) {
    ASSERT_TRUE(driver.startServing());
    ASSERT_EQ(askDaemon("GET|somebodys-language"), "0");
    ASSERT_TRUE(DaemonDriver::waitForClient(0));
    EXPECT_TRUE(
        writeSharedTable(offsetof(znorb_shared_table, entries) + offsetof(znorb_client_entry, identifier),
                         std::string("somebodys-identifier", 21)));
    const std::vector<pid_t> clients = driver.clients();
    ASSERT_EQ(clients.size(), 1U);
    const std::string commandLine = "/proc/" + std::to_string(clients[0]) + "/cmdline";
    EXPECT_THAT(asOrdinaryUser(std::string("cat ") + tableFile).output, HasSubstr("somebodys-identifier"));
    EXPECT_THAT(asOrdinaryUser("cat " + commandLine).output, HasSubstr("somebodys-language"));
}

TEST_F(Security, EveryFailedLaunchLeavesOneMoreDaemon) {
    ASSERT_TRUE(driver.startServing());
    ASSERT_EQ(unlink(driver.client().c_str()), 0);
    for (std::size_t number = 2; number <= 5; ++number) {
        ASSERT_TRUE(askDaemon("GET|en").has_value());
        EXPECT_TRUE(waitUntil([this, number]() { return daemons().size() == number; })) << number;
    }
}

TEST_F(Security, AdministratorMayCloseTheSocketToOthers) {
    ZNORB_SKIP_IF(!knowsOtherUsers()) << onlyRoot;
    ASSERT_TRUE(driver.startServing());
    ASSERT_EQ(chmod(socketPath, 0600), 0);
    EXPECT_EQ(request("PRINT").end, exitedWith(1));
    EXPECT_EQ(askDaemon("PRINT"), "0");
}

TEST_F(Security, AdministratorMayCloseTheTableToOthersWithoutHarmToClients) {
    ASSERT_TRUE(driver.startServing());
    ASSERT_EQ(chmod(tableFile, 0600), 0);
    EXPECT_EQ(askDaemon("GET|en"), "0");
    EXPECT_TRUE(DaemonDriver::waitForClient(0));
    if (knowsOtherUsers()) {
        EXPECT_NE(asOrdinaryUser(std::string(": <>") + tableFile).end, exitedWith(0));
    }
    EXPECT_EQ(driver.quit(), exitedWith(255));
    EXPECT_TRUE(waitUntil([this]() { return driver.clients().empty(); }));
}

TEST_F(Security, OthersCanNeitherTakeTheLockNorRemoveTheNamesNorSignalTheDaemon) {
    ZNORB_SKIP_IF(!knowsOtherUsers()) << onlyRoot;
    ASSERT_TRUE(driver.startServing());
    for (const std::string& command :
         {std::string(": <>") + lockFile, std::string("rm -f ") + lockFile, std::string("rm -f ") + tableFile,
          std::string("rm -f ") + socketPath, "kill -TERM " + std::to_string(driver.daemon())}) {
        EXPECT_NE(asOrdinaryUser(command).end, exitedWith(0)) << command;
    }
    EXPECT_TRUE(exists(lockFile) && exists(tableFile) && exists(socketPath));
    EXPECT_EQ(askDaemon("PRINT"), "0");
}

TEST_F(Security, IdentifiersReachTheTestConsoleWithTheirControlCharacters) {
    const auto console = driver.startServingConsole();
    const std::string hostile = "\x1b[2J\a\r\nEntry:  9";
    EXPECT_TRUE(writeSharedTable(0, countOf(1)));
    EXPECT_TRUE(
        writeSharedTable(offsetof(znorb_shared_table, entries) + offsetof(znorb_client_entry, identifier),
                         hostile + std::string(1, '\0')));
    ASSERT_TRUE(console->writeInput("p\n"));
    EXPECT_TRUE(console->waitForOutput("Entry:  0, Valid?: N, ID: " + hostile));
}

// ---- names that are taken before the daemon starts -------------------------------------------------------

TEST_F(Security, LockThatIsTakenRefusesEveryStartWhateverIsInIt) {
    for (const std::string& content : {std::string(), std::string(32, '\0'), std::string(32, '\xff')}) {
        writeFile(lockFile, content, 0666);
        EXPECT_EQ(driver.run({"-d"}).end, exitedWith(2));
        EXPECT_EQ(driver.run({"-stop"}).end, exitedWith(255)); // nobody serves the socket
        ASSERT_EQ(unlink(lockFile), 0);
    }
    EXPECT_TRUE(driver.startServing());
}

// As a second daemon leaves it that raced past the probe: the first one serves, and its lock's name is free.
TEST_F(Security, FileThatIsTooShortInTheLocksPlaceDoesNotEndAStopWithoutAWord) {
    ASSERT_TRUE(driver.startServing());
    ASSERT_EQ(unlink(lockFile), 0);
    writeFile(lockFile, "", 0666);
    EXPECT_THAT(driver.run({"-stop"}), resultIs(exitedWith(255), "The ZN Orbisan daemon has stopped.\n"));
    EXPECT_EQ(driver.waitForDaemon(), exitedWith(255));
    EXPECT_FALSE(exists(lockFile)) << "the daemon's end removes the name, whosever it is";
}

struct Squatter {
    const char* name;
    int (*put)();

    friend void PrintTo(const Squatter& row, std::ostream* stream) { *stream << row.name; }
};

class LockThatIsNoSemaphore : public Security, public testing::WithParamInterface<Squatter> {};

TEST_P(LockThatIsNoSemaphore, LeavesTheDaemonWithoutAName) {
    ASSERT_EQ(GetParam().put(), 0);
    ASSERT_TRUE(driver.startServing());
    EXPECT_EQ(driver.run({"-stop"}).end, exitedWith(2));
    EXPECT_EQ(driver.quit(), exitedWith(255));
    (void)rmdir(lockFile); // the one that the daemon itself cannot remove
    EXPECT_FALSE(exists(lockFile));
}

const Squatter squatters[] = {
    {"Fifo", []() { return mkfifo(lockFile, 0666); }},
    {"Directory", []() { return mkdir(lockFile, 0777); }},
    {"Link", []() { return symlink("/dev/null", lockFile); }},
};

INSTANTIATE_TEST_SUITE_P(Names, LockThatIsNoSemaphore, testing::ValuesIn(squatters), rowName);

TEST_F(Security, DirectoryInTheTablesPlaceFailsEveryStartUntilItIsRemoved) {
    ASSERT_EQ(mkdir(tableFile, 0777), 0);
    for (int start = 0; start < 2; ++start) {
        ASSERT_TRUE(driver.start());
        EXPECT_EQ(driver.waitForDaemon(), exitedWith(255));
    }
    ASSERT_EQ(rmdir(tableFile), 0);
    EXPECT_TRUE(driver.startServing());
}

TEST_F(Security, LinkInTheTablesPlaceIsNotFollowed) {
    ASSERT_EQ(symlink("/dev/shm/elsewhere", tableFile), 0);
    ASSERT_TRUE(driver.start());
    EXPECT_EQ(driver.waitForDaemon(), exitedWith(255));
    EXPECT_THAT(driver.newNames(), IsEmpty());
}

} // namespace
