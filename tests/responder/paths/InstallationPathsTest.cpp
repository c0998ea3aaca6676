#include "responder/paths/InstallationPaths.h"

#include "tests/responder/paths/ExecutableLink.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/ProcessEnd.h"
#include "tests/support/Rows.h"
#include "tests/support/Skipping.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;

constexpr const char* htmlVariable = "ZNORB_HTML_PATH";

/// Any path of this length; it begins with "/" and holds no other separator.
std::string componentOf(std::size_t length) {
    return "/" + std::string(length - 1, 'd');
}

/// The directory of an executable whose link reads as told.
std::string binaryPathOf(const std::string& link, const std::string& subdirectory = "") {
    const ExecutableLink staged(link);
    return getBinaryPath("znorb", subdirectory);
}

class InstallationPathsTest : public testing::Test {
protected:
    void SetUp() override { (void)unsetenv(htmlVariable); }
    void TearDown() override { (void)unsetenv(htmlVariable); }

    static void setHtmlPath(const std::string& value) {
        ASSERT_EQ(setenv(htmlVariable, value.c_str(), 1), 0);
    }
};

/// What the executable's link reads as, a subdirectory that is asked for, and the binary path.
struct Link {
    const char* name;
    std::string link;
    std::string subdirectory;
    std::string path;

    friend void PrintTo(const Link& row, std::ostream* stream) { *stream << row.name; }
};

class BinaryPath : public InstallationPathsTest, public testing::WithParamInterface<Link> {};

TEST_P(BinaryPath, IsTheDirectoryOfTheExecutable) {
    EXPECT_EQ(binaryPathOf(GetParam().link, GetParam().subdirectory), GetParam().path);
}

const std::string longName = std::string(80, 'd');
const std::string above = componentOf(40);

// The link is read into 80 bytes, and its last component is removed from what fits.
const Link links[] = {
    {"OfTheUsualInstallation", "/opt/zn/znorb/bin/znorbresponder", "", "/opt/zn/znorb/bin"},
    {"SubdirectoryBehindASlash", "/srv/app/bin/program", "plugins", "/srv/app/bin/plugins"},
    {"SubdirectoryOfSeveralComponents", "/srv/app/bin/program", "a/b/", "/srv/app/bin/a/b/"},
    {"SubdirectoryWithASlashOfItsOwn", "/srv/app/bin/program", "/rooted", "/srv/app/bin//rooted"},
    {"CutAtABackslashThoughSlashesFollow", "/opt/a\\b/bin/program", "", "/opt/a"},
    {"CutAtTheLastBackslash", "C:\\app\\bin\\program", "", "C:\\app\\bin"},
    {"CutAtTheOnlyBackslash", "C:\\app/bin/program", "", "C:"},
    {"LinkWithoutASeparator", "program", "", "program"},
    {"LinkWithoutASeparatorAndASubdirectory", "program", "sub", "program/sub"},
    {"TrailingSlashes", "/opt/zn//program", "", "/opt/zn"},
    {"TrailingSeparatorsOfEitherKind", "/opt/zn\\/\\program", "", "/opt/zn"},
    {"RootDirectory", "/program", "", ""},
    {"SubdirectoryOfTheRootDirectory", "/program", "sub", "/sub"},
    {"RootDirectoryOfManySlashes", "///program", "", ""},
    {"EmptyLink", "", "", ""},
    {"LinkOfOneByte", "p", "", "p"},
    {"EmptyLinkAndASubdirectory", "", "sub", "/sub"},
    {"LinkOf78Bytes", componentOf(76) + "/p", "", componentOf(76)},
    {"LinkOf79Bytes", componentOf(77) + "/p", "", componentOf(77)},
    {"LinkOf80Bytes", componentOf(78) + "/p", "", componentOf(78)},
    {"NestedLinkOf78Bytes", "/a" + componentOf(74) + "/p", "", "/a" + componentOf(74)},
    {"NestedLinkOf79Bytes", "/a" + componentOf(75) + "/p", "", "/a" + componentOf(75)},
    {"NestedLinkOf80Bytes", "/a" + componentOf(76) + "/p", "", "/a" + componentOf(76)},
    {"DirectoryThatIsCut", above + componentOf(60) + "/program", "", above},
    {"DirectoryOf80BytesLosesItsEnd", above + componentOf(40) + "/p", "", above},
    {"DirectoryOf79BytesKeepsItsSeparator", above + componentOf(39) + "/p", "", above + componentOf(39)},
    {"OnlyTheNameIsCut", above + "/" + std::string(5000, 'p'), "", above},
    {"OnlySeparatorBeyondTheCut", longName + "/program", "", longName},
    {"OnlySeparatorBeyondTheCutAndASubdirectory", longName + "/program", "sub", longName + "/sub"},
};

