#include "responder/UnifiedResponderMonitor.h"

#include "common/Logger.h"
#include "common/ThreadHandle.h"
#include "responder/CommandClient.h"
#include "tests/responder/AllocationFailure.h"
#include "tests/responder/DescriptorLimit.h"
#include "tests/responder/ExecutableLink.h"
#include "tests/responder/NamedText.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/SelectRecorder.h"
#include "tests/support/SharedTable.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Waiting.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::Eq;
using testing::IsEmpty;
using testing::Optional;
using testing::StartsWith;
using ZNORBTEST::AllocationFailure;
using ZNORBTEST::askDaemon;
using ZNORBTEST::DescriptorLimit;
using ZNORBTEST::LocalConnection;
using ZNORBTEST::LogRecorder;
using ZNORBTEST::NamedText;
using ZNORBTEST::readSharedTable;
using ZNORBTEST::SelectRecorder;
using ZNORBTEST::usualBound;
using ZNORBTEST::waitUntil;
using Monitor = ZNORBRESPONDER::UnifiedResponderMonitor;

constexpr const char* socketPath = "/var/run/znorb.socket";
constexpr const char* tablePath = "/dev/shm/znorb.shvars";

/// Acts at the moment when the Logger writes a line, on the thread that logs it.
class LineAction : public Common::OutputStream {
public:
    LineAction(std::string line, std::function<void()> action)
        : m_line(std::move(line)), m_action(std::move(action)) {}

    void write(const char* data, const unsigned int& length) override {
        if (std::string(data, length) == m_line) {
            m_action();
        }
    }

private:
    const std::string m_line;
    const std::function<void()> m_action;
};

/// Closes it.
class Descriptor {
public:
    explicit Descriptor(int descriptor) : m_descriptor(descriptor) {}
    ~Descriptor() { (void)close(m_descriptor); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] int get() const { return m_descriptor; }

private:
    const int m_descriptor;
};

/// The descriptors of this process that are sockets of the path, the listening one and its connections.
std::vector<int> socketsOf(const std::string& path) {
    std::vector<int> result;
    for (const std::string& name : ZNORBTEST::namesIn("/proc/self/fd")) {
        const int descriptor = std::stoi(name);
        sockaddr_un address = {};
        socklen_t length = sizeof address;
        if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
            address.sun_family == AF_UNIX && path == address.sun_path) {
            result.push_back(descriptor);
        }
    }
    return result;
}

/// Whether the monitor has closed the last connection; a requester sees its end before.
bool isBetweenConnections() {
    return socketsOf(socketPath).size() == 1;
}

extern "C" void noteChild(int) {}

using Handler = void (*)(int);

Handler childDisposition() {
    struct sigaction action = {};
    (void)sigaction(SIGCHLD, nullptr, &action);
    return action.sa_handler;
}

/// A monitor on a thread of its own, in a sandbox. Its client program is a script that writes its arguments
/// down, each in quotes, and ends.
class UnifiedResponderMonitor : public testing::Test {
protected:
    UnifiedResponderMonitor() {
        (void)std::signal(SIGCHLD, noteChild);
        ZNORBTEST::writeFile(folder / "bin/znorbclient",
                             "#!/bin/sh\n"
                             "for word in \"$@\"; do printf '<%s>' \"$word\"; done > \"" +
                                 (folder / "arguments.new") +
                                 "\"\n"
                                 "mv '" +
                                 (folder / "arguments.new") + "' '" + (folder / "arguments") + "'\n",
                             0755);
    }

    ~UnifiedResponderMonitor() override {
        if (isStarted) {
            (void)waitUntil([]() { return !askDaemon("QUIT").has_value(); });
            ORBCOMMON::join(thread);
        }
        (void)std::signal(SIGCHLD, SIG_DFL);
        std::error_code error;
        (void)std::filesystem::remove_all(socketPath, error);
        (void)unlink(tablePath);
    }

    void startThread() {
        ASSERT_EQ(ORBCOMMON::start(thread, &monitor), 0);
        isStarted = true;
    }

    /// Starts the monitor; returns when it has answered.
    void startServing() {
        startThread();
        ASSERT_TRUE(waitUntil([]() { return askDaemon("are you there?") == "0"; }));
    }

    bool isExitEventSet() { return exitEvent.timedWait(0); }

    /// Waits for the end of a run that ends by itself.
    void awaitEnd() {
        ASSERT_TRUE(exitEvent.timedWait(std::time(nullptr) + usualBound.count() / 1000));
        ORBCOMMON::join(thread);
        isStarted = false;
    }

    void quit() {
        EXPECT_THAT(askDaemon("QUIT"), Optional(Eq("0")));
        awaitEnd();
    }

