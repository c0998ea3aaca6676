/// docs/PROTOCOL.md and znorb.7: their tables against the header, their bytes against a living daemon.

#include "responder/RuntimeNames.h"
#include "tests/docs/ManualPage.h"
#include "tests/docs/Session.h"
#include "tests/docs/SourceTree.h"
#include "tests/support/DaemonDriver.h"
#include "tests/support/Descriptor.h"
#include "tests/support/Files.h"
#include "tests/support/ListeningPeer.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Matchers.h"
#include "tests/support/Results.h"
#include "tests/support/SharedTable.h"
#include "tests/support/ShellScript.h"
#include "tests/support/Skipping.h"
#include "znorb/shared_table.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <bit>
#include <cstring>

namespace {

using namespace ZNORBTEST;

const std::string document = "docs/PROTOCOL.md";
const std::string pageFile = "packaging/man/znorb.7";

/// A row of a table of fields: where, how long, its name.
struct TableField {
    std::string offset;
    std::string size;
    std::string name;

    bool operator==(const TableField&) const = default;
};

void PrintTo(const TableField& field, std::ostream* stream) {
    *stream << field.offset << ' ' << field.size << ' ' << field.name;
}

TableField field(std::size_t offset, std::size_t size, const std::string& name) {
    return {std::to_string(offset), std::to_string(size), name};
}

/// As the header has them: of the table first, then of an entry.
std::vector<TableField> fieldsOfTheHeader() {
    const znorb_client_entry entry = {};
    return {
        field(offsetof(znorb_shared_table, count), sizeof(znorb_shared_table::count), "count"),
        {std::to_string(offsetof(znorb_shared_table, entries)),
         std::to_string(ZNORB_TABLE_CAPACITY) + " x " + std::to_string(sizeof entry), "entry"},
        field(offsetof(znorb_client_entry, in_use), sizeof entry.in_use, "in use"),
        field(offsetof(znorb_client_entry, identifier), sizeof entry.identifier, "identifier"),
        field(offsetof(znorb_client_entry, unused_118), sizeof entry.unused_118, "unused"),
        field(offsetof(znorb_client_entry, reserved), sizeof entry.reserved, "reserved"),
        field(offsetof(znorb_client_entry, port), sizeof entry.port, "port"),
        field(offsetof(znorb_client_entry, unused_126), sizeof entry.unused_126, "unused"),
    };
}

std::string replaced(std::string text, const std::string& find, const std::string& replacement) {
    const auto at = text.find(find);
    return at == std::string::npos ? text : text.replace(at, find.size(), replacement);
}

/// The beginning of a description, up to the first that is neither letter nor a single space.
std::string nameAtTheStartOf(const std::string& text) {
    for (const char* name : {"in use", "identifier", "unused", "reserved", "count", "port", "entr"}) {
        if (text.starts_with(name)) {
            return std::string(name) == "entr" ? "entry" : name;
        }
    }
    return text;
}

TEST(Znorb7Page, HasTheFieldsOfTheHeader) {
    std::vector<TableField> fields;
    for (const std::string& item : ManualPage("znorb.7").items("THE TABLE")) {
        const auto first = item.find(" Ta ");
        const auto second = item.find(" Ta ", first + 4);
        ASSERT_NE(second, std::string::npos) << item;
        if (!item.starts_with("Sy ")) {
            fields.push_back({item.substr(0, first), item.substr(first + 4, second - first - 4),
                              nameAtTheStartOf(item.substr(second + 4))});
        }
    }
    EXPECT_EQ(fields, fieldsOfTheHeader());
}

TEST(Protocol, HasTheFieldsOfTheHeader) {
    std::vector<TableField> fields;
    for (const std::string& line : linesOf(readSource(document))) {
        const std::vector<std::string> cells = cellsOf(line);
        if (cells.size() == 4 && cells[0].find_first_not_of("0123456789") == std::string::npos) {
            fields.push_back({cells[0], replaced(cells[1], "×", "x"),
                              cells[2].empty() ? nameAtTheStartOf(cells[3]) : nameAtTheStartOf(cells[2])});
        }
    }
    EXPECT_EQ(fields, fieldsOfTheHeader());
}

/// What has to stand in both texts, from the constants.
std::vector<std::string> numbers() {
    const std::string tableSize = std::to_string(ZNORB_TABLE_SIZE);
    return {"at most " + std::to_string(ZNORBRESPONDER::commandBufferSize) + " bytes",
            std::to_string(ZNORBRESPONDER::commandWaitSeconds) + " seconds",
            std::to_string(ZNORBRESPONDER::httpWaitSeconds) + " seconds",
            tableSize + " bytes",
            ZNORBRESPONDER::commandSocketPath,
            ZNORBRESPONDER::sharedVariablesName};
}

TEST(Protocol, HasTheDaemonsNamesAndNumbersAsThePageDoes) {
    for (const std::string& file : {document, pageFile}) {
        const std::string text = readSource(file);
        for (const std::string& number : numbers()) {
            EXPECT_THAT(text, HasSubstr(number)) << file;
        }
    }
}

/// What a client gets from a daemon that quits.
std::string observedExitRequest() {
    DaemonDriver driver;
    const ListeningPeer client({58, {"HTTP/1.0 200 OK\r\n\r\n"}, false});
    EXPECT_TRUE(driver.startServing());
    EXPECT_TRUE(enterClient(0, client.port()));
    EXPECT_EQ(askDaemon("QUIT"), "0");
    const std::vector<std::string> received = client.received();
    return received.empty() ? "" : received[0];
}

TEST(Znorb7Page, HasTheExitRequestAsTheDaemonSendsIt) {
    const std::string request = observedExitRequest();
    const std::vector<std::string> displays = ManualPage("znorb.7").displays("THE EXIT REQUEST");
    ASSERT_EQ(displays.size(), 2U);
    EXPECT_EQ(bytesFromHex(displays[0]), request);
    std::string asText = replaced(replaced(request, "\r\n", "\n"), "\r\n", "\n");
    EXPECT_EQ(displays[1], replaced(asText, "\r\n", "\n"));
    EXPECT_EQ(request.size(), 58U);
}

TEST(Protocol, HasTheExitRequestAsTheDaemonSendsIt) {
    const std::string text = readSource(document);
    std::string hex;
    for (const std::string& row :
         matches(text.substr(text.find("## The exit request")), R"(\n    ((?:[0-9a-f]{2} )+) )")) {
        hex += row;
    }
    EXPECT_EQ(bytesFromHex(hex), observedExitRequest());
}

TEST(Znorb7Page, NamesTheSignalsThatAClientIgnores) {
    DaemonDriver driver;
    driver.installAsClient("znorb-waiter");
    ASSERT_TRUE(driver.startServing());
    ASSERT_EQ(askDaemon("GET|en"), "0");
    ASSERT_TRUE(waitUntil([&driver]() { return driver.clients().size() == 1; }));
    const std::string status = readFile("/proc/" + std::to_string(driver.clients()[0]) + "/status");
    const unsigned long long ignored =
        std::stoull(matches(status, "SigIgn:\t([0-9a-f]+)").at(0), nullptr, 16);

    std::string page = readSource(pageFile);
    page = page.substr(page.find("None is blocked."));
    page = page.substr(0, page.find("are ignored"));
    unsigned long long named = 0;
    for (const std::string& name : matches(page, "SIG([A-Z]+)")) {
        for (int number = 1; number < 32; ++number) {
            named |= name == sigabbrev_np(number) ? 1ULL << (number - 1) : 0;
        }
    }
    EXPECT_EQ(named, ignored);
}

TEST(Znorb7Page, GivesARequesterForTheShellThatIsServed) {
    DaemonDriver driver;
    ASSERT_TRUE(driver.startServing());
    const Launch requester = shellScript("", ManualPage("znorb.7").display("EXAMPLES"));
    ZNORB_SKIP_IF(runProgram(shellScript("", "command -v nc")).end != exitedWith(0)) << "nc is not installed";
    for (const char* number : {"0", "1"}) {
        EXPECT_THAT(runProgram(requester), resultIs(exitedWith(0), number, _));
    }
}

/// Plays the session's requesters and its client against a daemon, and compares what the daemon does.
class Replay {
public:
    explicit Replay(std::string response) : m_client({58, {std::move(response)}, false}) {
        m_driver.installAsClient("znorb-waiter"); // the test writes what the client would
    }

