#include "responder/webconsole/WebConsoleRegistration.h"
#include "tests/responder/DescriptorLimit.h"
#include "tests/responder/paths/ExecutableLink.h"
#include "tests/responder/webconsole/WebConsoleRegistrationFixture.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <string>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;
using testing::ElementsAre;
using testing::IsEmpty;

class FillTemplateTest : public testing::Test {
protected:
    void SetUp() override { (void)unsetenv(htmlVariable); }
    void TearDown() override { (void)unsetenv(htmlVariable); }

    static void setHtmlPath(const std::string& value) {
        ASSERT_EQ(setenv(htmlVariable, value.c_str(), 1), 0);
    }

    /// The template's text as it is filled in.
    std::string fill(const std::string& text) const {
        writeFile(m_source, text);
        fillTemplate(m_source, m_filled);
        return readFile(m_filled);
    }

    Watchdog m_watchdog;
    ExecutableLink m_link = ExecutableLink("/opt/zn/znorb/bin/znorbresponder");
    TemporaryFolder m_folder;
    const std::string m_source = m_folder / "template";
    const std::string m_filled = m_folder / "filled";
};

TEST_F(FillTemplateTest, BothPlaceholdersAreReplaced) {
    EXPECT_EQ(fill(filled), "bin=[/opt/zn/znorb/bin] html=[/opt/zn/znorb/HTML/ORB1]");
}

TEST_F(FillTemplateTest, PlaceholdersAreReplacedInEitherOrderAndAtEitherEnd) {
    EXPECT_EQ(fill("%ZNORB_HTML_PATH%:%ZNORB_BIN_PATH%"), "/opt/zn/znorb/HTML/ORB1:/opt/zn/znorb/bin");
    EXPECT_EQ(fill("%ZNORB_BIN_PATH%"), "/opt/zn/znorb/bin");
}

TEST_F(FillTemplateTest, OnlyTheFirstOfEachPlaceholderIsReplaced) {
    EXPECT_EQ(fill("%ZNORB_BIN_PATH% %ZNORB_BIN_PATH%"), "/opt/zn/znorb/bin %ZNORB_BIN_PATH%");
    EXPECT_EQ(fill("%ZNORB_HTML_PATH% %ZNORB_HTML_PATH%"), "/opt/zn/znorb/HTML/ORB1 %ZNORB_HTML_PATH%");
}

TEST_F(FillTemplateTest, TemplateWithoutPlaceholdersIsCopied) {
    EXPECT_EQ(fill("<?php echo '100%'; ?>\r\n"), "<?php echo '100%'; ?>\r\n");
    EXPECT_EQ(fill(""), "");
}

TEST_F(FillTemplateTest, OnePlaceholderIsReplacedWithoutTheOther) {
    EXPECT_EQ(fill("a %ZNORB_BIN_PATH% b"), "a /opt/zn/znorb/bin b");
    EXPECT_EQ(fill("a %ZNORB_HTML_PATH% b"), "a /opt/zn/znorb/HTML/ORB1 b");
}

TEST_F(FillTemplateTest, OnlyTheExactPlaceholdersCount) {
    const std::string text = "%ZNORB_BIN_PATH %znorb_bin_path% ZNORB_HTML_PATH% %ZNORB_HTML_PATH";
    EXPECT_EQ(fill(text), text);
}

TEST_F(FillTemplateTest, AllOtherBytesAreKept) {
    EXPECT_EQ(fill(allBytes() + "%ZNORB_BIN_PATH%" + allBytes()),
              allBytes() + "/opt/zn/znorb/bin" + allBytes());
}

TEST_F(FillTemplateTest, BackslashesOfTheExecutablesDirectoryAreDoubled) {
    const ExecutableLink link("C:\\zn\\bin\\znorbresponder");
    EXPECT_EQ(fill("%ZNORB_BIN_PATH%"), "C:\\\\zn\\\\bin");
}

