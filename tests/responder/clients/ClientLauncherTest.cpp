#include "responder/clients/ClientLauncher.h"

#include "responder/Globals.h"
#include "responder/table/SharedObject.h"
#include "tests/responder/clients/StandInClient.h"
#include "tests/responder/paths/StagedInstallation.h"
#include "tests/support/Allocations.h"
#include "tests/support/Descriptor.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Matchers.h"
#include "tests/support/Rows.h"
#include "tests/support/Scarcity.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;

constexpr const char* programs = StagedInstallation::programs;
constexpr const char* program = "/opt/zn/znorb/bin/znorbclient";
constexpr std::uint16_t untouched = 12345;
constexpr int notExecuted = 127;

std::string createdLine(pid_t process) {
    return "New process created: " + std::to_string(process);
}

/// A table with this count whose entries have these marks.
void fill(SharedVariables& table, std::uint32_t count, const std::vector<std::uint8_t>& marks) {
    table.count = count;
    for (std::size_t i = 0; i < marks.size(); ++i) {
        table.entries[i].inUse = marks[i];
    }
}

/// As `startClient`, where the client can be executed. Should a second copy of this process come back from
/// it all the same, that one ends: it must not go on with the tests.
pid_t start(SharedVariables* table, std::uint16_t& index, const std::string& language,
            const std::string& timeout) {
    const pid_t self = getpid();
    const pid_t process = table == nullptr ? launchClient(index, language, timeout)
                                           : startClient(table, index, language, timeout);
    if (getpid() != self) {
        _exit(notExecuted);
    }
    return process;
}

/// As `launchClient`, in the same way.
pid_t launch(std::uint16_t index, const std::string& language, const std::string& timeout) {
    return start(nullptr, index, language, timeout);
}

class ClientLauncherTest : public testing::Test {
protected:
    void SetUp() override { installStandInClient(programs); }
    void TearDown() override { gIsTestMode = false; }

    /// What the stand-in saw, after it has ended.
    static ClientStart startOfEnded(pid_t process) {
        EXPECT_EQ(waitForEndOf(process), exitedWith(0));
        return startOf(programs, process);
    }

    static std::vector<std::string> wordsOf(pid_t process) { return startOfEnded(process).words; }

    StagedInstallation m_installation;
    LogRecorder m_log;
    SharedVariables m_table;
};

/// A launch and the words behind the program's name.
struct LaunchedWords {
    const char* name;
    bool isTestMode;
    std::uint16_t index;
    std::string language;
    std::string timeout;
    std::vector<std::string> words;

    friend void PrintTo(const LaunchedWords& row, std::ostream* stream) { *stream << row.name; }
};

class ClientArguments : public ClientLauncherTest, public testing::WithParamInterface<LaunchedWords> {};

TEST_P(ClientArguments, AreModeLanguageConsoleIndexAndTimeout) {
    gIsTestMode = GetParam().isTestMode;
    std::vector<std::string> expected = GetParam().words;
    expected.insert(expected.begin(), program);
    EXPECT_EQ(wordsOf(launch(GetParam().index, GetParam().language, GetParam().timeout)), expected);
}

const std::string oddLanguage = "-timeout \"%s\" $HOME\n*";
const std::string longLanguage(1024, 'x'); // a request's size

