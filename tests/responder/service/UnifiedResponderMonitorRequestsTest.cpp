#include "tests/responder/service/UnifiedResponderMonitorFixture.h"
#include "tests/support/Matchers.h"
#include "tests/support/Rows.h"

namespace {

using namespace ZNORBTEST;

TEST_F(ServingResponderMonitor, FirstGetOnAnEmptyTableIsEntryZeroAndTheNextEntryOne) {
    EXPECT_EQ(askDaemon("GET|en"), "0");
    EXPECT_EQ(argumentsOfClient(), "<-lang><en><-wbx><-index><0>");
    EXPECT_EQ(askDaemon("GET|en"), "1");
    EXPECT_EQ(argumentsOfClient(), "<-lang><en><-wbx><-index><1>");
    const znorb_shared_table table = sharedTable();
    EXPECT_EQ(table.count, 2U);
    EXPECT_EQ(table.entries[0].in_use, 1U);
    EXPECT_EQ(table.entries[1].in_use, 1U);
}

/// The tokens behind GET on an empty table, and the client's arguments around its index.
struct Get {
    const char* name;
    std::string tokens;
    std::string language;
    std::string timeOut;

    friend void PrintTo(const Get& row, std::ostream* stream) { *stream << row.name; }
};

class GetRequest : public ServingResponderMonitor, public testing::WithParamInterface<Get> {};

TEST_P(GetRequest, StartsAClientWithItsTokens) {
    for (const std::string entry : {"0", "1"}) {
        EXPECT_EQ(askDaemon("GET|" + GetParam().tokens), entry);
        EXPECT_EQ(argumentsOfClient(),
                  "<-lang>" + GetParam().language + "<-wbx><-index><" + entry + ">" + GetParam().timeOut);
    }
}

const Get gets[] = {
    {"ThirdTokenIsTheTimeOut", "de|30", "<de>", "<-timeout><30>"},
    {"FurtherTokensAreIgnored", "de|30|40|x", "<de>", "<-timeout><30>"},
    {"EmptyTimeOutIsNone", "de|", "<de>", ""},
    {"EmptyLanguageIsPassedOn", "", "<>", ""},
    {"EmptyLanguageDoesNotShiftTheTimeOut", "|7", "<>", "<-timeout><7>"},
    {"RequestIsCutAt1024Bytes", std::string(3000, 'l'), "<" + std::string(1020, 'l') + ">", ""},
    {"NulEndsTheLanguage", {"e\0n", 3}, "<e>", ""},
};

INSTANTIATE_TEST_SUITE_P(UnifiedResponderMonitor, GetRequest, testing::ValuesIn(gets), rowName);

TEST_F(ServingResponderMonitor, ReplyToGetIsTheEntryInDecimal) {
    changeTable([](znorb_shared_table& table) {
        table.count = 63;
        for (unsigned index = 0; index < 63; ++index) {
            table.entries[index].in_use = 1;
        }
        table.entries[10].in_use = 0;
    });
    EXPECT_EQ(askDaemon("GET|en"), "10");
    EXPECT_EQ(argumentsOfClient(), "<-lang><en><-wbx><-index><10>");
    EXPECT_EQ(askDaemon("GET|en"), "63");
    EXPECT_EQ(argumentsOfClient(), "<-lang><en><-wbx><-index><63>");
}

TEST_F(ServingResponderMonitor, GetOnAFullTableIsAnsweredWithZeroAndLaunchesNothing) {
    changeTable([](znorb_shared_table& table) {
        table.count = 0xffffffff;
        for (znorb_client_entry& entry : table.entries) {
            entry.in_use = 1;
        }
    });
    EXPECT_EQ(askDaemon("GET|en"), "0");
    changeTable([](znorb_shared_table& table) { table.count = 0; });
    quit();
    EXPECT_THAT(linesOfService(),
                ElementsAre("Received GET command", "Received QUIT command", "Unified responder stopped"));
}

TEST_F(ServingResponderMonitor, GetWithoutALanguageIsAnsweredWithZeroAndLaunchesNothing) {
    EXPECT_EQ(askDaemon("GET"), "0");
    const znorb_shared_table table = sharedTable();
    EXPECT_EQ(table.count, 0U);
    EXPECT_THAT(log.text(), Not(HasSubstr("New process")));
}

TEST_F(ServingResponderMonitor, PrintListsTheTableInTheLogAndNothingOfAnEmptyOneWhateverItsFurtherTokens) {
    EXPECT_EQ(askDaemon("PRINT"), "0");
    EXPECT_THAT(linesOfService(), IsEmpty());
    changeTable([](znorb_shared_table& table) {
        table.count = 3;
        table.entries[0].in_use = 1;
        table.entries[2].in_use = 255;
        (void)std::string("first").copy(table.entries[0].identifier, 6);
        (void)std::string("freed").copy(table.entries[1].identifier, 6);
    });
    EXPECT_EQ(askDaemon("PRINT|x"), "0");
    EXPECT_THAT(linesOfService(),
                ElementsAre("Entry:  0, Valid?: Y, ID: first", "Entry:  1, Valid?: N, ID: freed",
                            "Entry:  2, Valid?: Y, ID: "));
}

TEST_F(ServingResponderMonitor, FurtherTokensOfQuitAreIgnored) {
    EXPECT_EQ(askDaemon("QUIT|" + std::string(5000, 'x')), "0");
    awaitEnd();
}

/// Requests that are no command: answered with "0", nothing happens, nothing is logged.
class UnknownRequest : public ServingResponderMonitor, public testing::WithParamInterface<NamedText> {};

TEST_P(UnknownRequest, IsAnsweredWithZeroAndDoesNothing) {
    changeTable([](znorb_shared_table& table) { table.count = 1; });
    EXPECT_EQ(askDaemon(GetParam().text), "0");
    EXPECT_THAT(linesOfService(), IsEmpty());
    EXPECT_FALSE(isExitEventSet());
    EXPECT_FALSE(exists(folder / "arguments"));
    EXPECT_EQ(askDaemon("PRINT"), "0") << "goes on serving";
    EXPECT_THAT(linesOfService(), ElementsAre("Entry:  0, Valid?: N, ID: "));
}

const NamedText unknownRequests[] = {
    {"QuitAndLineFeed", "QUIT\n"},
    {"QuitAndLineEnd", "QUIT\r\n"},
    {"SpaceAndQuit", " QUIT"},
    {"QuitAndSpace", "QUIT "},
    {"LowerCaseQuit", "quit"},
    {"MixedCaseQuit", "Quit"},
    {"ShortQuit", "QUI"},
    {"LongQuit", "QUITX"},
    {"QuitAndNul", {"QUIT\0", 5}},
    {"QuitAndMoreThanOneRead", "QUIT" + std::string(1100, ' ')},
    {"LowerCasePrint", "print"},
    {"PrintAndLineFeed", "PRINT\n"},
    {"LowerCaseGet", "get|en"},
    {"GetAndSpace", "GET |en"},
    {"SpaceAndGet", " GET|en"},
    {"EmptyTokenAndGet", "|GET|en"},
    {"GetAndNul", {"GET\0|en", 7}},
    {"Bar", "|"},
    {"BarsOnly", std::string(1024, '|')},
    {"Nul", std::string(1, '\0')},
    {"BytesAboveAscii", std::string(100, '\xff')},
    {"FormatCharacters", "%s%n"},
    {"MoreThanOneRead", std::string(4000, 'Q')},
};

INSTANTIATE_TEST_SUITE_P(UnifiedResponderMonitor, UnknownRequest, testing::ValuesIn(unknownRequests),
                         rowName);

} // namespace