INSTANTIATE_TEST_SUITE_P(InstallationPaths, BinaryPath, testing::ValuesIn(links), rowName);

TEST_F(InstallationPathsTest, BinaryPathOfTheRunningProgramIsReadFromItsLink) {
    const std::string program = realExecutable().substr(0, 80);
    EXPECT_EQ(getBinaryPath("znorb", ""), program.substr(0, program.rfind('/')));
}

TEST_F(InstallationPathsTest, LinkIsReadIntoExactly80BytesAndThenTheProductDoesNotMatter) {
    const ExecutableLink link("/srv/app/bin/program");
    EXPECT_EQ(getBinaryPath("ris", ""), "/srv/app/bin");
    EXPECT_EQ(getBinaryPath("", ""), "/srv/app/bin");
    EXPECT_EQ(link.sizeAskedFor(), 80U);
}

TEST_F(InstallationPathsTest, LinkThatCannotBeReadGivesAnEmptyDirectory) {
    for (const int error : {EACCES, EINVAL, ENOENT, EIO}) {
        const ExecutableLink link("/srv/app/bin/program", error);
        EXPECT_EQ(getBinaryPath("znorb", ""), "");
        EXPECT_EQ(getBinaryPath("znorb", "sub"), "/sub");
    }
}

// ---- programs that are really started from a path of some length -----------------------------------

constexpr const char* probeEnding = "/path-probe";

/// This program, started under the probe's name, tells its directory and ends, before main.
bool becomeProbeIfAsked() {
    const std::string program = realExecutable();
    if (!program.ends_with(probeEnding)) {
        return false;
    }
    const std::string answer = getBinaryPath("znorb", "") + "\n";
    const bool told =
        write(STDOUT_FILENO, answer.data(), answer.size()) == static_cast<ssize_t>(answer.size());
    _exit(told ? EXIT_SUCCESS : EXIT_FAILURE);
}

[[maybe_unused]] const bool s_isProbe = becomeProbeIfAsked();

/// Copies of this program below /opt/zn, where lengths are known; one copy, linked where it is wanted.
class InstallationPathsProbeTest : public InstallationPathsTest {
protected:
    static constexpr const char* root = "/opt/zn/probe";

    void SetUp() override {
        ASSERT_FALSE(exists(root));
        copyProgram(realExecutable(), std::string(root) + "/program");
    }
    void TearDown() override { (void)std::filesystem::remove_all(root); }

    /// What a probe in this directory answers.
    static std::string answerFrom(const std::string& directory) {
        std::filesystem::create_directories(directory);
        std::filesystem::create_hard_link(std::string(root) + "/program", directory + probeEnding);
        const ProgramResult result = runProgram({.program = directory + probeEnding});
        EXPECT_EQ(result.end, exitedWith(0)) << result.errors;
        return result.output;
    }

    /// A directory below the root so that the probe's path has this length.
    static std::string directoryForLength(std::size_t length) {
        const std::string outer = std::string(root) + "/outer";
        return outer + componentOf(length - outer.size() - std::string(probeEnding).size());
    }
};

TEST_F(InstallationPathsProbeTest, ProgramFindsItsDirectoryUpTo80BytesAndBehindThemWhereOnlyItsNameIsCut) {
    for (const std::size_t length : {79U, 80U, 81U}) {
        const std::string directory = directoryForLength(length);
        ASSERT_EQ(directory.size() + std::string(probeEnding).size(), length);
        EXPECT_EQ(answerFrom(directory), directory + "\n");
    }
}

TEST_F(InstallationPathsProbeTest, ProgramWhoseDirectoryIsCutFindsTheDirectoryAbove) {
    for (const std::size_t length : {91U, 200U}) {
        EXPECT_EQ(answerFrom(directoryForLength(length)), std::string(root) + "/outer\n") << length;
    }
}

// ---- without a proc file system ----------------------------------------------------------------------

/// Covers /proc with an empty file system, for the calling process only. False when that is not allowed.
bool coverProc() noexcept {
    return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("tmpfs", "/proc", "tmpfs", 0, "mode=0755") == 0;
}

struct Answer {
    char text[256];
};

/// Expects this answer of a child whose /proc is empty but for what `prepare` puts there.
void expectWithoutProc(
    const std::function<std::string()>& question, const std::string& expected,
    const std::function<void()>& prepare = []() {}) {
    constexpr int noMountsStatus = 9;
    const SharedReport<Answer> report;
    const ProcessEnd end = endOfForked([&question, &prepare, &report]() noexcept {
        if (!coverProc()) {
            return noMountsStatus;
        }
        prepare();
        (void)question().copy(report->text, sizeof report->text - 1);
        return 0;
    });
    ZNORB_SKIP_IF(end == exitedWith(noMountsStatus)) << "no mounts are allowed here";
    EXPECT_EQ(end, exitedWith(0));
    EXPECT_EQ(report->text, expected);
}

