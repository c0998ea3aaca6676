#include "responder/commands/CommandLine.h"

#include "responder/Globals.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace {

using namespace ZNORBRESPONDER;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using Words = std::vector<std::string>;

Words optionsGiven() {
    Words names;
    for (const std::string& name : parsedOptionSet) {
        names.push_back(name);
    }
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
    CommandLineTest(const CommandLineTest&) = delete;
    CommandLineTest& operator=(const CommandLineTest&) = delete;

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

    std::vector<CommandRow> commands = {{"go", "", "", ""}};
    bool red = false;
    bool blue = false;
    std::vector<FlagRow> flags = {{"red", &red}, {"blue", &blue}};
    std::vector<ValueOptionRow> options = {{"size", "unset"}, {"name", "unset"}};
};

TEST_F(CommandLineTablesTest, LookupGivesTheIndexOfTheRowOfEachKind) {
    commands = {{"go", "", "", ""}, {"halt", "", "", ""}};
    EXPECT_EQ(findCommand(commands, "go"), 0);
    EXPECT_EQ(findCommand(commands, "halt"), 1);
    EXPECT_EQ(findFlag(flags, "red"), 0);
    EXPECT_EQ(findFlag(flags, "blue"), 1);
    EXPECT_EQ(findValueOption(options, "size"), 0);
    EXPECT_EQ(findValueOption(options, "name"), 1);
}

TEST_F(CommandLineTablesTest, LookupOfAnUnknownNameGivesNoRow) {
    EXPECT_EQ(findCommand(commands, "red"), noRow);
    EXPECT_EQ(findFlag(flags, "size"), noRow);
    EXPECT_EQ(findValueOption(options, "go"), noRow);
    EXPECT_LT(noRow, 0) << "no index of a row";
}

TEST_F(CommandLineTablesTest, LookupTakesTheFirstOfRowsWithTheSameName) {
    commands = {{"a", "", "", ""}, {"b", "first", "", ""}, {"b", "second", "", ""}};
    flags = {{"b", &red}, {"b", &blue}};
    options = {{"a", ""}, {"b", "first"}, {"b", "second"}};
    EXPECT_EQ(findCommand(commands, "b"), 1);
    EXPECT_EQ(findFlag(flags, "b"), 0);
    EXPECT_EQ(findValueOption(options, "b"), 1);
}

TEST_F(CommandLineTablesTest, LookupIsCaseSensitive) {
    EXPECT_EQ(findCommand(commands, "Go"), noRow);
    EXPECT_EQ(findFlag(flags, "RED"), noRow);
    EXPECT_EQ(findValueOption(options, "sizE"), noRow);
}

TEST_F(CommandLineTablesTest, LookupMatchesNamesOfEqualLengthOnly) {
    for (const std::string name : {"g", "goo", " go", "go ", ""}) {
        EXPECT_EQ(findCommand(commands, name), noRow) << name;
    }
    for (const std::string name : {"re", "redd", ""}) {
        EXPECT_EQ(findFlag(flags, name), noRow) << name;
    }
    for (const std::string name : {"siz", "sizes", ""}) {
        EXPECT_EQ(findValueOption(options, name), noRow) << name;
    }
}

TEST_F(CommandLineTablesTest, LookupComparesBytesBeyondANulByte) {
    const std::string name("go\0x", 4);
    EXPECT_EQ(findCommand(commands, name), noRow);
    commands.push_back({name, "", "", ""});
    EXPECT_EQ(findCommand(commands, name), 1);
}

TEST_F(CommandLineTablesTest, LookupOfAnEmptyNameMatchesAnEmptyRowNameOnly) {
    commands = {{"go", "", "", ""}, {"", "", "", ""}};
    EXPECT_EQ(findCommand(commands, ""), 1);
    EXPECT_EQ(findCommand(std::span(commands).first(1), ""), noRow);
}