    /// Opens the table as a client does, whose access outlives the name.
    [[nodiscard]] bool start() {
        const bool isServing = m_driver.startServing();
        m_table.reset(shm_open(ZNORB_TABLE_NAME, O_RDWR, 0));
        return isServing && m_table.isOpen();
    }

    void play(const SessionStep& step) {
        SCOPED_TRACE(step.what + ": " + step.bytes);
        if (step.what == "requester → daemon") {
            m_requester.emplace(LocalConnection::toPath(ZNORBRESPONDER::commandSocketPath));
            EXPECT_TRUE(m_requester->send(step.bytes));
        } else if (step.what == "daemon → requester") {
            EXPECT_EQ(m_requester->receiveUntilClosed(), step.bytes);
            EXPECT_TRUE(m_requester->wasClosed());
        } else if (step.what == "client is started") {
            EXPECT_TRUE(waitUntil([&]() { return argumentsOfAClient() == step.bytes; }));
        } else if (step.what == "table") {
            const znorb_shared_table table = sharedTable();
            const char* bytes = reinterpret_cast<const char*>(&table);
            EXPECT_EQ(std::string(bytes + step.offset, step.bytes.size()), step.bytes);
        } else if (step.what == "client → table") {
            const std::string bytes = step.offset == portOffset ? ownPort() : step.bytes;
            EXPECT_EQ(pwrite(m_table.get(), bytes.data(), bytes.size(), step.offset), std::ssize(bytes));
        } else if (step.what == "daemon → client") {
            EXPECT_TRUE(m_client.waitForServed(1));
            EXPECT_THAT(m_client.received(), ElementsAre(step.bytes));
        } else {
            EXPECT_EQ(step.what, "client → daemon"); // sent by now
        }
    }

