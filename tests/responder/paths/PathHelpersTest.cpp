#include "responder/paths/PathHelpers.h"

#include "tests/support/DescriptorLimit.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Rows.h"
#include "tests/support/Skipping.h"
#include "tests/support/StandIns.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Watchdog.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;

constexpr uid_t ordinaryUser = 65534;

/// A function from text to text, texts, and what it makes of each.
using Examples = Row<std::string (*)(const std::string&), std::map<std::string, std::string>>;

class PathHelpersText : public testing::TestWithParam<Examples> {};

TEST_P(PathHelpersText, IsAsExpected) {
    for (const auto& [text, expected] : GetParam().expected) {
        EXPECT_EQ(GetParam().given(text), expected) << "of \"" << text << '"';
    }
}

const Examples examples[] = {
    {"FileNameWithoutSeparatorIsEmpty", getFileName, {{"report", ""}, {"x.tar.gz", ""}, {"", ""}, {".", ""}}},
    {"FileNameOfAPathThatEndsWithItsSeparatorIsEmpty",
     getFileName,
     {{"/tmp/", ""}, {"a\\", ""}, {"/", ""}, {"\\", ""}, {"///", ""}}},
    {"FileNameIsTheTextBehindTheLastSlash",
     getFileName,
     {{"/tmp/report", "report"}, {"a/b/c", "c"}, {"/x", "x"}, {"//x", "x"}}},
    {"FileNameIsCutAtTheLastBackslashOnlyWithoutASlash",
     getFileName,
     {{"C:\\dir\\x", "x"}, {"a\\b/c", "c"}, {"a/b\\c", "b\\c"}, {"a/\\", "\\"}}},
    {"ExtensionBeginsWithTheLastDot",
     getExtension,
     {{"x.tar.gz", ".gz"}, {"x.y", ".y"}, {".profile", ".profile"}, {"/d/x.txt", ".txt"}}},
    {"ExtensionWithoutADotIsEmpty", getExtension, {{"report", ""}, {"/a/b", ""}, {"", ""}}},
    {"ExtensionOfATextThatEndsWithADotIsTheDot", getExtension, {{"x.", "."}, {".", "."}, {"..", "."}}},
    {"ExtensionLooksPastSeparators", getExtension, {{"/d.d/x", ".d/x"}, {"a.b\\c", ".b\\c"}, {"./", "./"}}},
    {"BaseNameIsTheFileNameWithoutItsExtension",
     getBaseName,
     {{"/d/x.tar.gz", "x.tar"}, {"a\\x.y", "x"}, {"/d/x.", "x"}, {"a/b.c\\d", "b"}}},
    {"BaseNameWithoutAnExtensionIsTheFileName",
     getBaseName,
     {{"/d/report", "report"}, {"a\\b", "b"}, {"/d/", ""}}},
    {"BaseNameOfANameThatIsAllExtensionIsEmpty", getBaseName, {{"/d/.profile", ""}, {"/d/.", ""}}},
    {"BaseNameIsTheWholeFileNameWhereTheLastDotIsThatOfADirectory",
     getBaseName,
     {{"/d.d/x", "x"}, {"a.b\\c", "c"}, {"./report", "report"}, {"/d.d/", ""}}},
    {"BaseNameWithoutAnySeparatorIsEmpty", getBaseName, {{"x.tar.gz", ""}, {"report", ""}, {"", ""}}},
    {"DirectoryPartIncludesItsSeparator",
     getDirectoryPart,
     {{"/opt/zn/file", "/opt/zn/"}, {"/opt/zn/", "/opt/zn/"}, {"/x", "/"}, {"a\\b\\c", "a\\b\\"}}},
    {"DirectoryPartPrefersASlashToABackslash", getDirectoryPart, {{"a/b\\c", "a/"}, {"a\\b/c", "a\\b/"}}},
    {"DirectoryPartWithoutSeparatorIsEmpty", getDirectoryPart, {{"report", ""}, {"", ""}}},
    {"DirectoryPartOfOnlySeparatorsIsAllOfThem",
     getDirectoryPart,
     {{"///", "///"}, {"\\\\", "\\\\"}, {"/\\", "/"}}},
    {"LastComponentIsRemovedTogetherWithItsSeparator",
     removeLastComponent,
     {{"/opt/zn/znorb/bin", "/opt/zn/znorb"}, {"/opt/zn/", "/opt/zn"}, {"/x", ""}, {"C:\\a\\b", "C:\\a"}}},
    {"LastComponentIsCutAtTheLastSlashOnlyWithoutABackslash",
     removeLastComponent,
     {{"C:\\dir/sub\\x", "C:\\dir/sub"}, {"a\\b/c", "a"}, {"a/b\\c", "a/b"}}},
    {"LastComponentOfATextWithoutSeparatorIsTheWholeTextAndStays",
     removeLastComponent,
     {{"name", "name"}, {"", ""}, {"x.y", "x.y"}}},
    {"LastComponentOfOnlySeparatorsIsTheLastOfThem",
     removeLastComponent,
     {{"/", ""}, {"///", "//"}, {"\\", ""}, {"\\/", ""}, {"/\\", "/"}}},
    {"TrailingSeparatorsOfEitherKindAreRemoved",
     removeTrailingSeparators,
     {{"/a/b//\\", "/a/b"}, {"a/", "a"}, {"a\\", "a"}, {"a\\/\\/", "a"}, {"/a\\b/", "/a\\b"}}},
    {"TrailingSeparatorsAreRemovedWhereThereIsNothingElse",
     removeTrailingSeparators,
     {{"///", ""}, {"\\", ""}, {"/\\/", ""}, {"", ""}}},
    {"TrailingSeparatorsMayBeAbsent",
     removeTrailingSeparators,
     {{"/a/b", "/a/b"}, {"name", "name"}, {"/a/b ", "/a/b "}, {"/a/b~", "/a/b~"}}},
    {"EscapedTextHasEveryBackslashDoubledAndNothingElse",
     escapeBackslashes,
     {{"", ""},
      {"/opt/zn", "/opt/zn"},
      {"\\", "\\\\"},
      {"\\\\", "\\\\\\\\"},
      {"C:\\a\\b", "C:\\\\a\\\\b"},
      {"\\\"%\n", "\\\\\"%\n"},
      {{"\0\\\0", 3}, {"\0\\\\\0", 4}}}},
};