TEST_F(CommandLineTablesTest, LookupReadsNoRowBeyondTheCount) {
    EXPECT_EQ(findFlag(std::span(flags).first(1), "blue"), noRow);
    EXPECT_EQ(findValueOption(std::span(options).first(1), "name"), noRow);
    EXPECT_EQ(findCommand(std::span(commands).first(0), "go"), noRow);
}

TEST(CommandLine, LookupInNoTableGivesNoRow) {
    EXPECT_EQ(findCommand({}, ""), noRow);
    EXPECT_EQ(findFlag({}, ""), noRow);
    EXPECT_EQ(findValueOption({}, ""), noRow);
}

TEST_F(CommandLineTest, NoArgumentsAreAcceptedWithoutACommand) {
    EXPECT_TRUE(parse({}));
    EXPECT_THAT(parsedCommandList, IsEmpty());
    EXPECT_THAT(rowsOfCommands(), IsEmpty());
    EXPECT_THAT(optionsGiven(), IsEmpty());
}

TEST_F(CommandLineTest, EachCommandIsAcceptedAloneAndRecordedWithItsRow) {
    const std::vector<std::pair<std::string, unsigned>> rows = {{"d", 0}, {"stop", 1}, {"test", 2}};
    for (const auto& [name, row] : rows) {
        EXPECT_TRUE(parse({"-" + name})) << name;
        EXPECT_THAT(parsedCommandList, ElementsAre(name));
        EXPECT_THAT(rowsOfCommands(), ElementsAre(Pair(name, row)));
        EXPECT_THAT(optionsGiven(), IsEmpty());
    }
}

TEST_F(CommandLineTest, WordWithoutADashIsRejected) {
    for (const std::string word : {"stop", "d", "test", "enable", "x", " -d"}) {
        EXPECT_FALSE(parse({word})) << word;
        EXPECT_THAT(parsedCommandList, IsEmpty());
    }
    EXPECT_FALSE(enableFlag);
}

TEST_F(CommandLineTest, WordWithoutADashIsRejectedBehindACommandToo) {
    EXPECT_FALSE(parse({"-d", "stop"}));
    EXPECT_FALSE(parse({"-enable", "silent"}));
    EXPECT_FALSE(silentFlag);
}

TEST_F(CommandLineTest, EmptyWordIsRejected) {
    EXPECT_FALSE(parse({""}));
    EXPECT_FALSE(parse({"-d", ""}));
}

TEST_F(CommandLineTest, UnknownNameIsRejected) {
    for (const std::string word : {"-x", "-dd", "-sto", "-stopp", "-help", "-d ", "-d=1"}) {
        EXPECT_FALSE(parse({word})) << word;
    }
}

TEST_F(CommandLineTest, OnlyOneDashIsTakenOff) {
    EXPECT_FALSE(parse({"--d"}));
    EXPECT_FALSE(parse({"--enable"}));
    EXPECT_FALSE(enableFlag);
}

TEST_F(CommandLineTest, NamesAreCaseSensitive) {
    for (const std::string word : {"-D", "-Stop", "-TEST", "-Enable"}) {
        EXPECT_FALSE(parse({word})) << word;
    }
    EXPECT_FALSE(enableFlag);
}

TEST_F(CommandLineTest, NulByteInAWordIsPartOfItsName) {
    EXPECT_FALSE(parse({std::string("-d\0", 3)}));
}

TEST_F(CommandLineTest, LoneDashStandsForTheCommandWithTheEmptyName) {
    EXPECT_TRUE(parse({"-"}));
    EXPECT_THAT(parsedCommandList, ElementsAre(""));
    EXPECT_THAT(rowsOfCommands(), ElementsAre(Pair("", 3U)));
}

TEST_F(CommandLineTest, EachFlagSetsItsOwnBoolAndNoOther) {
    EXPECT_TRUE(parse({"-d", "-enable"}));
    EXPECT_TRUE(enableFlag && !disableFlag && !silentFlag);
    enableFlag = false;
    EXPECT_TRUE(parse({"-d", "-disable"}));
    EXPECT_TRUE(!enableFlag && disableFlag && !silentFlag);
    disableFlag = false;
    EXPECT_TRUE(parse({"-d", "-silent"}));
    EXPECT_TRUE(!enableFlag && !disableFlag && silentFlag);
}

