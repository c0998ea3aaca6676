#include "responder/commands/CommandLine.h"

#include "responder/Globals.h"
#include "tests/support/Matchers.h"
#include "tests/support/Rows.h"

#include <algorithm>
#include <map>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;
using Words = std::vector<std::string>;
using CommandRows = std::vector<CommandRow>;

Words optionsGiven() {
    Words names;
    for (const std::string& name : parsedOptionSet) {
        names.push_back(name);
    }
    return names;
}

/// The flags of the daemon that are set, as `optionsGiven()` lists them.
Words flagsSet() {
    Words names;
    for (const FlagRow& flag : flagTable) {
        if (*flag.target) {
            names.push_back(flag.name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::map<std::string, unsigned> rowsOfCommands() {
    std::map<std::string, unsigned> rows;
    for (const auto& entry : parsedCommandMap) {
        rows[entry.first] = entry.second;
    }
    return rows;
}

// The tables that main passes.
class CommandLineTest : public testing::Test {
protected:
    CommandLineTest() { forget(); }
    ~CommandLineTest() override { forget(); }

    static bool parse(const Words& words) { return parseCommandLine(words, commandTable, flagTable, {}); }

private:
    static void forget() {
        parsedCommandList.clear();
        parsedCommandMap.clear();
        parsedOptionSet.clear();
        enableFlag = false;
        disableFlag = false;
        silentFlag = false;
    }
};

// Tables of the test's own: the flags "red" and "blue", the value options "size" and "name", and the
// commands that the test fills in.
class CommandLineTablesTest : public CommandLineTest {
protected:
    bool parse(const Words& words) { return parseCommandLine(words, commands, flags, options); }

    CommandRows commands = {{"go", "", "", ""}};
    bool red = false;
    bool blue = false;
    std::vector<FlagRow> flags = {{"red", &red}, {"blue", &blue}};
    std::vector<ValueOptionRow> options = {{"size", "unset"}, {"name", "unset"}};
};

/// The names of the rows of a table, the name that is looked up, and the index of its row.
struct Lookup {
    const char* name;
    Words rows;
    std::string sought;
    int index;

    friend void PrintTo(const Lookup& row, std::ostream* stream) { *stream << row.name; }
};

class TableLookup : public testing::TestWithParam<Lookup> {};

TEST_P(TableLookup, IsTheSameForCommandsFlagsAndValueOptions) {
    CommandRows commands;
    std::vector<FlagRow> flags;
    std::vector<ValueOptionRow> options;
    for (const std::string& name : GetParam().rows) {
        commands.push_back({name, "", "", ""});
        flags.push_back({name, nullptr});
        options.push_back({name, ""});
    }
    const auto count = static_cast<unsigned>(GetParam().rows.size());
    EXPECT_EQ(findCommand({commands.data(), count}, GetParam().sought), GetParam().index);
    EXPECT_EQ(findFlag({flags.data(), count}, GetParam().sought), GetParam().index);
    EXPECT_EQ(findValueOption({options.data(), count}, GetParam().sought), GetParam().index);
}

static_assert(noRow < 0, "no index of a row");

const Lookup lookups[] = {
    {"FirstRow", {"go", "halt"}, "go", 0},
    {"SecondRow", {"go", "halt"}, "halt", 1},
    {"UnknownName", {"go", "halt"}, "red", noRow},
    {"FirstOfRowsWithTheSameName", {"a", "b", "b"}, "b", 1},
    {"UpperCaseAtTheBegin", {"go"}, "Go", noRow},
    {"UpperCaseThroughout", {"go"}, "GO", noRow},
    {"UpperCaseAtTheEnd", {"go"}, "gO", noRow},
    {"BeginningOfARowsName", {"go"}, "g", noRow},
    {"OneLetterMore", {"go"}, "goo", noRow},
    {"SpaceBefore", {"go"}, " go", noRow},
    {"SpaceBehind", {"go"}, "go ", noRow},
    {"BytesBeyondANulByte", {"go"}, {"go\0x", 4}, noRow},
    {"RowWithANulByte", {"go", {"go\0x", 4}}, {"go\0x", 4}, 1},
    {"EmptyNameOfARow", {"go", ""}, "", 1},
    {"EmptyNameOfNoRow", {"go"}, "", noRow},
    {"EmptyNameInNoTable", {}, "", noRow},
    {"NameInNoTable", {}, "go", noRow},
};

INSTANTIATE_TEST_SUITE_P(CommandLine, TableLookup, testing::ValuesIn(lookups), rowName);

TEST_F(CommandLineTablesTest, LookupReadsNoRowBeyondTheCount) {
    EXPECT_EQ(findFlag({flags.data(), 1}, "blue"), noRow);
    EXPECT_EQ(findValueOption({options.data(), 1}, "name"), noRow);
    EXPECT_EQ(findCommand({commands.data(), 0}, "go"), noRow);
    EXPECT_EQ(findCommand({}, ""), noRow);
    EXPECT_EQ(findFlag({}, ""), noRow);
    EXPECT_EQ(findValueOption({}, ""), noRow);
}

/// Whether a line is accepted, and what of it is recorded.
struct Parsed {
    bool isAccepted = false;
    Words commands = {};
    Words options = {}; ///< sorted
};

using Line = Row<Words, Parsed>;

class CommandLineOf : public CommandLineTest, public testing::WithParamInterface<Line> {};

TEST_P(CommandLineOf, IsRecordedAsFarAsItIsAccepted) {
    const Parsed& expected = GetParam().expected;
    EXPECT_EQ(parse(GetParam().given), expected.isAccepted);
    EXPECT_EQ(parsedCommandList, expected.commands);
    for (const auto& [name, row] : rowsOfCommands()) {
        EXPECT_EQ(commandTable[row].name, name);
    }
    EXPECT_EQ(rowsOfCommands().size(), expected.commands.size());
    EXPECT_EQ(optionsGiven(), expected.options);
    EXPECT_EQ(flagsSet(), expected.options) << "each flag sets its own bool and no other";
}

const Words allFlags = {"disable", "enable", "silent"};

const Line lines[] = {
    {"NoWords", {}, {true}},
    {"DAlone", {"-d"}, {true, {"d"}}},
    {"StopAlone", {"-stop"}, {true, {"stop"}}},
    {"TestAlone", {"-test"}, {true, {"test"}}},
    {"LoneDashIsTheCommandWithTheEmptyName", {"-"}, {true, {""}}},
    {"EnableAloneStandsForTheDefaultRow", {"-enable"}, {true, {""}, {"enable"}}},
    {"DisableAloneStandsForTheDefaultRow", {"-disable"}, {true, {""}, {"disable"}}},
    {"SilentAloneStandsForTheDefaultRow", {"-silent"}, {true, {""}, {"silent"}}},
    {"EnableBehindACommand", {"-d", "-enable"}, {true, {"d"}, {"enable"}}},
    {"DisableBehindACommand", {"-d", "-disable"}, {true, {"d"}, {"disable"}}},
    {"SilentBehindACommand", {"-d", "-silent"}, {true, {"d"}, {"silent"}}},
    {"FlagsAroundD", {"-enable", "-d", "-disable", "-silent"}, {true, {"d"}, allFlags}},
    {"FlagsAroundStop", {"-enable", "-stop", "-disable", "-silent"}, {true, {"stop"}, allFlags}},
    {"FlagsAroundTest", {"-enable", "-test", "-disable", "-silent"}, {true, {"test"}, allFlags}},
    {"FlagGivenTwiceIsRecordedOnce", {"-d", "-silent", "-silent"}, {true, {"d"}, {"silent"}}},
    {"StopWithoutADash", {"stop"}, {}},
    {"DWithoutADash", {"d"}, {}},
    {"TestWithoutADash", {"test"}, {}},
    {"FlagWithoutADash", {"enable"}, {}},
    {"UnknownWordWithoutADash", {"x"}, {}},
    {"DashBehindASpace", {" -d"}, {}},
    {"WordWithoutADashBehindACommand", {"-d", "stop"}, {false, {"d"}}},
    {"WordWithoutADashBehindAFlag", {"-enable", "silent"}, {false, {}, {"enable"}}},
    {"EmptyWord", {""}, {}},
    {"EmptyWordBehindACommand", {"-d", ""}, {false, {"d"}}},
    {"UnknownName", {"-x"}, {}},
    {"NameThatBeginsWithAKnownOne", {"-dd"}, {}},
    {"NameThatIsTheBeginningOfAKnownOne", {"-sto"}, {}},
    {"NameOneLetterLongerThanAKnownOne", {"-stopp"}, {}},
    {"Help", {"-help"}, {}},
    {"SpaceBehindAName", {"-d "}, {}},
    {"ValueBehindAName", {"-d=1"}, {}},
    {"TwoDashesBeforeACommand", {"--d"}, {}},
    {"TwoDashesBeforeAFlag", {"--enable"}, {}},
    {"UpperCaseD", {"-D"}, {}},
    {"UpperCaseInStop", {"-Stop"}, {}},
    {"UpperCaseTest", {"-TEST"}, {}},
    {"UpperCaseInAFlag", {"-Enable"}, {}},
    {"NulByteBehindAName", {std::string("-d\0", 3)}, {}},
    {"StopAndThenD", {"-stop", "-d"}, {false, {"stop"}}},
    {"DTwice", {"-d", "-d"}, {false, {"d"}}},
    {"OnlyWhatStandsBeforeABadWord", {"-d", "-enable", "bad", "-silent"}, {false, {"d"}, {"enable"}}},
};

INSTANTIATE_TEST_SUITE_P(CommandLine, CommandLineOf, testing::ValuesIn(lines), rowName);

TEST_F(CommandLineTest, AnyTwoCommandsAreRejectedTheEmptyOneIncluded) {
    const Words commands = {"-d", "-stop", "-test", "-"};
    for (const std::string& first : commands) {
        for (const std::string& second : commands) {
            EXPECT_FALSE(parse({first, second})) << first << ' ' << second;
            EXPECT_FALSE(parse({first, "-silent", second})) << first << ' ' << second;
        }
    }
}

TEST_F(CommandLineTest, EachParseForgetsTheResultsOfTheOneBeforeAlsoWhenItIsRejected) {
    for (const Words& words : {Words{}, Words{"bad"}}) {
        EXPECT_TRUE(parse({"-stop", "-silent"}));
        EXPECT_EQ(parse(words), words.empty());
        EXPECT_THAT(parsedCommandList, IsEmpty());
        EXPECT_THAT(rowsOfCommands(), IsEmpty());
        EXPECT_THAT(optionsGiven(), IsEmpty());
        EXPECT_TRUE(silentFlag) << "a flag that was set stays set";
    }
}

TEST_F(CommandLineTest, RejectedLinePrintsNothing) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(parse({"-stop", "-d"}));
    EXPECT_FALSE(parse({"stop"}));
    EXPECT_FALSE(parse({"-help"}));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(CommandLineTest, GetterReplacesWhatItIsGivenByCopiesOfTheResults) {
    EXPECT_TRUE(parse({"-test", "-enable"}));
    Words commands = {"old"};
    Common::set<std::string> options;
    (void)options.insert("old");

    getParsedCommandLine(commands, options);
    EXPECT_THAT(commands, ElementsAre("test"));
    ASSERT_EQ(options.size(), 1U);
    EXPECT_EQ(*options.begin(), "enable");

    commands.clear();
    options.clear();
    EXPECT_THAT(parsedCommandList, ElementsAre("test"));
    EXPECT_THAT(optionsGiven(), ElementsAre("enable"));
}

/// A line that is parsed against a table of commands of its own. Values follow their options behind "=".
struct TableLine {
    const char* name;
    CommandRows commands;
    Words words;
    Parsed expected;

    friend void PrintTo(const TableLine& row, std::ostream* stream) { *stream << row.name; }
};

class CommandLineOfTables : public CommandLineTablesTest, public testing::WithParamInterface<TableLine> {
protected:
    /// What the line has set or recorded: flags, and value options with their values.
    Words optionsSet() const {
        Words set;
        for (const FlagRow& flag : flags) {
            if (*flag.target) {
                set.push_back(flag.name);
            }
        }
        for (const ValueOptionRow& option : options) {
            if (option.value != "unset" || parsedOptionSet.find(option.name) != parsedOptionSet.end()) {
                set.push_back(option.name + "=" + option.value);
            }
        }
        std::sort(set.begin(), set.end());
        return set;
    }
};

TEST_P(CommandLineOfTables, IsRecordedAsFarAsItIsAccepted) {
    const Parsed& expected = GetParam().expected;
    commands = GetParam().commands;
    EXPECT_EQ(parse(GetParam().words), expected.isAccepted);
    EXPECT_EQ(parsedCommandList, expected.commands);
    for (const auto& [name, row] : rowsOfCommands()) {
        EXPECT_EQ(row, static_cast<unsigned>(findCommand({commands.data(), row + 1}, name)));
    }
    EXPECT_EQ(rowsOfCommands().size(), expected.commands.size());
    EXPECT_EQ(optionsSet(), expected.options);
    Words given = expected.options;
    for (std::string& option : given) {
        option = option.substr(0, option.find('='));
    }
    EXPECT_EQ(optionsGiven(), given);
}

const CommandRow go = {"go", "", "", ""};
const CommandRow withoutName = {"", "", "", ""};
const CommandRow red = {"red", "", "", ""};
const CommandRow size = {"size", "", "", ""};
const CommandRows abThenC = {{"a", "", "", "b|c"}, {"b", "", "", "c"}, {"c", "", "", ""}, {"d", "", "", "c"}};

const TableLine valueLines[] = {
    {"ValueIsTheNextWord", {go}, {"-go", "-size", "42"}, {true, {"go"}, {"size=42"}}},
    {"ParsingGoesOnBehindAValue",
     {go},
     {"-size", "42", "-name", "x", "-go", "-red"},
     {true, {"go"}, {"name=x", "red", "size=42"}}},
    {"WordWithoutADashBehindAValue", {go}, {"-size", "42", "stray"}, {false, {}, {"size=42"}}},
    {"ValueThatIsADashAndAKnownCommand", {go}, {"-size", "-go"}, {false, {}, {"size=unset"}}},
    {"ValueThatIsADashAndAKnownFlag", {go}, {"-go", "-size", "-red"}, {false, {"go"}, {"size=unset"}}},
    {"ValueThatIsADashAndAnother", {go}, {"-go", "-size", "-name", "x"}, {false, {"go"}, {"size=unset"}}},
    {"ValueThatIsADashAndTheOptionItself", {go}, {"-go", "-size", "-size"}, {false, {"go"}, {"size=unset"}}},
    {"NoValueAtTheEnd", {go}, {"-size"}, {false, {}, {"size=unset"}}},
    {"NoValueBehindAFlag", {go}, {"-go", "-red", "-size"}, {false, {"go"}, {"red", "size=unset"}}},
    {"NoValueBehindAValue", {go}, {"-go", "-name", "x", "-size"}, {false, {"go"}, {"name=x", "size=unset"}}},
    {"LaterValueIsKept", {go}, {"-go", "-size", "1", "-size", "2"}, {true, {"go"}, {"size=2"}}},
    {"ValueOptionAloneStandsForTheDefaultRow", {go, withoutName}, {"-size", "1"}, {true, {""}, {"size=1"}}},
    {"FlagAloneWithoutADefaultRow", {go}, {"-red"}, {true, {}, {"red"}}},
    {"CommandGoesBeforeAFlagOfItsName", {go, red, size}, {"-red"}, {true, {"red"}}},
    {"CommandGoesBeforeAValueOptionOfItsName", {go, red, size}, {"-size"}, {true, {"size"}}},
    {"RefusedCommandIsNotTakenForAFlag", {go, red, size}, {"-go", "-red"}, {false, {"go"}}},
    {"RefusedCommandIsNotTakenForAValueOption", {go, red, size}, {"-go", "-size", "1"}, {false, {"go"}}},
};

INSTANTIATE_TEST_SUITE_P(Values, CommandLineOfTables, testing::ValuesIn(valueLines), rowName);

const CommandRow aThenB = {"a", "", "", "b"};
const CommandRow aThenBOrC = {"a", "", "", "b|c"};
const CommandRow b = {"b", "", "", ""};
const CommandRow c = {"c", "", "", ""};

const TableLine companionLines[] = {
    {"CommandThatTheFirstOneNames", {aThenB, b}, {"-a", "-b"}, {true, {"a", "b"}}},
    {"FirstCommandsColumnDecides", {aThenB, b}, {"-b", "-a"}, {false, {"b"}}},
    {"CommandsAreListedInTheOrderGiven",
     {aThenB, {"b", "", "", "a"}},
     {"-b", "-red", "-a"},
     {true, {"b", "a"}, {"red"}}},
    {"NameInsideALongerName", {{"a", "", "", "xby|c"}, b}, {"-a", "-b"}, {true, {"a", "b"}}},
    {"NameAcrossABar", {{"a", "", "", "xby|c"}, {"y|c", "", "", ""}}, {"-a", "-y|c"}, {true, {"a", "y|c"}}},
    {"NameInUpperCase", {{"a", "", "", "xby|c"}, {"B", "", "", ""}}, {"-a", "-B"}, {false, {"a"}}},
    {"NamedByBothBeforeIt", abThenC, {"-a", "-b", "-c"}, {true, {"a", "b", "c"}}},
    {"RefusedByTheSecond", {aThenBOrC, b, c}, {"-a", "-b", "-c"}, {false, {"a", "b"}}},
    {"RefusedByTheFirst", {aThenB, {"b", "", "", "c"}, c}, {"-a", "-b", "-c"}, {false, {"a", "b"}}},
    {"TwiceEvenIfItNamesItself", {{"a", "", "", "a|b"}}, {"-a", "-a"}, {false, {"a"}}},
    {"AgainEvenIfBothNameIt",
     {{"a", "", "", "a|b"}, {"b", "", "", "a|b"}},
     {"-a", "-b", "-a"},
     {false, {"a", "b"}}},
};

INSTANTIATE_TEST_SUITE_P(Companions, CommandLineOfTables, testing::ValuesIn(companionLines), rowName);

/// The lines that a table of commands accepts, and those that it does not.
struct Judgement {
    const char* name;
    CommandRows commands;
    std::vector<Words> accepted;
    std::vector<Words> rejected;

    friend void PrintTo(const Judgement& row, std::ostream* stream) { *stream << row.name; }
};

class CommandLineOptions : public CommandLineTablesTest, public testing::WithParamInterface<Judgement> {};

TEST_P(CommandLineOptions, AreJudgedByTheColumnsOfTheirCommands) {
    commands = GetParam().commands;
    for (const Words& words : GetParam().accepted) {
        EXPECT_TRUE(parse(words)) << testing::PrintToString(words);
    }
    for (const Words& words : GetParam().rejected) {
        EXPECT_FALSE(parse(words)) << testing::PrintToString(words);
    }
}

const Judgement judgements[] = {
    {"FlagMustBeGivenOnEitherSide", {{"go", "red", "", ""}}, {{"-go", "-red"}, {"-red", "-go"}}, {{"-go"}}},
    {"ValueOptionCanBeRequired", {{"go", "size", "", ""}}, {{"-go", "-size", "1"}}, {{"-go"}}},
    {"EveryRequiredItemMustBeGiven",
     {{"go", "red|size|blue", "", ""}},
     {{"-go", "-red", "-blue", "-size", "1"}},
     {{"-go", "-red", "-blue"}, {"-go", "-red", "-size", "1"}, {"-go", "-blue", "-size", "1"}}},
    {"RequiredOptionsOfEveryCommandMustBeGiven",
     {{"a", "red", "", "b"}, {"b", "blue", "", ""}},
     {{"-a", "-b", "-red", "-blue"}},
     {{"-a", "-b", "-red"}, {"-a", "-b", "-blue"}}},
    {"RequiredNamesAreMatchedWhole", {{"go", "re", "", ""}}, {}, {{"-go", "-red"}}},
    {"PermittedOptionMayBeGivenOrLeftOutAndNoOther",
     {{"go", "", "red|size", ""}},
     {{"-go"}, {"-go", "-red"}, {"-go", "-size", "1", "-red"}},
     {{"-go", "-blue"}, {"-go", "-red", "-name", "x"}}},
    {"RequiredOptionsArePermittedAsWell",
     {{"go", "red", "size", ""}},
     {{"-go", "-red", "-size", "1"}},
     {{"-go", "-red", "-blue"}}},
    {"PermittedListIsThatOfAllCommandsTogether",
     {{"a", "", "red", "b"}, {"b", "", "blue", ""}},
     {{"-a", "-b", "-red", "-blue"}},
     {{"-a", "-b", "-red", "-size", "1"}}},
    {"EmptyColumnsImposeNothing",
     {{"go", "", "", ""}},
     {{"-go"}, {"-go", "-red", "-blue", "-size", "1", "-name", "x"}},
     {}},
};

INSTANTIATE_TEST_SUITE_P(CommandLine, CommandLineOptions, testing::ValuesIn(judgements), rowName);

TEST_F(CommandLineTablesTest, ValueIsTakenAsItIs) {
    for (const std::string value : {"", "go", "red", "name", "-5", "--go", "-goo", "a|b", " "}) {
        EXPECT_TRUE(parse({"-go", "-size", value})) << value;
        EXPECT_EQ(options[0].value, value);
    }
    EXPECT_FALSE(red);
}

TEST_F(CommandLineTablesTest, LoneDashIsAValueUnlessSomethingHasTheEmptyName) {
    EXPECT_TRUE(parse({"-go", "-size", "-"}));
    EXPECT_EQ(options[0].value, "-");
    commands.push_back({"", "", "", ""});
    EXPECT_FALSE(parse({"-go", "-size", "-"}));
}

TEST_F(CommandLineTablesTest, FlagGoesBeforeAValueOptionOfItsName) {
    options.push_back({"red", "unset"});
    EXPECT_TRUE(parse({"-go", "-red"}));
    EXPECT_TRUE(red);
    EXPECT_EQ(options[2].value, "unset");
}

TEST_F(CommandLineTablesTest, TextBehindTheLastBarIsAnItemEvenIfItIsEmpty) {
    commands = {{"go", "red|", "", ""}};
    EXPECT_FALSE(parse({"-go", "-red"})) << "the empty name is required as well";
    bool nameless = false;
    flags.push_back({"", &nameless});
    EXPECT_TRUE(parse({"-go", "-red", "-"}));
    EXPECT_TRUE(nameless);
}

TEST_F(CommandLineTablesTest, LineWithoutAnyTablesAcceptsNothingButNoWords) {
    EXPECT_TRUE(parseCommandLine({}, {}, {}, {}));
    EXPECT_FALSE(parseCommandLine({"-"}, {}, {}, {}));
    EXPECT_FALSE(parseCommandLine({"-d"}, {}, {}, {}));
}

TEST_F(CommandLineTablesTest, ManyLongWordsAreRead) {
    const std::string value(1U << 20U, 'x');
    Words words = {"-go"};
    for (int i = 0; i < 1000; ++i) {
        words.insert(words.end(), {"-name", "-" + std::to_string(i)});
    }
    words.insert(words.end(), {"-size", value});
    EXPECT_TRUE(parse(words));
    EXPECT_EQ(options[0].value, value);
    EXPECT_EQ(options[1].value, "-999");
}

} // namespace
