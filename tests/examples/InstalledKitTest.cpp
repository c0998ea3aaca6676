/// What an author of clients and requesters gets: the header and znorb.pc as they are installed, the examples
/// built with them and run by the installed daemon.

#include "tests/sandbox/Processes.h"
#include "tests/support/DaemonDriver.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Matchers.h"
#include "tests/support/Results.h"
#include "tests/support/SharedTable.h"
#include "tests/support/ShellScript.h"
#include "tests/support/Skipping.h"
#include "tests/support/TemporaryFolder.h"

#include <unistd.h>

namespace {

using namespace ZNORBTEST;

constexpr Milliseconds compilerBound{60000};

const std::string sourceDirectory = ZNORB_SOURCE_DIRECTORY;

std::string withoutNewline(std::string text) {
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

/// An installation below a temporary folder, and the examples on their own in another folder.
class InstalledKit : public testing::Test {
protected:
    InstalledKit() {
        for (const char* name : {"znorbclient.c", "znorbrequestor.c", "znorbrequestor.sh"}) {
            writeFile(m_work / name, readFile(sourceDirectory + "/examples/" + name), 0755);
        }
    }

    void SetUp() override { install("--prefix " + m_root.path()); }

    /// One at a time: an installation writes into the build folder as well.
    void install(const std::string& where, const std::string& setting = "") const {
        const std::string build = ZNORB_BUILD_DIRECTORY;
        const std::string command = setting + " flock " + build + "/install.lock cmake --install " + build;
        const ProgramResult result = runProgram(shellScript("", command + " " + where), compilerBound);
        ASSERT_EQ(result.end, exitedWith(0)) << result.output << result.errors;
    }

    /// Runs a script among the examples, with the installed znorb.pc alone.
    [[nodiscard]] ProgramResult runInWork(const std::string& script) const {
        Launch launch = shellScript("", script);
        launch.workingDirectory = m_work.path();
        launch.environment = {"PKG_CONFIG_LIBDIR=" + m_root.path() + "/lib/pkgconfig", "PKG_CONFIG_PATH="};
        return runProgram(launch, compilerBound);
    }

    [[nodiscard]] std::string ask(const std::string& question) const {
        const ProgramResult result = runInWork("pkg-config " + question + " znorb");
        EXPECT_EQ(result.end, exitedWith(0)) << result.errors;
        return withoutNewline(result.output);
    }

    /// With as many complaints as a compiler has.
    void buildExamples(const std::string& compiler) const {
        for (const char* name : {"znorbclient", "znorbrequestor"}) {
            const ProgramResult result =
                runInWork(compiler + " -std=c11 -pedantic-errors -Wall -Wextra -Werror -o " + name + " " +
                          name + ".c $(pkg-config --cflags znorb)");
            EXPECT_EQ(result.end, exitedWith(0)) << compiler << ": " << result.errors;
        }
    }

    /// A living daemon of the installation serves the examples that were built.
    void expectTheExamplesServed() {
        for (const char* name : {"znorbclient", "znorbrequestor"}) {
            (void)unlink((m_driver.directory() + "/" + name).c_str());
            copyProgram(m_work / name, m_driver.directory() + "/" + name);
        }
        ASSERT_TRUE(m_driver.startServing());
        const ProgramResult reply = runInWork("./znorbrequestor 'GET|en'");
        EXPECT_EQ(reply.output, "0\n");
        ASSERT_TRUE(DaemonDriver::waitForClient(0));
        const znorb_shared_table table = sharedTable();
        EXPECT_EQ(identifierOf(table.entries[0]),
                  "znorbclient-" + std::to_string(m_driver.clients().at(0)) + " en");
        EXPECT_EQ(m_driver.run({"-stop"}).output, "The ZN Orbisan daemon has stopped.\n");
        EXPECT_TRUE(waitUntil([this]() { return m_driver.clients().empty(); }));
    }

    const TemporaryFolder m_root;
    const TemporaryFolder m_work;
    DaemonDriver m_driver{m_root / "opt/zn/znorb/bin"}; ///< the installation replaces its executable
};

TEST_F(InstalledKit, IsFoundThroughPkgConfigWithItsVersionAndItsProgramDirectory) {
    EXPECT_EQ(ask("--modversion"), ZNORB_VERSION);
    const std::string flags = ask("--cflags");
    ASSERT_THAT(flags, StartsWith("-I"));
    EXPECT_EQ(readFile(flags.substr(2, flags.find(' ') - 2) + "/znorb/shared_table.h"),
              readFile(sourceDirectory + "/include/znorb/shared_table.h"));
    EXPECT_TRUE(exists(ask("--variable=programdir") + "/znorbresponder"));
    EXPECT_EQ(ask("--libs"), "");
}

TEST_F(InstalledKit, IsFoundInAStagingFolderAsWell) {
    const TemporaryFolder stage;
    install("--prefix /", "DESTDIR=" + stage.path());
    const std::string packages = stage.path() + "/usr/share/pkgconfig";
    const ProgramResult result =
        runInWork("PKG_CONFIG_SYSROOT_DIR=" + stage.path() + " PKG_CONFIG_LIBDIR=" + packages +
                  " pkg-config --keep-system-cflags --cflags znorb");
    ASSERT_THAT(result.output, HasSubstr(stage.path())) << result.errors;
    const std::string directory = withoutNewline(result.output).substr(2);
    EXPECT_TRUE(exists(directory.substr(0, directory.find(' ')) + "/znorb/shared_table.h"));
}

TEST_F(InstalledKit, IsWhatTheExamplesNeedToBeBuilt) {
    ZNORB_SKIP_IF(exists("/usr/include/znorb/shared_table.h")) << "this machine has a header of its own";
    EXPECT_THAT(runInWork("cc -fsyntax-only znorbclient.c").errors, HasSubstr("znorb/shared_table.h"));
}

TEST_F(InstalledKit, HasToolsThatFindTheInstalledDaemon) {
    const std::string clean = m_root / "sbin/znorb-clean";
    const std::string wait = m_root / "sbin/znorb-wait -t 0";
    EXPECT_EQ(runInWork(clean).end, exitedWith(0));
    EXPECT_EQ(runInWork(wait).end, exitedWith(2));
    ASSERT_TRUE(m_driver.startServing());
    EXPECT_EQ(runInWork(wait).end, exitedWith(0));
    EXPECT_EQ(runInWork(clean).end, exitedWith(2));
    EXPECT_EQ(runInWork(m_root / "sbin/znorbresponder -stop").output, "The ZN Orbisan daemon has stopped.\n");
}

TEST_F(InstalledKit, BuildsExamplesWithGccThatTheInstalledDaemonServes) {
    buildExamples("gcc");
    expectTheExamplesServed();
}

TEST_F(InstalledKit, BuildsExamplesWithClangThatTheInstalledDaemonServes) {
    buildExamples("clang");
    expectTheExamplesServed();
}

/// The line of docs/PROTOCOL.md that begins so, without its indentation.
std::string lineOfTheProtocol(const std::string& start) {
    const std::string document = readFile(sourceDirectory + "/docs/PROTOCOL.md");
    const auto begin = document.find(" " + start);
    EXPECT_NE(begin, std::string::npos) << start;
    return begin == std::string::npos ? ""
                                      : document.substr(begin + 1, document.find('\n', begin) - begin - 1);
}

class PythonKit : public InstalledKit {
protected:
    void SetUp() override {
        ZNORB_SKIP_IF(runProgram(shellScript("", "command -v python3")).end != exitedWith(0))
            << "Python is not installed";
        InstalledKit::SetUp();
    }
};

TEST_F(PythonKit, HasExamplesThatTheInstalledDaemonServes) {
    (void)unlink(m_driver.client().c_str());
    const std::string examples = m_root / "share/doc/znorb/examples/";
    const std::string installation = lineOfTheProtocol("install -m 755 znorbclient.py");
    ASSERT_EQ(runInWork("cd " + examples + "\n" + installation).end, exitedWith(0));
    ASSERT_TRUE(m_driver.startServing());
    EXPECT_EQ(runInWork("python3 " + examples + "znorbrequestor.py 'GET|en'").output, "0\n");
    ASSERT_TRUE(DaemonDriver::waitForClient(0));
    const std::string identifier = identifierOf(readSharedTable()->entries[0]);
    ASSERT_THAT(identifier, testing::MatchesRegex("znorbclient-[0-9]+ en"));
    EXPECT_EQ(m_driver.run({"-stop"}).output, "The ZN Orbisan daemon has stopped.\n");
    const pid_t client = std::stoi(identifier.substr(identifier.find('-') + 1));
    EXPECT_TRUE(waitUntil([client]() { return programOf(client).empty(); }));
}

TEST_F(PythonKit, WritesThePortAsTheProtocolSays) {
    const std::string store = lineOfTheProtocol("ctypes.c_uint16");
    const ProgramResult result = runInWork("python3 -c '\nimport ctypes\nimport sys\n"
                                           "table, index, port = bytearray(8196), 2, 40001\n" +
                                           store +
                                           "\nassert table[384:386] == port.to_bytes(2, sys.byteorder)\n"
                                           "assert table.count(0) == len(table) - 2'");
    EXPECT_EQ(result.end, exitedWith(0)) << result.errors;
}

TEST_F(InstalledKit, IsUsedAsTheProtocolSays) {
    const ProgramResult result = runInWork(lineOfTheProtocol("cc -std=c11"));
    EXPECT_EQ(result.end, exitedWith(0)) << result.errors;
    EXPECT_TRUE(exists(m_work / "znorbclient"));
}

class ShellRequester : public InstalledKit {
protected:
    void SetUp() override {
        ZNORB_SKIP_IF(runProgram(shellScript("", "nc -h 2>&1 | grep -q OpenBSD")).end != exitedWith(0))
            << "OpenBSD's nc is not installed";
    }
};

TEST_F(ShellRequester, PrintsTheReplyWithANewlineAndReturnsZero) {
    ASSERT_TRUE(m_driver.startServing());
    for (const std::string number : {"0", "1"}) {
        EXPECT_THAT(runInWork("./znorbrequestor.sh 'GET|en'"), resultIs(exitedWith(0), number + "\n"));
    }
}

TEST_F(ShellRequester, EndsTheDaemonWithQuit) {
    ASSERT_TRUE(m_driver.startServing());
    EXPECT_EQ(runInWork("./znorbrequestor.sh QUIT").output, "0\n");
    EXPECT_EQ(m_driver.waitForDaemon(), exitedWith(255));
}

TEST_F(ShellRequester, SendsEveryByteAsItIs) {
    ASSERT_TRUE(m_driver.startServing());
    const std::string language = R"(%s\n \\ -e "x" é)";
    EXPECT_EQ(runInWork("./znorbrequestor.sh 'GET|" + language + "'").output, "0\n");
    ASSERT_TRUE(DaemonDriver::waitForClient(0));
    EXPECT_THAT(identifierOf(readSharedTable()->entries[0]), EndsWith(" " + language));
}

TEST_F(ShellRequester, ReturnsOneWithoutADaemon) {
    EXPECT_THAT(runInWork("./znorbrequestor.sh PRINT"), resultIs(exitedWith(1), "", HasSubstr("no reply")));
}

TEST_F(ShellRequester, ReturnsOneWhenTheReplyDoesNotComeInTime) {
    ASSERT_TRUE(m_driver.startServing());
    const LocalConnection silent = LocalConnection::toPath(socketPath); // holds the others up
    ASSERT_TRUE(silent.isConnected());
    EXPECT_EQ(runInWork("./znorbrequestor.sh PRINT 1").end, exitedWith(1));
}

TEST_F(ShellRequester, ReturnsTwoForAWrongCommandLine) {
    for (const std::string arguments : {"", "''", "a 1 2", "$(printf %01025d 0)"}) {
        EXPECT_EQ(runInWork("./znorbrequestor.sh " + arguments).end, exitedWith(2)) << arguments;
    }
}

} // namespace
