
#include "tests/responder/webconsole/WebConsoleRegistrationFixture.h"
#include "tests/support/DescriptorLimit.h"

#include <utility>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;

TEST_F(WebConsoleRegistrationTest, WithoutAConsoleOrOneOfItsDirectoriesNothingIsDone) {
    std::filesystem::remove_all(console);
    expectNoConsole();
    EXPECT_FALSE(exists(console));
    for (const std::string& path : {console + "/webapp", console + "/data", documents}) {
        SCOPED_TRACE(path);
        StagedInstallation::installConsole();
        std::filesystem::remove_all(path);
        expectNoConsole();
    }
    std::filesystem::remove_all(console);
    std::filesystem::create_directory(console);
    expectNoConsole();
}

TEST_F(WebConsoleRegistrationTest, FileInAConsoleDirectorysPlaceIsNoConsole) {
    for (const std::string& path : {console, console + "/webapp", console + "/data", documents}) {
        StagedInstallation::installConsole();
        std::filesystem::remove_all(path);
        writeFile(path, "no directory");
        expectNoConsole();
        std::filesystem::remove(path);
    }
}

TEST_F(WebConsoleRegistrationTest, ConsoleDirectoriesMayBeLinks) {
    for (const std::string& path : {console + "/webapp", documents}) {
        std::filesystem::rename(path, path + ".real");
        std::filesystem::create_directory_symlink(path + ".real", path);
    }
    EXPECT_TRUE(registerWebConsole());
    expectAllPublished();
}

TEST_F(WebConsoleRegistrationTest, EverythingIsPublishedByteForByteWithItsModeAndNothingElseIsWritten) {
    std::map<std::string, mode_t> expected = treeOf(console);
    const std::map<std::string, mode_t> installation = treeOf(StagedInstallation::root);
    EXPECT_TRUE(registerWebConsole());
    expected["webapp/znorb.xml"] = 0644;
    expected["data/htdocs/ZNORB"] = 0755;
    expected["data/htdocs/ZNORB/chp.htm"] = 0644;
    expected["data/htdocs/ZNORB/ipcelmclient.php"] = 0644;
    expected["data/htdocs/ZNORB/bin"] = 0755;
    expected["data/htdocs/ZNORB/bin/znorbrequestor"] = 0755;
    EXPECT_EQ(treeOf(console), expected);
    EXPECT_EQ(treeOf(StagedInstallation::root), installation) << "the sources are left alone";
    expectAllPublished();
}

TEST_F(WebConsoleRegistrationTest, OnlyTheEntryScriptIsFilledAsATemplateAndPublishedAnewEachTime) {
    writeFile(descriptorSource, filled);
    writeFile(pageSource, filled);
    writeFile(requestorSource, filled);
    EXPECT_TRUE(registerWebConsole());
    EXPECT_EQ(readFile(descriptor), filled);
    EXPECT_EQ(readFile(page), filled);
    EXPECT_EQ(readFile(requestor), filled);
    EXPECT_EQ(readFile(entryScript), filledIn);
    writeFile(entryScriptSource, "b");
    EXPECT_TRUE(registerWebConsole());
    EXPECT_EQ(readFile(descriptor), filled);
    EXPECT_EQ(readFile(entryScript), "b");
    EXPECT_EQ(readFile(requestor), filled);
}

TEST_F(WebConsoleRegistrationTest, HtmlPathVariableReachesTheEntryScript) {
    ASSERT_EQ(setenv(htmlVariable, "/srv/html", 1), 0);
    EXPECT_TRUE(registerWebConsole());
    EXPECT_EQ(readFile(entryScript), "bin=[/opt/zn/znorb/bin] html=[/srv/html]");
}

TEST_F(WebConsoleRegistrationTest, ModesDoNotDependOnTheUmask) {
    for (const mode_t mask : {0U, 0002U, 0027U, 0077U, 0777U}) {
        (void)umask(mask);
        EXPECT_TRUE(registerWebConsole());
        expectAllPublished();
        std::filesystem::remove_all(pages);
        std::filesystem::remove(descriptor);
    }
}

TEST_F(WebConsoleRegistrationTest, UmaskIsTheSameAfterwardsAndNoDescriptorStaysOpen) {
    (void)umask(0137);
    const int before = lowestFreeDescriptor();
    EXPECT_TRUE(registerWebConsole());
    EXPECT_EQ(umask(0137), 0137U);
    EXPECT_EQ(lowestFreeDescriptor(), before);
    std::filesystem::remove_all(console);
    EXPECT_FALSE(registerWebConsole());
    EXPECT_EQ(umask(0137), 0137U);
}

TEST_F(WebConsoleRegistrationTest, ExistingFilesAndDirectoriesAreReplacedAndGetTheirModes) {
    const std::pair<mode_t, mode_t> modes[] = {
        {0000U, 0700U},   {0200U, 0700U}, {0600U, 0700U}, {0777U, 0700U}, // of files
        {0644U, 0700U},   {0644U, 0777U}, {0644U, 0111U}, {0644U, 0000U}, // of directories
        {04755U, 01777U},                                                 // special bits
    };
    for (const auto& [ofFiles, ofDirectories] : modes) {
        publishOld(ofFiles, ofDirectories);
        EXPECT_TRUE(registerWebConsole());
        expectAllPublished();
    }
}

TEST_F(WebConsoleRegistrationTest, OtherFilesInTheProductsDirectoriesAreLeftAlone) {
    writeFile(pages + "/other.htm", "other", 0600);
    writeFile(productPrograms + "/other", "other", 0700);
    EXPECT_TRUE(registerWebConsole());
    expectAllPublished();
    EXPECT_EQ(readFile(pages + "/other.htm"), "other");
    EXPECT_EQ(modeOf(pages + "/other.htm"), 0600U);
    EXPECT_EQ(modeOf(productPrograms + "/other"), 0700U);
}

TEST_F(WebConsoleRegistrationTest, SourcesLieBesideTheDirectoryOfTheRunningExecutable) {
    std::filesystem::rename(StagedInstallation::root, "/opt/zn/znorb.moved");
    std::filesystem::create_directories(StagedInstallation::programs);
    {
        const ExecutableLink link("/opt/zn/znorb.moved/bin/znorbresponder");
        EXPECT_TRUE(registerWebConsole());
    }
    std::filesystem::remove_all("/opt/zn/znorb.moved");
    expectPublished(descriptor);
    expectPublished(page);
    EXPECT_EQ(readFile(entryScript), "bin=[/opt/zn/znorb.moved/bin] html=[/opt/zn/znorb.moved/HTML/ORB1]");
    expectPublished(requestor);
}

} // namespace