TEST_F(CommandLineTest, EnableAloneStandsForTheDefaultRowAndSetsItsFlag) {
    EXPECT_TRUE(parse({"-enable"}));
    EXPECT_THAT(parsedCommandList, ElementsAre(""));
    EXPECT_THAT(rowsOfCommands(), ElementsAre(Pair("", 3U)));
    EXPECT_THAT(optionsGiven(), ElementsAre("enable"));
    EXPECT_TRUE(enableFlag);
}

TEST_F(CommandLineTest, EachOtherFlagAloneStandsForTheDefaultRowToo) {
    for (const std::string name : {"disable", "silent"}) {
        EXPECT_TRUE(parse({"-" + name}));
        EXPECT_THAT(parsedCommandList, ElementsAre(""));
        EXPECT_THAT(optionsGiven(), ElementsAre(name));
    }
    EXPECT_TRUE(disableFlag && silentFlag);
}

TEST_F(CommandLineTest, FlagsMayAccompanyAnyCommandBeforeAndBehindIt) {
    for (const std::string name : {"d", "stop", "test"}) {
        EXPECT_TRUE(parse({"-enable", "-" + name, "-disable", "-silent"})) << name;
        EXPECT_THAT(parsedCommandList, ElementsAre(name));
        EXPECT_THAT(optionsGiven(), UnorderedElementsAre("enable", "disable", "silent"));
    }
    EXPECT_TRUE(enableFlag && disableFlag && silentFlag);
}

TEST_F(CommandLineTest, FlagGivenTwiceIsAcceptedAndRecordedOnce) {
    EXPECT_TRUE(parse({"-d", "-silent", "-silent"}));
    EXPECT_THAT(optionsGiven(), ElementsAre("silent"));
}

TEST_F(CommandLineTest, StopFollowedByDIsRejected) {
    EXPECT_FALSE(parse({"-stop", "-d"}));
}

TEST_F(CommandLineTest, DTwiceIsRejected) {
    EXPECT_FALSE(parse({"-d", "-d"}));
}

TEST_F(CommandLineTest, AnyTwoCommandsAreRejectedTheEmptyOneIncluded) {
    const Words commands = {"-d", "-stop", "-test", "-"};
    for (const std::string& first : commands) {
        for (const std::string& second : commands) {
            EXPECT_FALSE(parse({first, second})) << first << ' ' << second;
            EXPECT_FALSE(parse({first, "-silent", second})) << first << ' ' << second;
        }
    }
}

TEST_F(CommandLineTest, WordsBeforeARejectedOneHaveTakenEffectThoseBehindItHaveNot) {
    EXPECT_FALSE(parse({"-d", "-enable", "bad", "-silent"}));
    EXPECT_THAT(parsedCommandList, ElementsAre("d"));
    EXPECT_THAT(optionsGiven(), ElementsAre("enable"));
    EXPECT_TRUE(enableFlag);
    EXPECT_FALSE(silentFlag);
}

TEST_F(CommandLineTest, EachParseForgetsTheResultsOfTheOneBefore) {
    EXPECT_TRUE(parse({"-stop", "-silent"}));
    EXPECT_TRUE(parse({}));
    EXPECT_THAT(parsedCommandList, IsEmpty());
    EXPECT_THAT(rowsOfCommands(), IsEmpty());
    EXPECT_THAT(optionsGiven(), IsEmpty());
    EXPECT_TRUE(silentFlag) << "a flag that was set stays set";
}