    DaemonDriver& driver() { return m_driver; }

private:
    static constexpr std::uint32_t portOffset =
        offsetof(znorb_shared_table, entries) + offsetof(znorb_client_entry, port);

    [[nodiscard]] std::string argumentsOfAClient() const {
        const std::vector<pid_t> clients = m_driver.clients();
        return clients.empty() ? "" : readFile("/proc/" + std::to_string(clients[0]) + "/cmdline");
    }

    /// The document's port may be somebody else's on this machine.
    [[nodiscard]] std::string ownPort() const {
        const std::uint16_t port = m_client.port();
        std::string bytes(sizeof port, '\0');
        std::memcpy(bytes.data(), &port, sizeof port);
        return bytes;
    }

    DaemonDriver m_driver;
    const ListeningPeer m_client;
    Descriptor m_table;
    std::optional<LocalConnection> m_requester;
};

TEST(Protocol, ShowsASessionThatTheDaemonRepeatsByteForByte) {
    ZNORB_SKIP_IF(std::endian::native != std::endian::little)
        << "the document shows a little-endian machine's table";
    const std::vector<SessionStep> steps = readSession(readSource(document));
    std::set<std::string> kinds;
    std::string response;
    for (const SessionStep& step : steps) {
        (void)kinds.insert(step.what);
        response = step.what == "client → daemon" ? step.bytes : response;
    }
    ASSERT_EQ(kinds.size(), 7U) << "a session has steps of all kinds";

    Replay replay(response);
    ASSERT_TRUE(replay.start());
    for (const SessionStep& step : steps) {
        replay.play(step);
    }
    EXPECT_EQ(replay.driver().waitForDaemon(), exitedWith(255));
    EXPECT_FALSE(readSharedTable().has_value());
}

TEST(Protocol, ShowsAnEntryWithItsBytesWhereItSaysTheyAre) {
    znorb_client_entry entry = {};
    entry.in_use = 1;
    (void)std::snprintf(entry.identifier, sizeof entry.identifier, "znorbclient-4711 en");
    entry.port = 40001;
    ZNORB_SKIP_IF(std::endian::native != std::endian::little)
        << "the document shows a little-endian machine's table";
    std::string expected(sizeof entry, '\0');
    std::memcpy(expected.data(), &entry, sizeof entry);

    const std::string text = readSource(document);
    std::string shown(sizeof entry, '\0');
    for (const std::string& line : linesOf(text.substr(0, text.find("## The client program")))) {
        const std::vector<std::string> row = matches(line, "^    ([0-9a-f]{8}  [0-9a-f ]{48})");
        if (!row.empty()) {
            const std::size_t offset = std::stoul(row[0].substr(0, 8), nullptr, 16) - 0x104;
            const std::string bytes = bytesFromHex(row[0].substr(8));
            ASSERT_LE(offset + bytes.size(), shown.size());
            shown.replace(offset, bytes.size(), bytes);
        }
    }
    EXPECT_EQ(shown, expected);
}

} // namespace