    /// Acts on the monitor's thread when it logs the line. REQUIRES: not started.
    static void on(const std::string& line, const std::function<void()>& action) {
        ORBCOMMON::Logger::addOutputStream(
            Common::shared_ptr<Common::OutputStream>(new LineAction(line, action)));
    }

    /// The lines that are logged after the start's.
    [[nodiscard]] std::vector<std::string> linesOfService() const {
        std::vector<std::string> lines = log.lines();
        const auto begin = std::find(lines.begin(), lines.end(), "Unified responder waiting for connections");
        lines.erase(lines.begin(), begin == lines.end() ? begin : begin + 1);
        return lines;
    }

    [[nodiscard]] std::string argumentsOfClient() const {
        const std::string path = folder / "arguments";
        EXPECT_TRUE(waitUntil([&path]() { return ZNORBTEST::exists(path); }));
        std::string arguments = ZNORBTEST::readFile(path);
        (void)unlink(path.c_str());
        return arguments;
    }

    /// Changes the daemon's table as a client would. REQUIRES: the monitor serves.
    static void changeTable(const std::function<void(znorb_shared_table&)>& change) {
        const int descriptor = open(tablePath, O_RDWR | O_CLOEXEC);
        ASSERT_NE(descriptor, -1);
        void* memory = mmap(nullptr, ZNORB_TABLE_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
        (void)close(descriptor);
        ASSERT_NE(memory, MAP_FAILED);
        change(*static_cast<znorb_shared_table*>(memory));
        (void)munmap(memory, ZNORB_TABLE_SIZE);
    }

    /// Waits until the monitor waits for the request of a connection; earlier requests have been served.
    static void awaitRequestWait(std::size_t number) {
        ASSERT_TRUE(waitUntil([number]() {
            std::size_t count = 0;
            for (const SelectRecorder::Call& call : SelectRecorder::calls()) {
                count += call.seconds == 60 ? 1 : 0;
            }
            return count >= number;
        }));
    }

    const ZNORBTEST::TemporaryFolder folder;
    const ZNORBTEST::ExecutableLink executable{folder / "bin/responder"};
    const LogRecorder log;
    const SelectRecorder waits;
    ORBCOMMON::ProcessEvent exitEvent{false, false};
    Monitor monitor{&exitEvent};
    ORBCOMMON::ThreadHandle thread;
    bool isStarted = false;
};

// ---- one whole run --------------------------------------------------------------------------------------

TEST_F(UnifiedResponderMonitor, WholeDialogueIsLoggedInOrder) {
    startServing();
    EXPECT_THAT(askDaemon("GET|en"), Optional(Eq("0")));
    (void)argumentsOfClient();
    EXPECT_THAT(askDaemon("PRINT"), Optional(Eq("0")));
    quit();
    EXPECT_THAT(log.lines(), ElementsAre("Unified responder starting",
                                         "Unified responder waiting for connections", "Received GET command",
                                         StartsWith("New process created: "), "Entry:  0, Valid?: Y, ID: ",
                                         "Received QUIT command", "Unified responder stopped"));
}

TEST_F(UnifiedResponderMonitor, QuitIsAnsweredAndThenConnectionsAreRefused) {
    startServing();
    EXPECT_FALSE(isExitEventSet());
    quit();
    EXPECT_TRUE(isExitEventSet());
    EXPECT_TRUE(ZNORBTEST::exists(socketPath)) << "the next start removes the file";
    EXPECT_FALSE(LocalConnection::toPath(socketPath).isConnected());
}

TEST_F(UnifiedResponderMonitor, QuitIsAnsweredBeforeTheEnd) {
    std::atomic<bool> isAnswered = false;
    std::atomic<bool> wasAnswered = false;
    on("Unified responder stopped", [&isAnswered, &wasAnswered]() {
        wasAnswered = waitUntil([&isAnswered]() { return isAnswered.load(); });
    });
    startServing();
    EXPECT_TRUE(ZNORBRESPONDER::sendPrint());
    EXPECT_TRUE(ZNORBRESPONDER::sendQuit());
    isAnswered = true;
    awaitEnd();
    EXPECT_TRUE(wasAnswered);
}

TEST_F(UnifiedResponderMonitor, ConnectionsThatStillWaitAtTheEndAreClosedWithoutAReply) {
    startServing();
    const LocalConnection quitter = LocalConnection::toPath(socketPath);
    LocalConnection late = LocalConnection::toPath(socketPath);
    EXPECT_TRUE(late.send("PRINT"));
    EXPECT_TRUE(quitter.send("QUIT"));
    awaitEnd();
    EXPECT_EQ(late.receiveUntilClosed(), "");
    EXPECT_TRUE(late.wasClosed());
}

TEST_F(UnifiedResponderMonitor, TableIsThereWhileItServesAndGoneAfterwards) {
    startServing();
    EXPECT_EQ(ZNORBTEST::modeOf(tablePath), 0666U);
    const auto table = readSharedTable();
    ASSERT_TRUE(table.has_value());
    EXPECT_EQ(table->count, 0U);
    quit();
    EXPECT_FALSE(ZNORBTEST::exists(tablePath));
}

TEST_F(UnifiedResponderMonitor, EventIsSetBeforeTheLastMessageAndTheTableGoesAfterIt) {
    std::atomic<bool> wasSet = false;
    std::atomic<bool> wasThere = false;
    on("Unified responder stopped", [this, &wasSet, &wasThere]() {
        wasSet = isExitEventSet();
        wasThere = ZNORBTEST::exists(tablePath);
    });
    startServing();
    quit();
    EXPECT_TRUE(wasSet);
    EXPECT_TRUE(wasThere);
    EXPECT_FALSE(ZNORBTEST::exists(tablePath));
}

TEST_F(UnifiedResponderMonitor, CanRunAgainAfterItsEnd) {
    startServing();
    EXPECT_THAT(askDaemon("GET|en"), Optional(Eq("0")));
    (void)argumentsOfClient();
    quit();
    (void)exitEvent.reset();
    startServing();
    EXPECT_THAT(askDaemon("GET|en"), Optional(Eq("0"))) << "the table begins empty";
    (void)argumentsOfClient();
    quit();
}

TEST_F(UnifiedResponderMonitor, StaleSocketFileIsReplaced) {
    ZNORBTEST::writeFile(socketPath, "left behind");
    startServing();
    quit();
    startServing();
    quit();
}

TEST_F(UnifiedResponderMonitor, SocketIsOpenToEverybodyWhateverTheUmask) {
    const mode_t before = umask(077);
    startServing();
    (void)umask(before);
    EXPECT_EQ(ZNORBTEST::modeOf(socketPath), 0666U);
}

TEST_F(UnifiedResponderMonitor, NoDescriptorOfItsOwnIsPassedOnToExecutedPrograms) {
    startServing();
    const LocalConnection client = LocalConnection::toPath(socketPath);
    awaitRequestWait(2);
    const std::vector<int> own = socketsOf(socketPath);
    EXPECT_EQ(own.size(), 2U) << "the listening socket and the connection";
    for (const int descriptor : own) {
        EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
    }
}

TEST_F(UnifiedResponderMonitor, NoDescriptorIsLeftOpen) {
    const auto before = ZNORBTEST::namesIn("/proc/self/fd");
    startServing();
    EXPECT_THAT(askDaemon("GET|en"), Optional(Eq("0")));
    (void)argumentsOfClient();
    EXPECT_THAT(askDaemon("PRINT"), Optional(Eq("0")));
    (void)LocalConnection::toPath(socketPath);
    quit();
    EXPECT_EQ(ZNORBTEST::namesIn("/proc/self/fd"), before);
}

TEST_F(UnifiedResponderMonitor, EndsOfClientsAreIgnoredWhileItServesAndOnlyThen) {
    startServing();
    EXPECT_EQ(childDisposition(), SIG_IGN);
    quit();
    EXPECT_EQ(childDisposition(), noteChild);
}

TEST_F(UnifiedResponderMonitor, PublishesToTheWebConsoleBetweenBindingAndListening) {
    std::filesystem::create_directories("/opt/zn/znwbx/webapp");
    std::filesystem::create_directories("/opt/zn/znwbx/data/htdocs");
    ZNORBTEST::writeFile(folder / "WBX/znorb.xml", "descriptor");
    std::atomic<bool> wasPublished = false;
    std::atomic<mode_t> mode = 0;
    std::atomic<bool> wasLetIn = true;
    on("Unified responder waiting for connections", [&wasPublished, &mode, &wasLetIn]() {
        wasPublished = ZNORBTEST::exists("/opt/zn/znwbx/webapp/znorb.xml");
        mode = ZNORBTEST::modeOf(socketPath);
        wasLetIn = LocalConnection::toPath(socketPath).isConnected();
    });
    startServing();
    EXPECT_TRUE(wasPublished);
    EXPECT_EQ(mode, 0666U);
    EXPECT_FALSE(wasLetIn);
    EXPECT_EQ(ZNORBTEST::readFile("/opt/zn/znwbx/webapp/znorb.xml"), "descriptor");
    std::filesystem::remove_all("/opt/zn/znwbx");
}

// ---- set-up that fails ----------------------------------------------------------------------------------

TEST_F(UnifiedResponderMonitor, TableThatExistsAlreadyEndsTheRunAndIsRemoved) {
    ZNORBTEST::writeFile(tablePath, "left behind");
    startThread();
    awaitEnd();
    EXPECT_THAT(log.lines(),
                ElementsAre("Unified responder starting", "Unable to get to shared global variables",
                            "Unified responder stopped"));
    EXPECT_FALSE(ZNORBTEST::exists(tablePath));
    EXPECT_FALSE(ZNORBTEST::exists(socketPath)) << "the socket is not touched";
    EXPECT_EQ(childDisposition(), noteChild);
}

TEST_F(UnifiedResponderMonitor, StartAfterOneThatMetAStaleTableSucceeds) {
    ZNORBTEST::writeFile(tablePath, "left behind");
    startThread();
    awaitEnd();
    (void)exitEvent.reset();
    startServing();
    quit();
}

TEST_F(UnifiedResponderMonitor, SocketThatCannotBeMadeEndsTheRun) {
    // The table needs a descriptor, too: they run out between the two.
    std::unique_ptr<DescriptorLimit> limit;
    on("Unified responder starting", [&limit]() { limit = std::make_unique<DescriptorLimit>(0); });
    on("Unable to create socket", [&limit]() { limit.reset(); });
    startThread();
    awaitEnd();
    EXPECT_THAT(log.lines(), ElementsAre("Unified responder starting", "Unable to create socket",
                                         "Unified responder stopped"));
    EXPECT_EQ(childDisposition(), noteChild);
    EXPECT_FALSE(ZNORBTEST::exists(tablePath));
    EXPECT_FALSE(ZNORBTEST::exists(socketPath));
}

TEST_F(UnifiedResponderMonitor, SocketThatCannotBeBoundEndsTheRun) {
    ASSERT_EQ(mkdir(socketPath, 0700), 0);
    const auto descriptors = ZNORBTEST::namesIn("/proc/self/fd");
    startThread();
    awaitEnd();
    EXPECT_THAT(log.lines(), ElementsAre("Unified responder starting", "Unable to bind socket",
                                         "Unified responder stopped"));
    EXPECT_EQ(childDisposition(), noteChild);
    EXPECT_FALSE(ZNORBTEST::exists(tablePath));
    EXPECT_EQ(ZNORBTEST::modeOf(socketPath), 0700U) << "what is in the socket's place is left alone";
    EXPECT_EQ(ZNORBTEST::namesIn("/proc/self/fd"), descriptors);
}

TEST_F(UnifiedResponderMonitor, SocketThatCannotListenEndsTheRun) {
    const auto descriptors = ZNORBTEST::namesIn("/proc/self/fd");
    std::atomic<bool> wasIgnored = false;
    on("Unified responder waiting for connections", [&wasIgnored]() {
        wasIgnored = childDisposition() == SIG_IGN;
        // Something else takes the socket's place at the last moment.
        const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
        for (const int descriptor : socketsOf(socketPath)) {
            (void)dup3(null, descriptor, O_CLOEXEC);
        }
        (void)close(null);
    });
    startThread();
    awaitEnd();
    EXPECT_THAT(log.lines(),
                ElementsAre("Unified responder starting", "Unified responder waiting for connections",
                            "Unable to put socket in listen mode", "Unified responder stopped"));
    EXPECT_TRUE(wasIgnored);
    EXPECT_EQ(childDisposition(), noteChild);
    EXPECT_FALSE(ZNORBTEST::exists(tablePath));
    EXPECT_EQ(ZNORBTEST::namesIn("/proc/self/fd"), descriptors);
}

// ---- requests -------------------------------------------------------------------------------------------

TEST_F(UnifiedResponderMonitor, FirstGetOnAnEmptyTableIsEntryZeroAndTheNextEntryOne) {
    startServing();
    EXPECT_THAT(askDaemon("GET|en"), Optional(Eq("0")));
    EXPECT_EQ(argumentsOfClient(), "<-lang><en><-wbx><-index><0>");
    EXPECT_THAT(askDaemon("GET|en"), Optional(Eq("1")));
    EXPECT_EQ(argumentsOfClient(), "<-lang><en><-wbx><-index><1>");
    const auto table = readSharedTable();
    ASSERT_TRUE(table.has_value());
    EXPECT_EQ(table->count, 2U);
    EXPECT_EQ(table->entries[0].in_use, 1U);
    EXPECT_EQ(table->entries[1].in_use, 1U);
}

TEST_F(UnifiedResponderMonitor, ThirdTokenOfGetIsTheTimeOut) {
    startServing();
    EXPECT_THAT(askDaemon("GET|de|30"), Optional(Eq("0")));
    EXPECT_EQ(argumentsOfClient(), "<-lang><de><-wbx><-index><0><-timeout><30>");
}

TEST_F(UnifiedResponderMonitor, FurtherTokensOfGetAreIgnored) {
    startServing();
    EXPECT_THAT(askDaemon("GET|de|30|40|x"), Optional(Eq("0")));
    EXPECT_EQ(argumentsOfClient(), "<-lang><de><-wbx><-index><0><-timeout><30>");
}

TEST_F(UnifiedResponderMonitor, EmptyTimeOutIsNone) {
    startServing();
    EXPECT_THAT(askDaemon("GET|de|"), Optional(Eq("0")));
    EXPECT_EQ(argumentsOfClient(), "<-lang><de><-wbx><-index><0>");
}

TEST_F(UnifiedResponderMonitor, EmptyLanguageIsPassedOn) {
    startServing();
    EXPECT_THAT(askDaemon("GET|"), Optional(Eq("0")));
    EXPECT_EQ(argumentsOfClient(), "<-lang><><-wbx><-index><0>");
    EXPECT_THAT(askDaemon("GET||7"), Optional(Eq("1")));
    EXPECT_EQ(argumentsOfClient(), "<-lang><><-wbx><-index><1><-timeout><7>");
}

TEST_F(UnifiedResponderMonitor, GetIsCutAt1024Bytes) {
    startServing();
    EXPECT_THAT(askDaemon("GET|" + std::string(3000, 'l')), Optional(Eq("0")));
    EXPECT_EQ(argumentsOfClient(), "<-lang><" + std::string(1020, 'l') + "><-wbx><-index><0>");
}

TEST_F(UnifiedResponderMonitor, NulEndsTheLanguage) {
    startServing();
    EXPECT_THAT(askDaemon(std::string("GET|e\0n", 7)), Optional(Eq("0")));
    EXPECT_EQ(argumentsOfClient(), "<-lang><e><-wbx><-index><0>");
}

TEST_F(UnifiedResponderMonitor, ReplyToGetIsTheEntryInDecimal) {
    startServing();
    changeTable([](znorb_shared_table& table) {
        table.count = 63;
        for (unsigned index = 0; index < 63; ++index) {
            table.entries[index].in_use = 1;
        }
        table.entries[10].in_use = 0;
    });
    EXPECT_THAT(askDaemon("GET|en"), Optional(Eq("10")));
    EXPECT_EQ(argumentsOfClient(), "<-lang><en><-wbx><-index><10>");
    EXPECT_THAT(askDaemon("GET|en"), Optional(Eq("63")));
    EXPECT_EQ(argumentsOfClient(), "<-lang><en><-wbx><-index><63>");
}

TEST_F(UnifiedResponderMonitor, GetOnAFullTableIsAnsweredWithZeroAndLaunchesNothing) {
    startServing();
    changeTable([](znorb_shared_table& table) {
        table.count = 0xffffffff;
        for (znorb_client_entry& entry : table.entries) {
            entry.in_use = 1;
        }
    });
    EXPECT_THAT(askDaemon("GET|en"), Optional(Eq("0")));
    changeTable([](znorb_shared_table& table) { table.count = 0; });
    quit();
    EXPECT_THAT(linesOfService(),
                ElementsAre("Received GET command", "Received QUIT command", "Unified responder stopped"));
}

TEST_F(UnifiedResponderMonitor, GetWithoutALanguageIsAnsweredWithZeroAndLaunchesNothing) {
    startServing();
    EXPECT_THAT(askDaemon("GET"), Optional(Eq("0")));
    const auto table = readSharedTable();
    ASSERT_TRUE(table.has_value());
    EXPECT_EQ(table->count, 0U);
    EXPECT_THAT(log.text(), Not(testing::HasSubstr("New process")));
}

TEST_F(UnifiedResponderMonitor, PrintListsTheTableInTheLog) {
    startServing();
    changeTable([](znorb_shared_table& table) {
        table.count = 3;
        table.entries[0].in_use = 1;
        table.entries[2].in_use = 255;
        (void)std::string("first").copy(table.entries[0].identifier, 6);
        (void)std::string("freed").copy(table.entries[1].identifier, 6);
    });
    EXPECT_THAT(askDaemon("PRINT"), Optional(Eq("0")));
    EXPECT_THAT(linesOfService(),
                ElementsAre("Entry:  0, Valid?: Y, ID: first", "Entry:  1, Valid?: N, ID: freed",
                            "Entry:  2, Valid?: Y, ID: "));
}

TEST_F(UnifiedResponderMonitor, PrintOfAnEmptyTableLogsNothing) {
    startServing();
    EXPECT_THAT(askDaemon("PRINT"), Optional(Eq("0")));
    EXPECT_THAT(linesOfService(), IsEmpty());
}

TEST_F(UnifiedResponderMonitor, FurtherTokensOfPrintAreIgnored) {
    startServing();
    changeTable([](znorb_shared_table& table) { table.count = 1; });
    EXPECT_THAT(askDaemon("PRINT|x"), Optional(Eq("0")));
    EXPECT_THAT(linesOfService(), ElementsAre("Entry:  0, Valid?: N, ID: "));
}

TEST_F(UnifiedResponderMonitor, FurtherTokensOfQuitAreIgnored) {
    startServing();
    EXPECT_THAT(askDaemon("QUIT|" + std::string(5000, 'x')), Optional(Eq("0")));
    awaitEnd();
}

/// Requests that are no command: answered with "0", nothing happens, nothing is logged.
class UnknownRequest : public UnifiedResponderMonitor, public testing::WithParamInterface<NamedText> {};

TEST_P(UnknownRequest, IsAnsweredWithZeroAndDoesNothing) {
    startServing();
    changeTable([](znorb_shared_table& table) { table.count = 1; });
    EXPECT_THAT(askDaemon(GetParam().text), Optional(Eq("0")));
    EXPECT_THAT(linesOfService(), IsEmpty());
    EXPECT_FALSE(isExitEventSet());
    EXPECT_FALSE(ZNORBTEST::exists(folder / "arguments"));
    EXPECT_THAT(askDaemon("PRINT"), Optional(Eq("0"))) << "goes on serving";
    EXPECT_THAT(linesOfService(), ElementsAre("Entry:  0, Valid?: N, ID: "));
}

INSTANTIATE_TEST_SUITE_P(
    UnifiedResponderMonitor, UnknownRequest,
    testing::Values(NamedText{"QuitAndLineFeed", "QUIT\n"}, NamedText{"QuitAndLineEnd", "QUIT\r\n"},
                    NamedText{"SpaceAndQuit", " QUIT"}, NamedText{"QuitAndSpace", "QUIT "},
                    NamedText{"LowerCaseQuit", "quit"}, NamedText{"MixedCaseQuit", "Quit"},
                    NamedText{"ShortQuit", "QUI"}, NamedText{"LongQuit", "QUITX"},
                    NamedText{"QuitAndNul", std::string("QUIT\0", 5)},
                    NamedText{"QuitAndMoreThanOneRead", "QUIT" + std::string(1100, ' ')},
                    NamedText{"LowerCasePrint", "print"}, NamedText{"PrintAndLineFeed", "PRINT\n"},
                    NamedText{"LowerCaseGet", "get|en"}, NamedText{"GetAndSpace", "GET |en"},
                    NamedText{"SpaceAndGet", " GET|en"}, NamedText{"EmptyTokenAndGet", "|GET|en"},
                    NamedText{"GetAndNul", std::string("GET\0|en", 7)}, NamedText{"Bar", "|"},
                    NamedText{"BarsOnly", std::string(1024, '|')}, NamedText{"Nul", std::string(1, '\0')},
                    NamedText{"BytesAboveAscii", std::string(100, '\xff')},
                    NamedText{"FormatCharacters", "%s%n"},
                    NamedText{"MoreThanOneRead", std::string(4000, 'Q')}),
    ZNORBTEST::nameOf);

TEST_F(UnifiedResponderMonitor, RequestInTwoPiecesIsItsFirstPiece) {
    startServing();
    LocalConnection client = LocalConnection::toPath(socketPath);
    EXPECT_TRUE(client.send("QU"));
    EXPECT_EQ(client.receiveUntilClosed(), "0");
    EXPECT_FALSE(client.send("IT")) << "the server has closed the connection";
    EXPECT_FALSE(isExitEventSet());
}

TEST_F(UnifiedResponderMonitor, ConnectionIsClosedAfterItsReply) {
    startServing();
    LocalConnection client = LocalConnection::toPath(socketPath);
    EXPECT_TRUE(client.send("PRINT"));
    EXPECT_EQ(client.receiveUntilClosed(), "0");
    EXPECT_TRUE(client.wasClosed());
}

TEST_F(UnifiedResponderMonitor, RequesterThatSendsNoMoreGetsItsReply) {
    startServing();
    LocalConnection client = LocalConnection::toPath(socketPath);
    EXPECT_TRUE(client.send("PRINT"));
    client.finishSending();
    EXPECT_EQ(client.receiveUntilClosed(), "0");
}

TEST_F(UnifiedResponderMonitor, RequesterThatSendsNothingAndNoMoreGetsNoReply) {
    startServing();
    LocalConnection client = LocalConnection::toPath(socketPath);
    client.finishSending();
    EXPECT_EQ(client.receiveUntilClosed(), "");
    EXPECT_TRUE(client.wasClosed());
    EXPECT_THAT(askDaemon("PRINT"), Optional(Eq("0")));
}

TEST_F(UnifiedResponderMonitor, RequesterThatHasGoneBeforeItsReplyDoesNoHarm) {
    startServing();
    for (int i = 0; i < 20; ++i) {
        const LocalConnection client = LocalConnection::toPath(socketPath);
        EXPECT_TRUE(client.send("PRINT"));
    }
    EXPECT_THAT(askDaemon("PRINT"), Optional(Eq("0"))) << "no SIGPIPE has ended the process";
}

TEST_F(UnifiedResponderMonitor, RequesterThatGoesWithoutARequestDoesNoHarm) {
    startServing();
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(LocalConnection::toPath(socketPath).isConnected());
    }
    EXPECT_THAT(askDaemon("PRINT"), Optional(Eq("0")));
    EXPECT_THAT(linesOfService(), IsEmpty());
}