TEST_F(InstallationPathsTest, WithoutProcThePathsAreThoseOfTheUsualInstallation) {
    expectWithoutProc([]() { return getBinaryPath("znorb", ""); }, "/opt/zn/znorb/bin");
    expectWithoutProc([]() { return getBinaryPath("ris", ""); }, "/opt/zn/ris/bin");
    expectWithoutProc([]() { return getBinaryPath("znorb", "sub"); }, "/opt/zn/znorb/bin/sub");
    expectWithoutProc([]() { return getHtmlPath("znorb", ""); }, "/opt/zn/znorb/HTML/ORB1");
}

TEST_F(InstallationPathsTest, LinkThatIsNoLinkGivesAnEmptyDirectory) {
    const auto makeFile = []() {
        for (const std::string& directory :
             {"/proc/" + std::to_string(getpid()), std::string("/proc/self")}) {
            (void)mkdir(directory.c_str(), 0755);
            (void)close(open((directory + "/exe").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
        }
    };
    expectWithoutProc([]() { return getBinaryPath("znorb", "") + "," + getBinaryPath("znorb", "sub"); },
                      ",/sub", makeFile);
}

// ---- the HTML directory ------------------------------------------------------------------------------

class InstallationPathsHtmlTest : public InstallationPathsTest {
protected:
    ExecutableLink m_link = ExecutableLink("/opt/zn/znorb/bin/znorbresponder");
};

TEST_F(InstallationPathsHtmlTest, VariantIsThatOfTheProduct) {
    EXPECT_EQ(getHtmlPath("znorb", ""), "/opt/zn/znorb/HTML/ORB1");
    EXPECT_EQ(getHtmlPath("ris", ""), "/opt/zn/znorb/HTML/RIS");
    for (const std::string product : {"", "ZNORB", "Ris", "znorb1", "zn"}) {
        EXPECT_EQ(getHtmlPath(product, ""), "/opt/zn/znorb/HTML/") << product;
    }
}

TEST_F(InstallationPathsHtmlTest, VariableThatIsSetIsTheWholeResult) {
    for (const std::string value : {"/srv/html", "/srv/html/", "relative", "/", "C:\\html\\", " "}) {
        setHtmlPath(value);
        EXPECT_EQ(getHtmlPath("znorb", ""), value);
        EXPECT_EQ(getHtmlPath("ris", ""), value) << "whatever the product";
    }
}

TEST_F(InstallationPathsHtmlTest, SubPathFollowsBehindOneSlashAlsoTheVariableUnlessThatIsEmpty) {
    struct SubPath {
        std::string variable;
        std::string subPath;
        std::string path;
    };
    const SubPath subPaths[] = {
        {"", "", "/opt/zn/znorb/HTML/ORB1"},
        {"", "a/b.htm", "/opt/zn/znorb/HTML/ORB1/a/b.htm"},
        {"", "/a/b.htm", "/opt/zn/znorb/HTML/ORB1/a/b.htm"},
        {"", "\\a", "/opt/zn/znorb/HTML/ORB1/\\a"},
        {"", "/", "/opt/zn/znorb/HTML/ORB1/"},
        {"/srv/html", "a", "/srv/html/a"},
        {"/srv/html", "/a", "/srv/html/a"},
        {"/srv/html/", "a", "/srv/html//a"}, // the value is kept as it is
    };
    for (const SubPath& row : subPaths) {
        setHtmlPath(row.variable);
        EXPECT_EQ(getHtmlPath("znorb", row.subPath), row.path) << row.variable;
        if (row.variable.empty()) {
            (void)unsetenv(htmlVariable);
            EXPECT_EQ(getHtmlPath("znorb", row.subPath), row.path) << "unset";
        }
    }
}

TEST_F(InstallationPathsTest, HtmlPathWithoutTheVariableLiesBesideTheExecutablesDirectory) {
    const Row<std::string, std::string> executables[] = {
        {"usual", "C:\\znorb\\bin\\program", "C:\\znorb/HTML/ORB1/x"},
        {"an empty directory", "", "/HTML/ORB1/x"},
        {"a top directory", "/bin/program", "/HTML/ORB1/x"},
    };
    for (const auto& executable : executables) {
        const ExecutableLink link(executable.given);
        EXPECT_EQ(getHtmlPath("znorb", "x"), executable.expected) << executable.name;
        EXPECT_EQ(getHtmlPath("znorb", "") + "/x", executable.expected) << executable.name;
    }
}

} // namespace