TEST_F(CommandLineTest, RejectedLineForgetsTheResultsOfTheOneBeforeToo) {
    EXPECT_TRUE(parse({"-stop", "-silent"}));
    EXPECT_FALSE(parse({"bad"}));
    EXPECT_THAT(parsedCommandList, IsEmpty());
    EXPECT_THAT(rowsOfCommands(), IsEmpty());
    EXPECT_THAT(optionsGiven(), IsEmpty());
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

TEST_F(CommandLineTablesTest, ValueOptionTakesTheNextWordAndIsRecorded) {
    EXPECT_TRUE(parse({"-go", "-size", "42"}));
    EXPECT_EQ(options[0].value, "42");
    EXPECT_EQ(options[1].value, "unset");
    EXPECT_THAT(parsedCommandList, ElementsAre("go"));
    EXPECT_THAT(optionsGiven(), ElementsAre("size"));
}

TEST_F(CommandLineTablesTest, ParsingGoesOnBehindAValue) {
    EXPECT_TRUE(parse({"-size", "42", "-name", "x", "-go", "-red"}));
    EXPECT_EQ(options[0].value, "42");
    EXPECT_EQ(options[1].value, "x");
    EXPECT_THAT(parsedCommandList, ElementsAre("go"));
    EXPECT_THAT(optionsGiven(), UnorderedElementsAre("size", "name", "red"));
    EXPECT_FALSE(parse({"-size", "42", "stray"}));
}

TEST_F(CommandLineTablesTest, ValueIsTakenAsItIs) {
    for (const std::string value : {"", "go", "red", "name", "-5", "--go", "-goo", "a|b", " "}) {
        EXPECT_TRUE(parse({"-go", "-size", value})) << value;
        EXPECT_EQ(options[0].value, value);
    }
    EXPECT_FALSE(red);
}

TEST_F(CommandLineTablesTest, ValueThatIsADashAndAKnownCommandIsRejected) {
    EXPECT_FALSE(parse({"-size", "-go"}));
    EXPECT_EQ(options[0].value, "unset");
    EXPECT_THAT(parsedCommandList, IsEmpty());
}

TEST_F(CommandLineTablesTest, ValueThatIsADashAndAKnownFlagIsRejected) {
    EXPECT_FALSE(parse({"-go", "-size", "-red"}));
    EXPECT_EQ(options[0].value, "unset");
    EXPECT_FALSE(red);
}

TEST_F(CommandLineTablesTest, ValueThatIsADashAndAKnownValueOptionIsRejected) {
    EXPECT_FALSE(parse({"-go", "-size", "-name", "x"}));
    EXPECT_FALSE(parse({"-go", "-size", "-size"})) << "the option itself included";
    EXPECT_EQ(options[0].value, "unset");
    EXPECT_EQ(options[1].value, "unset");
}

TEST_F(CommandLineTablesTest, LoneDashIsAValueUnlessSomethingHasTheEmptyName) {
    EXPECT_TRUE(parse({"-go", "-size", "-"}));
    EXPECT_EQ(options[0].value, "-");
    commands.push_back({"", "", "", ""});
    EXPECT_FALSE(parse({"-go", "-size", "-"}));
}

TEST_F(CommandLineTablesTest, OptionStillWaitingForItsValueAtTheEndIsRejected) {
    EXPECT_FALSE(parse({"-size"}));
    EXPECT_FALSE(parse({"-go", "-red", "-size"}));
    EXPECT_FALSE(parse({"-go", "-name", "x", "-size"}));
    EXPECT_EQ(options[0].value, "unset");
}

TEST_F(CommandLineTablesTest, ValueOptionGivenTwiceKeepsTheLaterValue) {
    EXPECT_TRUE(parse({"-go", "-size", "1", "-size", "2"}));
    EXPECT_EQ(options[0].value, "2");
    EXPECT_THAT(optionsGiven(), ElementsAre("size"));
}

TEST_F(CommandLineTablesTest, ValueOptionAloneStandsForTheDefaultRow) {
    commands.push_back({"", "", "", ""});
    EXPECT_TRUE(parse({"-size", "1"}));
    EXPECT_THAT(parsedCommandList, ElementsAre(""));
    EXPECT_THAT(rowsOfCommands(), ElementsAre(Pair("", 1U)));
}

TEST_F(CommandLineTablesTest, OptionsWithoutADefaultRowAreAcceptedWithoutACommand) {
    EXPECT_TRUE(parse({"-red"}));
    EXPECT_THAT(parsedCommandList, IsEmpty());
    EXPECT_THAT(rowsOfCommands(), IsEmpty());
    EXPECT_TRUE(red);
}

TEST_F(CommandLineTablesTest, CommandGoesBeforeAFlagAndAValueOptionOfItsName) {
    commands.push_back({"red", "", "", ""});
    commands.push_back({"size", "", "", ""});
    EXPECT_TRUE(parse({"-red"}));
    EXPECT_THAT(parsedCommandList, ElementsAre("red"));
    EXPECT_FALSE(red);
    EXPECT_TRUE(parse({"-size"}));
    EXPECT_THAT(parsedCommandList, ElementsAre("size"));
    EXPECT_THAT(optionsGiven(), IsEmpty());
}

TEST_F(CommandLineTablesTest, RefusedCommandIsNotTakenForAFlagOrValueOptionOfItsName) {
    commands.push_back({"red", "", "", ""});
    commands.push_back({"size", "", "", ""});
    EXPECT_FALSE(parse({"-go", "-red"}));
    EXPECT_FALSE(red);
    EXPECT_FALSE(parse({"-go", "-size", "1"}));
    EXPECT_EQ(options[0].value, "unset");
}

TEST_F(CommandLineTablesTest, FlagGoesBeforeAValueOptionOfItsName) {
    options.push_back({"red", "unset"});
    EXPECT_TRUE(parse({"-go", "-red"}));
    EXPECT_TRUE(red);
    EXPECT_EQ(options[2].value, "unset");
}

TEST_F(CommandLineTablesTest, CommandMayFollowOneWhoseFourthColumnNamesIt) {
    commands = {{"a", "", "", "b"}, {"b", "", "", ""}};
    EXPECT_TRUE(parse({"-a", "-b"}));
    EXPECT_THAT(parsedCommandList, ElementsAre("a", "b"));
    EXPECT_THAT(rowsOfCommands(), ElementsAre(Pair("a", 0U), Pair("b", 1U)));
    EXPECT_FALSE(parse({"-b", "-a"})) << "the first command's column decides";
}

TEST_F(CommandLineTablesTest, CommandsAreListedInTheOrderGiven) {
    commands = {{"a", "", "", "b"}, {"b", "", "", "a"}};
    EXPECT_TRUE(parse({"-b", "-red", "-a"}));
    EXPECT_THAT(parsedCommandList, ElementsAre("b", "a"));
    EXPECT_THAT(rowsOfCommands(), ElementsAre(Pair("a", 0U), Pair("b", 1U)));
}

TEST_F(CommandLineTablesTest, FourthColumnIsSearchedForThePlainText) {
    commands = {{"a", "", "", "xby|c"}, {"b", "", "", ""}, {"y|c", "", "", ""}, {"B", "", "", ""}};
    EXPECT_TRUE(parse({"-a", "-b"})) << "inside a longer name";
    EXPECT_TRUE(parse({"-a", "-y|c"})) << "across a bar";
    EXPECT_FALSE(parse({"-a", "-B"}));
}

TEST_F(CommandLineTablesTest, CommandMustBeNamedByEveryCommandBeforeIt) {
    commands = {{"a", "", "", "b|c"}, {"b", "", "", "c"}, {"c", "", "", ""}, {"d", "", "", "c"}};
    EXPECT_TRUE(parse({"-a", "-b", "-c"}));
    EXPECT_THAT(parsedCommandList, ElementsAre("a", "b", "c"));
    commands[1].companions = "";
    EXPECT_FALSE(parse({"-a", "-b", "-c"})) << "refused by the second";
    commands[1].companions = "c";
    commands[0].companions = "b";
    EXPECT_FALSE(parse({"-a", "-b", "-c"})) << "refused by the first";
}

TEST_F(CommandLineTablesTest, CommandThatIsRecordedAlreadyIsRejectedEvenIfItNamesItself) {
    commands = {{"a", "", "", "a|b"}, {"b", "", "", "a|b"}};
    EXPECT_FALSE(parse({"-a", "-a"}));
    EXPECT_FALSE(parse({"-a", "-b", "-a"}));
}

TEST_F(CommandLineTablesTest, RequiredOptionMustBeGivenOnEitherSideOfTheCommand) {
    commands = {{"go", "red", "", ""}};
    EXPECT_FALSE(parse({"-go"}));
    EXPECT_TRUE(parse({"-go", "-red"}));
    EXPECT_TRUE(parse({"-red", "-go"}));
}

TEST_F(CommandLineTablesTest, ValueOptionCanBeRequired) {
    commands = {{"go", "size", "", ""}};
    EXPECT_FALSE(parse({"-go"}));
    EXPECT_TRUE(parse({"-go", "-size", "1"}));
}

TEST_F(CommandLineTablesTest, EveryItemOfTheRequiredColumnMustBeGiven) {
    commands = {{"go", "red|size|blue", "", ""}};
    EXPECT_TRUE(parse({"-go", "-red", "-blue", "-size", "1"}));
    EXPECT_FALSE(parse({"-go", "-red", "-blue"})) << "without the middle item";
    EXPECT_FALSE(parse({"-go", "-red", "-size", "1"})) << "without the last item";
    EXPECT_FALSE(parse({"-go", "-blue", "-size", "1"})) << "without the first item";
}

TEST_F(CommandLineTablesTest, TextBehindTheLastBarIsAnItemEvenIfItIsEmpty) {
    commands = {{"go", "red|", "", ""}};
    EXPECT_FALSE(parse({"-go", "-red"})) << "the empty name is required as well";
    bool nameless = false;
    flags.push_back({"", &nameless});
    EXPECT_TRUE(parse({"-go", "-red", "-"}));
    EXPECT_TRUE(nameless);
}

TEST_F(CommandLineTablesTest, RequiredOptionsOfEveryCommandMustBeGiven) {
    commands = {{"a", "red", "", "b"}, {"b", "blue", "", ""}};
    EXPECT_TRUE(parse({"-a", "-b", "-red", "-blue"}));
    EXPECT_FALSE(parse({"-a", "-b", "-red"}));
    EXPECT_FALSE(parse({"-a", "-b", "-blue"}));
}

TEST_F(CommandLineTablesTest, RequiredNamesAreMatchedWholeNotAsASubstring) {
    commands = {{"go", "re", "", ""}};
    EXPECT_FALSE(parse({"-go", "-red"}));
}

TEST_F(CommandLineTablesTest, PermittedOptionMayBeGivenOrLeftOut) {
    commands = {{"go", "", "red|size", ""}};
    EXPECT_TRUE(parse({"-go"}));
    EXPECT_TRUE(parse({"-go", "-red"}));
    EXPECT_TRUE(parse({"-go", "-size", "1", "-red"}));
}

TEST_F(CommandLineTablesTest, OptionThatANonEmptyPermittedListDoesNotNameIsRejected) {
    commands = {{"go", "", "red|size", ""}};
    EXPECT_FALSE(parse({"-go", "-blue"}));
    EXPECT_FALSE(parse({"-go", "-red", "-name", "x"}));
}

TEST_F(CommandLineTablesTest, RequiredOptionsArePermittedAsWell) {
    commands = {{"go", "red", "size", ""}};
    EXPECT_TRUE(parse({"-go", "-red", "-size", "1"}));
    EXPECT_FALSE(parse({"-go", "-red", "-blue"}));
}

TEST_F(CommandLineTablesTest, PermittedListIsThatOfAllCommandsTogether) {
    commands = {{"a", "", "red", "b"}, {"b", "", "blue", ""}};
    EXPECT_TRUE(parse({"-a", "-b", "-red", "-blue"}));
    EXPECT_FALSE(parse({"-a", "-b", "-red", "-size", "1"}));
}

TEST_F(CommandLineTablesTest, EmptyColumnsImposeNothing) {
    EXPECT_TRUE(parse({"-go"}));
    EXPECT_TRUE(parse({"-go", "-red", "-blue", "-size", "1", "-name", "x"}));
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