const LaunchedWords launchedWords[] = {
    {"WithoutATimeout", false, 3, "en", "", {"-lang", "en", "-wbx", "-index", "3"}},
    {"WithAnIndexOfTwoDigits", false, 10, "en", "", {"-lang", "en", "-wbx", "-index", "10"}},
    {"WithTheLastIndexOfATable", false, 63, "en", "", {"-lang", "en", "-wbx", "-index", "63"}},
    {"WithAnIndexThatHasNoSign", false, 32768, "en", "", {"-lang", "en", "-wbx", "-index", "32768"}},
    {"WithTheGreatestIndex", false, 65535, "en", "", {"-lang", "en", "-wbx", "-index", "65535"}},
    {"WithATimeout", false, 3, "en", "600", {"-lang", "en", "-wbx", "-index", "3", "-timeout", "600"}},
    {"InTestMode", true, 3, "en", "", {"-v", "-lang", "en", "-wbx", "-index", "3"}},
    {"TestModeAndTimeout", true, 4, "de", "1", {"-v", "-lang", "de", "-wbx", "-index", "4", "-timeout", "1"}},
    {"EmptyLanguageIsAnEmptyArgument", false, 0, "", "", {"-lang", "", "-wbx", "-index", "0"}},
    {"EmptyLanguageBeforeATimeout", false, 0, "", "5", {"-lang", "", "-wbx", "-index", "0", "-timeout", "5"}},
    {"LanguageAndTimeoutAreUnchanged",
     false,
     7,
     oddLanguage,
     "-1; true",
     {"-lang", oddLanguage, "-wbx", "-index", "7", "-timeout", "-1; true"}},
    {"LongLanguageIsWhole", false, 9, longLanguage, "", {"-lang", longLanguage, "-wbx", "-index", "9"}},
};

INSTANTIATE_TEST_SUITE_P(ClientLauncher, ClientArguments, testing::ValuesIn(launchedWords), rowName);

TEST_F(ClientLauncherTest, ClientRunsInTheExecutablesDirectory) {
    const std::string before = std::filesystem::current_path();
    EXPECT_EQ(startOfEnded(launch(0, "en", "")).directory, programs);
    EXPECT_EQ(std::filesystem::current_path(), before) << "the launching process stays where it is";
}

TEST_F(ClientLauncherTest, ClientOfTheRunningExecutablesOwnDirectoryIsStarted) {
    const std::string elsewhere = "/opt/zn/znorb/other";
    std::filesystem::create_directory(elsewhere);
    installStandInClient(elsewhere);
    const ExecutableLink link(elsewhere + "/znorbresponder");
    const pid_t process = launch(0, "en", "");
    EXPECT_EQ(waitForEndOf(process), exitedWith(0));
    EXPECT_THAT(startedFrom(elsewhere), ElementsAre(process));
    EXPECT_THAT(startedFrom(programs), IsEmpty());
}

TEST_F(ClientLauncherTest, ClientHasTheStandardDescriptorsAndNoneThatIsCloseOnExec) {
    const Descriptor inherited(open("/dev/null", O_RDONLY)); // to be inherited
    const Descriptor closed(open("/dev/null", O_RDONLY | O_CLOEXEC));
    const std::vector<int> descriptors = startOfEnded(launch(0, "en", "")).descriptors;
    EXPECT_THAT(descriptors, testing::IsSupersetOf({0, 1, 2, inherited.get()}));
    EXPECT_THAT(descriptors, Not(Contains(closed.get())));
}

TEST_F(ClientLauncherTest, LaunchingLeavesNoDescriptorOpen) {
    const int before = lowestFreeDescriptor();
    (void)startOfEnded(launch(0, "en", "5"));
    EXPECT_EQ(lowestFreeDescriptor(), before);
}

TEST_F(ClientLauncherTest, LogsAndReturnsTheProcessIdOfTheClient) {
    const pid_t process = launch(0, "en", "");
    EXPECT_GT(process, 0);
    EXPECT_THAT(m_log.lines(), ElementsAre(createdLine(process)));
    EXPECT_EQ(waitForEndOf(process), exitedWith(0)) << "it is a child of this process";
    EXPECT_THAT(startedFrom(programs), ElementsAre(process));
}

TEST_F(ClientLauncherTest, DoesNotWaitForTheClient) {
    closeGate(programs);
    const pid_t process = launch(0, "en", "");
    EXPECT_TRUE(waitForStart(programs, process));
    EXPECT_EQ(waitForEndOf(process, Milliseconds(0)), stillRunning());
    EXPECT_TRUE(openGate(programs));
    EXPECT_EQ(waitForEndOf(process), exitedWith(0));
}