TEST_F(UnifiedResponderMonitor, RequestForWhichThereIsNoMemoryIsClosedWithoutAReply) {
    if (!AllocationFailure::isPossible()) {
        GTEST_SKIP() << "allocations cannot be made to fail here";
    }
    startServing();
    const std::string request = "PRINT|" + std::string(1000, 'x');
    LocalConnection client = LocalConnection::toPath(socketPath);
    {
        const AllocationFailure failure(request.size());
        EXPECT_TRUE(client.send(request));
        EXPECT_EQ(client.receiveUntilClosed(), "");
        EXPECT_TRUE(client.wasClosed());
        EXPECT_TRUE(AllocationFailure::hasHappened());
    }
    EXPECT_THAT(askDaemon(request), Optional(Eq("0")));
}

TEST_F(UnifiedResponderMonitor, RequesterThatSendsNothingIsDroppedAfterSixtySeconds) {
    startServing();
    SelectRecorder::divideWaitsBy(600);
    LocalConnection client = LocalConnection::toPath(socketPath);
    EXPECT_EQ(client.receiveUntilClosed(), "");
    EXPECT_TRUE(client.wasClosed());
    awaitRequestWait(2);
    EXPECT_THAT(linesOfService(), IsEmpty());
    EXPECT_THAT(askDaemon("PRINT"), Optional(Eq("0")));
}