TEST_F(FillTemplateTest, BackslashesOfTheHtmlPathAreDoubled) {
    setHtmlPath("C:\\html\\");
    EXPECT_EQ(fill("%ZNORB_HTML_PATH%"), "C:\\\\html\\\\");
    (void)unsetenv(htmlVariable);
    const ExecutableLink link("C:\\zn\\znorb\\bin\\znorbresponder");
    EXPECT_EQ(fill("%ZNORB_HTML_PATH%"), "C:\\\\zn\\\\znorb/HTML/ORB1");
}

TEST_F(FillTemplateTest, BackslashesOfTheTemplateItselfAreKept) {
    EXPECT_EQ(fill("\\n %ZNORB_BIN_PATH%"), "\\n /opt/zn/znorb/bin");
}

TEST_F(FillTemplateTest, HtmlPathVariableIsTheWholeHtmlValue) {
    setHtmlPath("/srv/www/html");
    EXPECT_EQ(fill(filled), "bin=[/opt/zn/znorb/bin] html=[/srv/www/html]");
}

TEST_F(FillTemplateTest, EmptyHtmlPathVariableCountsAsUnset) {
    setHtmlPath("");
    EXPECT_EQ(fill("%ZNORB_HTML_PATH%"), "/opt/zn/znorb/HTML/ORB1");
}

TEST_F(FillTemplateTest, ExecutablesDirectoryIsFilledInBeforeTheHtmlPath) {
    setHtmlPath("%ZNORB_BIN_PATH%");
    EXPECT_EQ(fill("%ZNORB_HTML_PATH%"), "%ZNORB_BIN_PATH%") << "not replaced any more";
    const ExecutableLink link("/opt/%ZNORB_HTML_PATH%/bin/znorbresponder");
    setHtmlPath("html");
    EXPECT_EQ(fill("%ZNORB_BIN_PATH% %ZNORB_HTML_PATH%"), "/opt/html/bin %ZNORB_HTML_PATH%");
}

TEST_F(FillTemplateTest, LongerContentOfTheDestinationIsReplacedWhole) {
    writeFile(m_filled, std::string(10000, 'o'));
    EXPECT_EQ(fill("short"), "short");
}

TEST_F(FillTemplateTest, MissingTemplateLeavesTheDestinationAlone) {
    fillTemplate(m_source, m_filled);
    EXPECT_FALSE(exists(m_filled));
    writeFile(m_filled, "old");
    fillTemplate(m_source, m_filled);
    EXPECT_EQ(readFile(m_filled), "old");
}

TEST_F(FillTemplateTest, DestinationThatCannotBeOpenedIsIgnored) {
    writeFile(m_source, filled);
    EXPECT_EQ(mkdir(m_filled.c_str(), 0755), 0);
    fillTemplate(m_source, m_filled);
    fillTemplate(m_source, m_folder / "absent/filled");
    EXPECT_THAT(namesIn(m_filled), IsEmpty());
    EXPECT_THAT(namesIn(m_folder.path()), ElementsAre("filled", "template"));
}

TEST_F(FillTemplateTest, DirectoryAsTemplateLeavesTheDestinationAlone) {
    EXPECT_EQ(mkdir(m_source.c_str(), 0755), 0);
    writeFile(m_filled, "old");
    fillTemplate(m_source, m_filled);
    EXPECT_EQ(readFile(m_filled), "old");
}

TEST_F(FillTemplateTest, FifoAsTemplateDoesNotBlock) {
    EXPECT_EQ(mkfifo(m_source.c_str(), 0644), 0);
    fillTemplate(m_source, m_filled);
    EXPECT_FALSE(exists(m_filled));
}

TEST_F(FillTemplateTest, TemplateThatNoMemoryHoldsNeitherThrowsNorBlocks) {
    if (outOfMemoryIsFatal) {
        GTEST_SKIP() << fatalReason;
    }
    const HugeFile huge;
    EXPECT_NO_THROW(fillTemplate(HugeFile::path(), m_filled));
}

TEST_F(FillTemplateTest, NoDescriptorStaysOpen) {
    const int before = lowestFreeDescriptor();
    (void)fill(filled);
    fillTemplate(m_folder / "absent", m_filled);
    EXPECT_EQ(lowestFreeDescriptor(), before);
}

} // namespace