TEST_F(ClientLauncherTest, WithIgnoredChildSignalTheSystemReapsTheClient) {
    const auto handler = std::signal(SIGCHLD, SIG_IGN);
    const pid_t process = launch(0, "en", "");
    EXPECT_GT(process, 0);
    EXPECT_TRUE(waitUntil([]() { return hasNoChildren(); }));
    (void)std::signal(SIGCHLD, handler);
    EXPECT_THAT(startedFrom(programs), ElementsAre(process));
}

/// What a second copy of this process, left behind by a failed exec, tells of itself.
struct CopyReport {
    pid_t returned;
    pid_t self;
    char log[128];
};

/// Launches what cannot be executed. The copy reports and ends with status 7; this process returns what
/// `launchClient` returned here.
pid_t launchInCopy(const LogRecorder& log, const SharedReport<CopyReport>& report) {
    report->returned = -2;
    const pid_t self = getpid();
    const pid_t process = launchClient(0, "en", "");
    if (getpid() != self) {
        report->returned = process;
        report->self = getpid();
        (void)log.text().copy(report->log, sizeof report->log - 1);
        _exit(7);
    }
    return process;
}

/// What keeps the client from being executed: a name, and how it comes about.
using Obstacle = std::pair<const char*, void (*)()>;

TEST_F(ClientLauncherTest, ClientThatCannotBeExecutedReturnsZeroInASecondCopyAndLogsThatThere) {
    const std::string path = std::getenv("PATH");
    const Obstacle obstacles[] = {
        {"it lies elsewhere on the path",
         []() {
             std::filesystem::rename(program, "/opt/zn/znorb/znorbclient");
             (void)setenv("PATH", "/opt/zn/znorb", 1);
         }},
        {"it is nowhere", []() { std::filesystem::remove("/opt/zn/znorb/znorbclient"); }},
        {"it is a directory", []() { std::filesystem::create_directory(program); }},
    };
    for (const auto& [name, prepare] : obstacles) {
        SCOPED_TRACE(name);
        prepare();
        m_log.clear();
        const SharedReport<CopyReport> report;
        const pid_t process = launchInCopy(m_log, report);
        EXPECT_GT(process, 0);
        EXPECT_EQ(waitForEndOf(process), exitedWith(7));
        EXPECT_EQ(report->returned, 0);
        EXPECT_EQ(report->self, process);
        EXPECT_STREQ(report->log, "New process created: 0\r\n");
        EXPECT_THAT(m_log.lines(), ElementsAre(createdLine(process))) << "in the first copy";
    }
    (void)setenv("PATH", path.c_str(), 1);
}

TEST_F(ClientLauncherTest, FailedForkIsReturnedAndLoggedAsMinusOneAndTheEntryStaysClaimed) {
    constexpr int cannotForbid = 9;
    const ProcessEnd end = endOfForked([this]() noexcept {
        if (!forbidForks()) {
            return cannotForbid;
        }
        std::uint16_t index = untouched;
        const pid_t process = start(&m_table, index, "en", "");
        const bool claimed = m_table.count == 1 && m_table.entries[0].inUse == 1 && index == 0;
        const bool logged = m_log.text() == "New process created: -1\r\n";
        return (process == -1 ? 0 : 1) + (claimed ? 0 : 2) + (logged ? 0 : 4);
    });
    ZNORB_SKIP_IF(end == exitedWith(cannotForbid)) << "no second user in this sandbox";
    EXPECT_EQ(end, exitedWith(0)) << "1: returned, 2: claimed, 4: logged";
}

/// A table of this many entries, all in use but the free ones, and the entry that a start claims.
struct StartOn {
    const char* name;
    std::uint32_t count;
    std::vector<unsigned> free;
    std::uint16_t entry;
    std::uint32_t newCount;
};