TEST_F(UnifiedResponderMonitor, SlowRequesterHoldsUpEveryoneBehindIt) {
    startServing();
    LocalConnection slow = LocalConnection::toPath(socketPath);
    awaitRequestWait(2);
    LocalConnection next = LocalConnection::toPath(socketPath);
    EXPECT_TRUE(next.send("PRINT"));
    EXPECT_EQ(next.receiveUntilClosed(std::chrono::milliseconds(100)), "");
    EXPECT_FALSE(next.wasClosed());
    EXPECT_TRUE(slow.send("PRINT"));
    EXPECT_EQ(slow.receiveUntilClosed(), "0");
    EXPECT_EQ(next.receiveUntilClosed(), "0");
}

TEST_F(UnifiedResponderMonitor, QuitIsAnsweredOnlyWhenEveryClientHasBeenAsked) {
    const Descriptor clientPort(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(bind(clientPort.get(), reinterpret_cast<const sockaddr*>(&address), length), 0);
    ASSERT_EQ(listen(clientPort.get(), 1), 0);
    ASSERT_EQ(getsockname(clientPort.get(), reinterpret_cast<sockaddr*>(&address), &length), 0);
    startServing();
    changeTable([&address](znorb_shared_table& table) {
        table.count = 1;
        table.entries[0].in_use = 1;
        table.entries[0].port = ntohs(address.sin_port);
    });
    LocalConnection quitter = LocalConnection::toPath(socketPath);
    EXPECT_TRUE(quitter.send("QUIT"));
    pollfd wanted = {clientPort.get(), POLLIN, 0};
    ASSERT_EQ(poll(&wanted, 1, static_cast<int>(usualBound.count())), 1);
    const Descriptor connection(accept4(clientPort.get(), nullptr, nullptr, SOCK_CLOEXEC));
    EXPECT_EQ(quitter.receiveUntilClosed(std::chrono::milliseconds(100)), "");
    EXPECT_FALSE(quitter.wasClosed());
    EXPECT_FALSE(isExitEventSet());
    EXPECT_EQ(sendto(connection.get(), "HTTP/1.0 200 OK\r\n\r\n", 19, MSG_NOSIGNAL, nullptr, 0), 19);
    EXPECT_EQ(quitter.receiveUntilClosed(), "0");
    awaitEnd();
}

// ---- the accept loop ------------------------------------------------------------------------------------

TEST_F(UnifiedResponderMonitor, WaitsForConnectionsFiveSecondsAtATime) {
    SelectRecorder::divideWaitsBy(500);
    startServing();
    ASSERT_TRUE(waitUntil(isBetweenConnections));
    const std::vector<int> own = socketsOf(socketPath);
    ASSERT_TRUE(SelectRecorder::awaitCalls(SelectRecorder::calls().size() + 5));
    const auto calls = SelectRecorder::calls();
    for (std::size_t i = calls.size() - 5; i < calls.size(); ++i) {
        EXPECT_EQ(calls[i].seconds, 5);
        EXPECT_EQ(calls[i].microseconds, 0);
        EXPECT_EQ(calls[i].reading, own);
        EXPECT_EQ(calls[i].highestPlusOne, own[0] + 1);
        EXPECT_TRUE(calls[i].onlyReading);
    }
    EXPECT_THAT(linesOfService(), IsEmpty()) << "a wait that is over is not worth a message";
}

/// The wait that goes wrong is the first one, for a connection.
void expectFirstWaitsForConnections(std::size_t count) {
    const auto calls = SelectRecorder::calls();
    ASSERT_GT(calls.size(), count);
    for (std::size_t i = 0; i <= count; ++i) {
        EXPECT_EQ(calls[i].seconds, 5);
    }
}

TEST_F(UnifiedResponderMonitor, WaitForConnectionsThatFailsIsBegunAgain) {
    SelectRecorder::fail(EINTR, 3);
    startServing();
    expectFirstWaitsForConnections(3);
    EXPECT_THAT(linesOfService(), IsEmpty());
}

TEST_F(UnifiedResponderMonitor, WaitForConnectionsThatFlagsAnotherDescriptorIsBegunAgain) {
    SelectRecorder::returnOneWithoutDescriptor();
    startServing();
    expectFirstWaitsForConnections(1);
    EXPECT_THAT(linesOfService(), IsEmpty());
}

std::chrono::nanoseconds cpuTimeOfProcess() {
    timespec used = {};
    (void)clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

TEST_F(UnifiedResponderMonitor, ConnectionThatCannotBeAcceptedIsTriedAgainWithoutSpinning) {
    startServing();
    ASSERT_TRUE(waitUntil(isBetweenConnections));
    const Descriptor late(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (void)std::string(socketPath).copy(address.sun_path, sizeof address.sun_path - 1);
    auto limit = std::make_unique<DescriptorLimit>(ZNORBTEST::lowestFreeDescriptor());
    ASSERT_EQ(connect(late.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(sendto(late.get(), "PRINT", 5, MSG_NOSIGNAL, nullptr, 0), 5);
    const std::size_t calls = SelectRecorder::calls().size();
    const auto begin = std::chrono::steady_clock::now();
    const auto usedBefore = cpuTimeOfProcess();
    ASSERT_TRUE(SelectRecorder::awaitCalls(calls + 10));
    const auto used = cpuTimeOfProcess() - usedBefore;
    const auto elapsed = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(elapsed, std::chrono::milliseconds(500)) << "ten tries";
    EXPECT_LE(used, elapsed / 10);
    limit.reset();
    pollfd wanted = {late.get(), POLLIN, 0};
    EXPECT_EQ(poll(&wanted, 1, static_cast<int>(usualBound.count())), 1) << "served as soon as it can be";
    char reply = 0;
    EXPECT_EQ(recvfrom(late.get(), &reply, 1, 0, nullptr, nullptr), 1);
    EXPECT_EQ(reply, '0');
}

TEST_F(UnifiedResponderMonitor, ManyRequestersAtOnceAreServedOneAfterTheOther) {
    startServing();
    std::vector<LocalConnection> clients;
    for (int i = 0; i < 5; ++i) {
        clients.push_back(LocalConnection::toPath(socketPath));
        ASSERT_TRUE(clients.back().isConnected());
    }
    for (auto client = clients.rbegin(); client != clients.rend(); ++client) {
        EXPECT_TRUE(client->send("PRINT"));
    }
    for (LocalConnection& client : clients) {
        EXPECT_EQ(client.receiveUntilClosed(), "0");
    }
}

} // namespace