INSTANTIATE_TEST_SUITE_P(PathHelpers, PathHelpersText, testing::ValuesIn(examples), rowName);

TEST(PathHelpers, NulBytesInPathsAreBytesLikeOthers) {
    const std::string name("c\0d.e", 5);
    const std::string directory("a\0b", 3);
    const std::string path = directory + "/" + name;
    EXPECT_EQ(removeTrailingSeparators(path + "/"), path);
    EXPECT_EQ(removeLastComponent(path), directory);
    EXPECT_EQ(getDirectoryPart(path), directory + "/");
    EXPECT_EQ(getFileName(path), name);
    EXPECT_EQ(getExtension(path), ".e");
    EXPECT_EQ(getBaseName(path), name.substr(0, 3));
}

TEST(PathHelpers, OnlyTheFirstOccurrenceIsReplacedWhereverItStandsAndByWhateverBytes) {
    struct Replacement {
        std::string text;
        std::string find;
        std::string replacement;
        std::string expected;
    };
    const std::string longer(1000, 'x');
    const Replacement replacements[] = {
        {"%A% and %A%", "%A%", "x", "x and %A%"},
        {"aaa", "a", "b", "baa"},
        {"%A%b", "%A%", "x", "xb"},
        {"b%A%b", "%A%", "x", "bxb"},
        {"b%A%", "%A%", "x", "bx"},
        {"%A%", "%A%", "x", "x"},
        {"%a% %A", "%A%", "x", "%a% %A"},
        {"", "%A%", "x", ""},
        {"a%A%b", "%A%", "", "ab"},
        {"a%A%b", "%A%", longer, "a" + longer + "b"},
        {"%A%", "%A%", "[%A%]", "[%A%]"},
        {{"a\0%A%", 5}, "%A%", {"\0x", 2}, {"a\0\0x", 4}},
        {{"a\0b", 3}, {"\0", 1}, "-", "a-b"},
    };
    for (const Replacement& row : replacements) {
        std::string text = row.text;
        replaceFirst(text, row.find, row.replacement);
        EXPECT_EQ(text, row.expected) << row.text;
    }
}

class PathHelpersFileTest : public testing::Test {
protected:
    PathHelpersFileTest() {
        writeFile(m_file, "content");
        EXPECT_EQ(mkdir(m_directory.c_str(), 0755), 0);
        EXPECT_EQ(mkfifo(m_fifo.c_str(), 0644), 0);
    }

    /// A link to the target, at a path of its own.
    std::string linkTo(const std::string& target) {
        const std::string path = m_folder / ("link" + std::to_string(++m_links));
        EXPECT_EQ(symlink(target.c_str(), path.c_str()), 0);
        return path;
    }

