/// What the real daemon publishes into an installed web console at its start.

#include "tests/support/DaemonDriver.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Obstacles.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace {

using namespace ZNORBTEST;

constexpr const char* console = "/opt/zn/znwbx";
constexpr const char* pages = "/opt/zn/znwbx/data/htdocs/ZNORB";

class Publication : public testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directories(std::string(console) + "/webapp");
        std::filesystem::create_directories(std::string(console) + "/data/htdocs");
        const std::string sources = "/opt/zn/znorb/WBX/";
        writeFile(sources + "znorb.xml", "<xml>\r\n\0</xml>", 0600);
        writeFile(sources + "chp.htm", "<html/>\n", 0600);
        writeFile(sources + "ipcelmclient.php",
                  "a %ZNORB_BIN_PATH% b %ZNORB_HTML_PATH% c %ZNORB_BIN_PATH% d\n", 0600);
    }
    void TearDown() override {
        std::filesystem::remove_all(console);
        std::filesystem::remove_all("/opt/zn/znorb/WBX");
    }

    DaemonDriver driver;
};

TEST_F(Publication, HappensOnceAtTheStartWithTheRightContentAndModes) {
    ASSERT_TRUE(driver.startServing()); // it listens only after it has published
    const std::string base = pages;
    EXPECT_EQ(readFile(std::string(console) + "/webapp/znorb.xml"), readFile("/opt/zn/znorb/WBX/znorb.xml"));
    EXPECT_EQ(readFile(base + "/chp.htm"), "<html/>\n");
    EXPECT_EQ(readFile(base + "/ipcelmclient.php"),
              "a /opt/zn/znorb/bin b /opt/zn/znorb/HTML/ORB1 c %ZNORB_BIN_PATH% d\n");
    EXPECT_EQ(readFile(base + "/bin/znorbrequestor"), readFile(driver.requestor()));
    EXPECT_EQ(modeOf(std::string(console) + "/webapp/znorb.xml"), 0644U);
    EXPECT_EQ(modeOf(base), 0755U);
    EXPECT_EQ(modeOf(base + "/chp.htm"), 0644U);
    EXPECT_EQ(modeOf(base + "/ipcelmclient.php"), 0644U);
    EXPECT_EQ(modeOf(base + "/bin"), 0755U);
    EXPECT_EQ(modeOf(base + "/bin/znorbrequestor"), 0755U);
}

TEST_F(Publication, ReplacesWhatAnEarlierStartPublished) {
    ASSERT_TRUE(driver.startServing());
    ASSERT_EQ(driver.quit(), exitedWith(255));
    writeFile("/opt/zn/znorb/WBX/chp.htm", "new", 0644);
    ASSERT_TRUE(driver.startServing());
    EXPECT_EQ(readFile(std::string(pages) + "/chp.htm"), "new");
}

TEST_F(Publication, TakesTheHtmlDirectoryFromTheEnvironment) {
    driver.setEnvironment("ZNORB_HTML_PATH=/srv/html\\x");
    ASSERT_TRUE(driver.startServing());
    EXPECT_EQ(readFile(std::string(pages) + "/ipcelmclient.php"),
              "a /opt/zn/znorb/bin b /srv/html\\\\x c %ZNORB_BIN_PATH% d\n");
}

TEST_F(Publication, WritesNothingIntoAConsoleThatIsNotWhole) {
    std::filesystem::remove_all(std::string(console) + "/data/htdocs");
    ASSERT_TRUE(driver.startServing());
    EXPECT_FALSE(exists(std::string(console) + "/webapp/znorb.xml"));
    EXPECT_FALSE(exists(std::string(console) + "/data/htdocs"));
}

TEST_F(Publication, IsNotHeldUpByAFifoInAPagesPlace) {
    ASSERT_EQ(unlink("/opt/zn/znorb/WBX/chp.htm"), 0);
    ASSERT_EQ(mkfifo("/opt/zn/znorb/WBX/chp.htm", 0644), 0);
    ASSERT_TRUE(driver.startServing());
    EXPECT_FALSE(exists(std::string(pages) + "/chp.htm"));
    EXPECT_TRUE(exists(std::string(pages) + "/ipcelmclient.php"));
}

TEST_F(Publication, IsNotHeldUpByAFifoWhereAPageGoes) {
    ASSERT_TRUE(std::filesystem::create_directories(std::string(pages) + "/bin"));
    ASSERT_EQ(mkfifo((std::string(pages) + "/chp.htm").c_str(), 0644), 0);
    ASSERT_EQ(mkfifo((std::string(pages) + "/ipcelmclient.php").c_str(), 0644), 0);
    ASSERT_TRUE(driver.start());
    EXPECT_TRUE(waitUntil([]() { return askDaemon("PRINT") == "0"; }));
    EXPECT_TRUE(exists(std::string(pages) + "/bin/znorbrequestor"));
}

const Obstacle obstacles[] = {
    nothing,        aDirectory,
    aFifo,          aLinkToItself,
    aLinkToNothing, {"a file that nobody may read", [](const char* path) { return mknod(path, S_IFREG, 0); }},
};

class PublicationPast : public Publication, public testing::WithParamInterface<Obstacle> {
protected:
    void putInPlaceOf(const std::vector<std::string>& paths) const {
        for (const std::string& path : paths) {
            (void)std::filesystem::create_directories(std::filesystem::path(path).parent_path());
            (void)unlink(path.c_str());
            ASSERT_EQ(GetParam().put(path.c_str()), 0) << path;
        }
    }

    /// The daemon gets past its publication, serves, and ends in good order.
    void expectOrderlyLife() {
        ASSERT_TRUE(driver.startServing());
        EXPECT_EQ(modeOf(std::string(pages) + "/bin"), 0755U);
        EXPECT_EQ(driver.quit(), exitedWith(255));
    }
};

TEST_P(PublicationPast, ItInThePlaceOfEverySourceIsNotHeldUp) {
    const std::string sources = "/opt/zn/znorb/WBX/";
    putInPlaceOf(
        {sources + "znorb.xml", sources + "chp.htm", sources + "ipcelmclient.php", driver.requestor()});
    expectOrderlyLife();
}

TEST_P(PublicationPast, ItInThePlaceOfEveryDestinationIsNotHeldUp) {
    const std::string base = pages;
    putInPlaceOf({std::string(console) + "/webapp/znorb.xml", base + "/chp.htm", base + "/ipcelmclient.php",
                  base + "/bin/znorbrequestor"});
    expectOrderlyLife();
}

INSTANTIATE_TEST_SUITE_P(Obstacles, PublicationPast, testing::ValuesIn(obstacles));

} // namespace
