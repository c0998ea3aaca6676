#include "responder/webconsole/WebConsoleRegistration.h"
#include "tests/responder/paths/ExecutableLink.h"
#include "tests/responder/webconsole/WebConsoleRegistrationFixture.h"
#include "tests/support/Allocations.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/Matchers.h"
#include "tests/support/Rows.h"
#include "tests/support/Skipping.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;

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

    Watchdog m_watchdog{60};
    ExecutableLink m_link = ExecutableLink("/opt/zn/znorb/bin/znorbresponder");
    TemporaryFolder m_folder;
    const std::string m_source = m_folder / "template";
    const std::string m_filled = m_folder / "filled";
};

/// A template and what is made of it.
class FilledTemplate : public FillTemplateTest,
                       public testing::WithParamInterface<Row<std::string, std::string>> {};

TEST_P(FilledTemplate, IsAsExpected) {
    EXPECT_EQ(fill(GetParam().given), GetParam().expected);
}

const std::string inexact = "%ZNORB_BIN_PATH %znorb_bin_path% ZNORB_HTML_PATH% %ZNORB_HTML_PATH";

const Row<std::string, std::string> templates[] = {
    {"BothPlaceholders", filled, "bin=[/opt/zn/znorb/bin] html=[/opt/zn/znorb/HTML/ORB1]"},
    {"TheOtherOrder", "%ZNORB_HTML_PATH%:%ZNORB_BIN_PATH%", "/opt/zn/znorb/HTML/ORB1:/opt/zn/znorb/bin"},
    {"PlaceholderAlone", "%ZNORB_BIN_PATH%", "/opt/zn/znorb/bin"},
    {"SecondBinPathIsKept", "%ZNORB_BIN_PATH% %ZNORB_BIN_PATH%", "/opt/zn/znorb/bin %ZNORB_BIN_PATH%"},
    {"SecondHtmlPathIsKept", "%ZNORB_HTML_PATH% %ZNORB_HTML_PATH%",
     "/opt/zn/znorb/HTML/ORB1 %ZNORB_HTML_PATH%"},
    {"NoPlaceholder", "<?php echo '100%'; ?>\r\n", "<?php echo '100%'; ?>\r\n"},
    {"EmptyTemplate", "", ""},
    {"BinPathWithoutTheOther", "a %ZNORB_BIN_PATH% b", "a /opt/zn/znorb/bin b"},
    {"HtmlPathWithoutTheOther", "a %ZNORB_HTML_PATH% b", "a /opt/zn/znorb/HTML/ORB1 b"},
    {"InexactPlaceholders", inexact, inexact},
    {"AllOtherBytes", allBytes() + "%ZNORB_BIN_PATH%" + allBytes(),
     allBytes() + "/opt/zn/znorb/bin" + allBytes()},
    {"BackslashesOfTheTemplate", "\\n %ZNORB_BIN_PATH%", "\\n /opt/zn/znorb/bin"},
};

INSTANTIATE_TEST_SUITE_P(FillTemplate, FilledTemplate, testing::ValuesIn(templates), rowName);

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

TEST_F(FillTemplateTest, HtmlPathVariableIsTheWholeHtmlValueUnlessItIsEmpty) {
    setHtmlPath("/srv/www/html");
    EXPECT_EQ(fill(filled), "bin=[/opt/zn/znorb/bin] html=[/srv/www/html]");
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

TEST_F(FillTemplateTest, MissingTemplateLeavesTheDestinationAlone) {
    fillTemplate(m_source, m_filled);
    EXPECT_FALSE(exists(m_filled));
    writeFile(m_filled, "old");
    fillTemplate(m_source, m_filled);
    EXPECT_EQ(readFile(m_filled), "old");
}

TEST_F(FillTemplateTest, WithoutMemoryForThePathsTheDestinationIsLeftAlone) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be made to fail here";
    writeFile(m_filled, "old");
    writeFile(m_source, "%ZNORB_HTML_PATH%");
    setHtmlPath(std::string(3000, 'h'));
    {
        const FailingAllocation failure(0, 3000);
        EXPECT_THROW(fillTemplate(m_source, m_filled), std::bad_alloc);
    }
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

TEST_F(FillTemplateTest, TemplateThatIsNoOrdinaryFileDoesNotBlockAndLeavesTheDestinationAlone) {
    for (int (*const make)(const char*, mode_t) : {mkdir, mkfifo}) {
        EXPECT_EQ(make(m_source.c_str(), 0644), 0);
        fillTemplate(m_source, m_filled);
        EXPECT_FALSE(exists(m_filled));
        writeFile(m_filled, "old");
        fillTemplate(m_source, m_filled);
        EXPECT_EQ(readFile(m_filled), "old");
        std::filesystem::remove(m_source);
        std::filesystem::remove(m_filled);
    }
}

TEST_F(FillTemplateTest, TemplateThatNoMemoryHoldsNeitherThrowsNorBlocks) {
    ZNORB_SKIP_IF(underSanitizer) << fatalReason;
    const HugeFile huge;
    EXPECT_NO_THROW(fillTemplate(HugeFile::path(), m_filled));
}

TEST_F(FillTemplateTest, LongerContentOfTheDestinationIsReplacedWholeAndNoDescriptorStaysOpen) {
    const int before = lowestFreeDescriptor();
    writeFile(m_filled, std::string(10000, 'o'));
    EXPECT_EQ(fill("short"), "short");
    fillTemplate(m_folder / "absent", m_filled);
    EXPECT_EQ(lowestFreeDescriptor(), before);
}

} // namespace