TEST_F(ClientLauncherTest, StartPassesLanguageTimeoutAndTheLowestFreeEntry) {
    const StartOn starts[] = {
        {"no free entry", 12, {}, 12, 13},
        {"two free entries", 4, {1, 3}, 1, 4},
        {"the last entry freed", 64, {63}, 63, 64},
    };
    for (const StartOn& row : starts) {
        SCOPED_TRACE(row.name);
        fill(m_table, row.count, std::vector<std::uint8_t>(row.count, 1));
        for (const unsigned entry : row.free) {
            m_table.entries[entry].inUse = 0;
        }
        std::uint16_t index = untouched;
        const pid_t process = start(&m_table, index, "fr", "90");
        EXPECT_EQ(index, row.entry);
        EXPECT_EQ(m_table.count, row.newCount);
        EXPECT_THAT(wordsOf(process), ElementsAre(program, "-lang", "fr", "-wbx", "-index",
                                                  std::to_string(row.entry), "-timeout", "90"));
    }
}

TEST_F(ClientLauncherTest, StartsOnAnEmptyTableClaimConsecutiveEntriesAndLaunchTheirClients) {
    for (std::uint16_t expected = 0; expected < 3; ++expected) {
        std::uint16_t index = untouched;
        m_log.clear();
        const pid_t process = start(&m_table, index, "en", "");
        EXPECT_EQ(index, expected);
        EXPECT_EQ(m_table.count, expected + 1U);
        EXPECT_EQ(m_table.entries[expected].inUse, 1);
        EXPECT_THAT(m_log.lines(), ElementsAre(createdLine(process)));
        EXPECT_THAT(wordsOf(process),
                    ElementsAre(program, "-lang", "en", "-wbx", "-index", std::to_string(expected)));
    }
}

TEST_F(ClientLauncherTest, EntryIsClaimedBeforeItsClientStarts) {
    SharedObject object;
    object.create();
    ASSERT_NE(object.table(), nullptr);
    fill(*object.table(), 2, {1, 0});
    ClientEntry& entry = object.table()->entries[1];
    std::memset(entry.identifier, 'x', sizeof entry.identifier);
    entry.port = 8080;
    entry.reserved = 7;
    std::uint16_t index = untouched;
    const std::string seen = startOfEnded(start(object.table(), index, "en", "")).table;

    ASSERT_EQ(seen.size(), sizeof(SharedVariables));
    SharedVariables table;
    std::memcpy(static_cast<void*>(&table), seen.data(), sizeof table);
    EXPECT_EQ(table.count, 2U);
    EXPECT_EQ(table.entries[1].inUse, 1);
    EXPECT_EQ(table.entries[1].port, 0);
    EXPECT_EQ(table.entries[1].reserved, 0U);
    EXPECT_EQ(std::string(table.entries[1].identifier, identifierSize), std::string(identifierSize, '\0'));
}

TEST_F(ClientLauncherTest, LaunchWithoutMemoryForTheArgumentsIsLoggedAsAFailedOne) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be made to fail here";
    {
        const FailingAllocation failure(0);
        EXPECT_EQ(launch(7, "en", ""), noProcess);
        EXPECT_TRUE(FailingAllocation::hasHappened());
    }
    EXPECT_THAT(m_log.lines(), ElementsAre(createdLine(noProcess)));
    EXPECT_TRUE(hasNoChildren());
}

TEST_F(ClientLauncherTest, StartOnAFullTableLaunchesAndChangesNothingWhateverItsCount) {
    for (const std::uint32_t count : {64U, 65U, 0x80000000U, 0xffffffffU}) {
        fill(m_table, count, std::vector<std::uint8_t>(64, count == 64 ? 1 : 255));
        const SharedVariables before = m_table;
        std::uint16_t index = untouched;
        EXPECT_EQ(start(&m_table, index, "en", "5"), noProcess);
        EXPECT_EQ(index, untouched);
        EXPECT_EQ(std::memcmp(&m_table, &before, sizeof before), 0);
    }
    EXPECT_THAT(m_log.lines(), IsEmpty());
    EXPECT_TRUE(hasNoChildren());
    EXPECT_THAT(startedFrom(programs), IsEmpty());
}

} // namespace