    TemporaryFolder m_folder;
    const std::string m_file = m_folder / "file";
    const std::string m_directory = m_folder / "directory";
    const std::string m_fifo = m_folder / "fifo";
    const std::string m_absent = m_folder / "absent";

private:
    unsigned m_links = 0;
};

TEST_F(PathHelpersFileTest, EachPathIsARegularFileOrADirectoryOrNeither) {
    struct Kind {
        const char* name;
        std::string path;
        bool isRegular;
        bool isDirectory;
    };
    const Kind kinds[] = {
        {"a file", m_file, true, false},
        {"a link to a file", linkTo(m_file), true, false},
        {"a directory", m_directory, false, true},
        {"a directory with a slash", m_directory + "/", false, true},
        {"a link to a directory", linkTo(m_directory), false, true},
        {"a FIFO", m_fifo, false, false},
        {"a device, although it can be read", "/dev/null", false, false},
        {"nothing", m_absent, false, false},
        {"a link to nothing", linkTo(m_absent), false, false},
        {"an empty path", "", false, false},
        {"a file with a slash", m_file + "/", false, false},
    };
    const ZNORBTEST::Watchdog watchdog(60); // a FIFO waits for its writer
    for (const Kind& kind : kinds) {
        EXPECT_EQ(isRegularFile(kind.path), kind.isRegular) << kind.name;
        EXPECT_EQ(isDirectory(kind.path), kind.isDirectory) << kind.name;
        EXPECT_EQ(isReadableFile(kind.path), kind.isRegular) << kind.name;
    }
}

TEST_F(PathHelpersFileTest, FileWithoutReadPermissionIsNotReadable) {
    constexpr int noSecondUser = 9;
    ASSERT_EQ(chmod(m_folder.path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(m_file.c_str(), 0000), 0);
    const ProcessEnd end = endOfForked([this]() noexcept {
        if (geteuid() == 0 && setresuid(ordinaryUser, ordinaryUser, ordinaryUser) != 0) {
            return noSecondUser;
        }
        return isRegularFile(m_file) && !isReadableFile(m_file) ? 0 : 1;
    });
    ZNORB_SKIP_IF(end == exitedWith(noSecondUser)) << "no second user in this sandbox";
    EXPECT_EQ(end, exitedWith(0));
}

TEST_F(PathHelpersFileTest, ReadableFileIsClosedAgain) {
    const int before = lowestFreeDescriptor();
    EXPECT_TRUE(isReadableFile(m_file));
    EXPECT_EQ(lowestFreeDescriptor(), before);
}

TEST_F(PathHelpersFileTest, DirectoryIsCreatedWithMode755LessenedByTheUmask) {
    for (const mode_t mask : {0U, 0077U}) {
        const mode_t before = umask(mask);
        EXPECT_TRUE(createDirectory(m_absent));
        (void)umask(before);
        EXPECT_TRUE(isDirectory(m_absent));
        EXPECT_EQ(modeOf(m_absent), 0755U & ~mask);
        EXPECT_EQ(rmdir(m_absent.c_str()), 0);
    }
}

TEST_F(PathHelpersFileTest, WhateverExistsCountsAsCreatedAndStaysAsItIs) {
    ASSERT_EQ(chmod(m_directory.c_str(), 0700), 0);
    EXPECT_TRUE(createDirectory(m_directory));
    EXPECT_TRUE(createDirectory(m_directory + "/"));
    EXPECT_EQ(modeOf(m_directory), 0700U);
    EXPECT_TRUE(createDirectory(m_file));
    EXPECT_TRUE(createDirectory(linkTo(m_absent)));
    EXPECT_EQ(readFile(m_file), "content");
    EXPECT_FALSE(exists(m_absent));
}

TEST_F(PathHelpersFileTest, DirectoryThatCannotBeCreatedIsAFailureAlsoAfterOneThatExisted) {
    EXPECT_TRUE(createDirectory(m_directory));
    EXPECT_FALSE(createDirectory(m_absent + "/below")) << "no parent";
    EXPECT_FALSE(createDirectory(m_file + "/below")) << "the parent is no directory";
    EXPECT_FALSE(createDirectory(""));
    EXPECT_FALSE(createDirectory(m_folder / std::string(5000, 'x')));
}

TEST_F(PathHelpersFileTest, DirectoryThatTheSystemRefusesIsAFailureUnlessItIsThere) {
    for (const int error : {EROFS, EACCES, ENOSPC, EEXIST}) {
        const FailingCall<mkdir> refusal(error);
        EXPECT_EQ(createDirectory(m_absent), error == EEXIST) << strerrorname_np(error);
    }
}

} // namespace
