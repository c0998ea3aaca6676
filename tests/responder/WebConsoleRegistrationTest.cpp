#include "responder/WebConsoleRegistration.h"

#include "tests/responder/AllocationFailure.h"
#include "tests/responder/StagedInstallation.h"
#include "tests/support/Files.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TemporaryFolder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* htmlVariable = "ZNORB_HTML_PATH";
constexpr const char* filled = "bin=[%ZNORB_BIN_PATH%] html=[%ZNORB_HTML_PATH%]";

/// Every byte there is, NUL, newlines and carriage returns among them.
std::string allBytes() {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

/// Ends the process, and thereby the test, when something blocks.
class Watchdog {
public:
    Watchdog() { (void)alarm(60); }
    ~Watchdog() { (void)alarm(0); }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;
};

int lowestFreeDescriptor() {
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    (void)close(descriptor);
    return descriptor;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool outOfMemoryIsFatal = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool outOfMemoryIsFatal = true;
#else
constexpr bool outOfMemoryIsFatal = false;
#endif
#else
constexpr bool outOfMemoryIsFatal = false;
#endif
constexpr const char* fatalReason = "sanitizers end the process when memory runs out";

/// A file of a size that no memory holds, though it occupies none: on a file system in memory.
class HugeFile {
public:
    HugeFile() {
        writeFile(path(), "");
        EXPECT_EQ(truncate(path().c_str(), off_t{1} << 62), 0) << path();
    }
    ~HugeFile() { (void)unlink(path().c_str()); }
    HugeFile(const HugeFile&) = delete;
    HugeFile& operator=(const HugeFile&) = delete;

    static constexpr const char* directory = "/dev/shm";
    static std::string name() { return "znorb-huge-" + std::to_string(getpid()); }
    static std::string path() { return std::string(directory) + "/" + name(); }
};

// ---- copyFileTo --------------------------------------------------------------------------------------

class CopyFileToTest : public testing::Test {
protected:
    CopyFileToTest() {
        EXPECT_EQ(mkdir(m_from.c_str(), 0755), 0);
        EXPECT_EQ(mkdir(m_to.c_str(), 0755), 0);
    }

    bool copy() const { return copyFileTo(m_from, m_to, "file"); }

    Watchdog m_watchdog;
    TemporaryFolder m_folder;
    const std::string m_from = m_folder / "from";
    const std::string m_to = m_folder / "to";
    const std::string m_source = m_from + "/file";
    const std::string m_copy = m_to + "/file";
};

TEST_F(CopyFileToTest, ContentIsCopiedByteForByte) {
    writeFile(m_source, allBytes() + allBytes());
    EXPECT_TRUE(copy());
    EXPECT_EQ(readFile(m_copy), allBytes() + allBytes());
    EXPECT_EQ(readFile(m_source), allBytes() + allBytes());
}

TEST_F(CopyFileToTest, EmptyFileIsCopied) {
    writeFile(m_source, "");
    EXPECT_TRUE(copy());
    EXPECT_EQ(readFile(m_copy), "");
}

TEST_F(CopyFileToTest, FileOfOneNulByteIsCopied) {
    writeFile(m_source, std::string(1, '\0'));
    EXPECT_TRUE(copy());
    EXPECT_EQ(readFile(m_copy), std::string(1, '\0'));
}

TEST_F(CopyFileToTest, LargeFileIsCopiedWhole) {
    std::string content;
    for (int i = 0; i < 20000; ++i) {
        content += allBytes();
    }
    writeFile(m_source, content);
    EXPECT_TRUE(copy());
    EXPECT_TRUE(readFile(m_copy) == content);
}

TEST_F(CopyFileToTest, LongerContentOfTheDestinationIsReplacedWhole) {
    writeFile(m_source, "new");
    writeFile(m_copy, std::string(10000, 'o'));
    EXPECT_TRUE(copy());
    EXPECT_EQ(readFile(m_copy), "new");
}

TEST_F(CopyFileToTest, ExistingDestinationIsEmptiedByAnEmptySource) {
    writeFile(m_source, "");
    writeFile(m_copy, "old");
    EXPECT_TRUE(copy());
    EXPECT_EQ(readFile(m_copy), "");
}

TEST_F(CopyFileToTest, ModeOfTheDestinationIsNotTheCopysBusiness) {
    writeFile(m_source, "new", 0600);
    writeFile(m_copy, "old", 0640);
    EXPECT_TRUE(copy());
    EXPECT_EQ(modeOf(m_copy), 0640U);
}

TEST_F(CopyFileToTest, TrailingSeparatorsOfBothDirectoriesAreRemoved) {
    writeFile(m_source, "content");
    EXPECT_TRUE(copyFileTo(m_from + "//\\/", m_to + "\\//", "file"));
    EXPECT_EQ(readFile(m_copy), "content");
}

TEST_F(CopyFileToTest, MissingSourceIsAFailureAndLeavesTheDestinationAlone) {
    EXPECT_FALSE(copy());
    EXPECT_FALSE(exists(m_copy));
    writeFile(m_copy, "old");
    EXPECT_FALSE(copy());
    EXPECT_EQ(readFile(m_copy), "old");
}

TEST_F(CopyFileToTest, MissingSourceDirectoryIsAFailure) {
    EXPECT_FALSE(copyFileTo(m_folder / "absent", m_to, "file"));
    EXPECT_THAT(namesIn(m_to), IsEmpty());
}

TEST_F(CopyFileToTest, DestinationThatIsADirectoryIsIgnored) {
    writeFile(m_source, "content");
    EXPECT_EQ(mkdir(m_copy.c_str(), 0755), 0);
    EXPECT_TRUE(copy());
    EXPECT_THAT(namesIn(m_copy), IsEmpty());
}

TEST_F(CopyFileToTest, MissingDestinationDirectoryIsIgnored) {
    writeFile(m_source, "content");
    EXPECT_TRUE(copyFileTo(m_from, m_folder / "absent", "file"));
    EXPECT_FALSE(exists(m_folder / "absent"));
}

TEST_F(CopyFileToTest, LinksAreFollowedOnBothSides) {
    writeFile(m_folder / "real source", "content");
    EXPECT_EQ(symlink((m_folder / "real source").c_str(), m_source.c_str()), 0);
    EXPECT_EQ(symlink((m_folder / "real copy").c_str(), m_copy.c_str()), 0);
    EXPECT_TRUE(copy());
    EXPECT_EQ(readFile(m_folder / "real copy"), "content");
}

TEST_F(CopyFileToTest, DirectoryAsSourceIsNotCopied) {
    EXPECT_EQ(mkdir(m_source.c_str(), 0755), 0);
    writeFile(m_copy, "old");
    EXPECT_FALSE(copy());
    EXPECT_EQ(readFile(m_copy), "old");
}

TEST_F(CopyFileToTest, FifoAsSourceDoesNotBlock) {
    EXPECT_EQ(mkfifo(m_source.c_str(), 0644), 0);
    EXPECT_FALSE(copy());
    EXPECT_FALSE(exists(m_copy));
}

TEST_F(CopyFileToTest, EndlessDeviceAsSourceDoesNotBlock) {
    EXPECT_EQ(symlink("/dev/zero", m_source.c_str()), 0);
    EXPECT_FALSE(copy());
    EXPECT_FALSE(exists(m_copy));
}

TEST_F(CopyFileToTest, SourceThatNoMemoryHoldsNeitherThrowsNorBlocks) {
    if (outOfMemoryIsFatal) {
        GTEST_SKIP() << fatalReason;
    }
    const HugeFile huge;
    EXPECT_NO_THROW(EXPECT_TRUE(copyFileTo(HugeFile::directory, m_to, HugeFile::name())));
}

TEST_F(CopyFileToTest, NoDescriptorStaysOpen) {
    writeFile(m_source, "content");
    const int before = lowestFreeDescriptor();
    EXPECT_TRUE(copy());
    EXPECT_FALSE(copyFileTo(m_from, m_to, "absent"));
    EXPECT_TRUE(copyFileTo(m_from, m_folder / "absent", "file"));
    EXPECT_EQ(lowestFreeDescriptor(), before);
}

// ---- fillTemplate ------------------------------------------------------------------------------------

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

// ---- registerWebConsole ------------------------------------------------------------------------------

const std::string console = StagedInstallation::console;
const std::string descriptor = console + "/webapp/znorb.xml";
const std::string documents = console + "/data/htdocs";
const std::string pages = documents + "/ZNORB";
const std::string page = pages + "/chp.htm";
const std::string entryScript = pages + "/ipcelmclient.php";
const std::string productPrograms = pages + "/bin";
const std::string requestor = productPrograms + "/znorbrequestor";

const std::string sources = StagedInstallation::sources;
const std::string descriptorSource = sources + "/znorb.xml";
const std::string pageSource = sources + "/chp.htm";
const std::string entryScriptSource = sources + "/ipcelmclient.php";
const std::string requestorSource = std::string(StagedInstallation::programs) + "/znorbrequestor";

constexpr const char* filledIn = "bin=[/opt/zn/znorb/bin] html=[/opt/zn/znorb/HTML/ORB1]";

/// All there is below a directory: relative path to mode.
std::map<std::string, mode_t> treeOf(const std::string& root) {
    std::map<std::string, mode_t> tree;
    std::error_code error;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root, error)) {
        tree[entry.path().string().substr(root.size() + 1)] = modeOf(entry.path().string());
    }
    return tree;
}

class WebConsoleRegistrationTest : public testing::Test {
protected:
    void SetUp() override {
        m_mask = umask(0022);
        (void)unsetenv(htmlVariable);
        StagedInstallation::installConsole();
        writeFile(descriptorSource, descriptorContent, 0600);
        writeFile(pageSource, pageContent, 0600);
        writeFile(entryScriptSource, filled, 0600);
        writeFile(requestorSource, requestorContent, 0700);
    }
    void TearDown() override {
        (void)umask(m_mask);
        (void)unsetenv(htmlVariable);
    }

    static void expectDescriptorPublished() {
        EXPECT_EQ(readFile(descriptor), descriptorContent);
        EXPECT_EQ(modeOf(descriptor), 0644U);
    }
    static void expectPagePublished() {
        EXPECT_EQ(readFile(page), pageContent);
        EXPECT_EQ(modeOf(page), 0644U);
    }
    static void expectEntryScriptPublished() {
        EXPECT_EQ(readFile(entryScript), filledIn);
        EXPECT_EQ(modeOf(entryScript), 0644U);
    }
    static void expectRequestorPublished() {
        EXPECT_EQ(readFile(requestor), requestorContent);
        EXPECT_EQ(modeOf(requestor), 0755U);
    }
    static void expectDirectories() {
        EXPECT_EQ(modeOf(pages), 0755U);
        EXPECT_EQ(modeOf(productPrograms), 0755U);
    }
    static void expectAllPublished() {
        expectDescriptorPublished();
        expectDirectories();
        expectPagePublished();
        expectEntryScriptPublished();
        expectRequestorPublished();
    }

    /// Registers where one of the console's directories is missing, and expects that nothing happens.
    static void expectNoConsole() {
        const std::map<std::string, mode_t> before = treeOf("/opt/zn");
        EXPECT_FALSE(registerWebConsole());
        EXPECT_EQ(treeOf("/opt/zn"), before);
    }

    /// What was published in the former way by a former version.
    static void publishOld(mode_t files, mode_t directories) {
        for (const std::string& path : {descriptor, page, entryScript, requestor}) {
            writeFile(path, std::string(20000, 'o'), files);
        }
        EXPECT_EQ(chmod(pages.c_str(), directories), 0);
        EXPECT_EQ(chmod(productPrograms.c_str(), directories), 0);
    }

    inline static const std::string descriptorContent = "<xml>" + allBytes() + "</xml>";
    inline static const std::string pageContent = "<html>%ZNORB_BIN_PATH% %ZNORB_HTML_PATH%</html>\r\n";
    inline static const std::string requestorContent = std::string("\x7f"
                                                                   "ELF\0\0",
                                                                   6) +
                                                       allBytes();

    Watchdog m_watchdog;
    StagedInstallation m_installation;

private:
    mode_t m_mask = 0;
};

TEST_F(WebConsoleRegistrationTest, WithoutAConsoleNothingIsDone) {
    std::filesystem::remove_all(console);
    expectNoConsole();
    EXPECT_FALSE(exists(console));
}

TEST_F(WebConsoleRegistrationTest, WithTheRootAloneNothingIsDone) {
    std::filesystem::remove_all(console);
    std::filesystem::create_directory(console);
    expectNoConsole();
}

TEST_F(WebConsoleRegistrationTest, WithoutTheDescriptorDirectoryNothingIsDone) {
    std::filesystem::remove_all(console + "/webapp");
    expectNoConsole();
}

TEST_F(WebConsoleRegistrationTest, WithoutTheDataDirectoryNothingIsDone) {
    std::filesystem::remove_all(console + "/data");
    expectNoConsole();
}

TEST_F(WebConsoleRegistrationTest, WithoutTheDocumentRootNothingIsDone) {
    std::filesystem::remove_all(documents);
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

TEST_F(WebConsoleRegistrationTest, EverythingIsPublishedByteForByteWithItsMode) {
    EXPECT_TRUE(registerWebConsole());
    expectAllPublished();
}

TEST_F(WebConsoleRegistrationTest, NothingElseIsWritten) {
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
}

TEST_F(WebConsoleRegistrationTest, OnlyTheEntryScriptIsFilledAsATemplate) {
    writeFile(descriptorSource, filled);
    writeFile(pageSource, filled);
    writeFile(requestorSource, filled);
    EXPECT_TRUE(registerWebConsole());
    EXPECT_EQ(readFile(descriptor), filled);
    EXPECT_EQ(readFile(page), filled);
    EXPECT_EQ(readFile(requestor), filled);
    EXPECT_EQ(readFile(entryScript), filledIn);
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

TEST_F(WebConsoleRegistrationTest, UmaskIsTheSameAfterwards) {
    (void)umask(0137);
    EXPECT_TRUE(registerWebConsole());
    EXPECT_EQ(umask(0137), 0137U);
    std::filesystem::remove_all(console);
    EXPECT_FALSE(registerWebConsole());
    EXPECT_EQ(umask(0137), 0137U);
}

TEST_F(WebConsoleRegistrationTest, ExistingFilesAndDirectoriesAreReplacedAndGetTheirModes) {
    for (const mode_t mode : {0000U, 0200U, 0600U, 0777U}) {
        publishOld(mode, 0700);
        EXPECT_TRUE(registerWebConsole());
        expectAllPublished();
    }
}

TEST_F(WebConsoleRegistrationTest, ExistingDirectoriesWithOtherModesAreUsedAndCorrected) {
    for (const mode_t mode : {0700U, 0777U, 0111U, 0000U}) {
        publishOld(0644, mode);
        EXPECT_TRUE(registerWebConsole());
        expectAllPublished();
    }
}

TEST_F(WebConsoleRegistrationTest, SpecialBitsOfExistingFilesAndDirectoriesAreTakenAway) {
    publishOld(04755, 01777);
    EXPECT_TRUE(registerWebConsole());
    expectAllPublished();
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

TEST_F(WebConsoleRegistrationTest, SecondRegistrationPublishesWhatIsNew) {
    EXPECT_TRUE(registerWebConsole());
    writeFile(entryScriptSource, "b");
    EXPECT_TRUE(registerWebConsole());
    expectDescriptorPublished();
    EXPECT_EQ(readFile(entryScript), "b");
    expectRequestorPublished();
}

TEST_F(WebConsoleRegistrationTest, MissingDescriptorIsSkipped) {
    std::filesystem::remove(descriptorSource);
    EXPECT_TRUE(registerWebConsole());
    EXPECT_FALSE(exists(descriptor));
    expectDirectories();
    expectPagePublished();
    expectEntryScriptPublished();
    expectRequestorPublished();
}

TEST_F(WebConsoleRegistrationTest, MissingPageIsSkipped) {
    std::filesystem::remove(pageSource);
    EXPECT_TRUE(registerWebConsole());
    EXPECT_FALSE(exists(page));
    expectDirectories();
    expectDescriptorPublished();
    expectEntryScriptPublished();
    expectRequestorPublished();
}

TEST_F(WebConsoleRegistrationTest, MissingEntryScriptIsSkipped) {
    std::filesystem::remove(entryScriptSource);
    EXPECT_TRUE(registerWebConsole());
    EXPECT_FALSE(exists(entryScript));
    expectDirectories();
    expectDescriptorPublished();
    expectPagePublished();
    expectRequestorPublished();
}

TEST_F(WebConsoleRegistrationTest, MissingRequestorIsSkipped) {
    std::filesystem::remove(requestorSource);
    EXPECT_TRUE(registerWebConsole());
    EXPECT_FALSE(exists(requestor));
    expectDirectories();
    expectDescriptorPublished();
    expectPagePublished();
    expectEntryScriptPublished();
}

TEST_F(WebConsoleRegistrationTest, WithoutAnySourceTheDirectoriesAreMadeAllTheSame) {
    std::filesystem::remove_all(sources);
    std::filesystem::remove(requestorSource);
    EXPECT_TRUE(registerWebConsole());
    expectDirectories();
    EXPECT_THAT(namesIn(pages), ElementsAre("bin"));
    EXPECT_THAT(namesIn(productPrograms), IsEmpty());
    EXPECT_THAT(namesIn(console + "/webapp"), IsEmpty());
}

TEST_F(WebConsoleRegistrationTest, FilesOfMissingSourcesKeepTheirContentAndGetTheirModes) {
    publishOld(0600, 0700);
    std::filesystem::remove_all(sources);
    std::filesystem::remove(requestorSource);
    EXPECT_TRUE(registerWebConsole());
    expectDirectories();
    for (const std::string& path : {descriptor, page, entryScript}) {
        EXPECT_EQ(readFile(path), std::string(20000, 'o'));
        EXPECT_EQ(modeOf(path), 0644U);
    }
    EXPECT_EQ(readFile(requestor), std::string(20000, 'o'));
    EXPECT_EQ(modeOf(requestor), 0755U);
}

TEST_F(WebConsoleRegistrationTest, EmptySourcesArePublishedEmpty) {
    for (const std::string& path : {descriptorSource, pageSource, entryScriptSource, requestorSource}) {
        writeFile(path, "");
    }
    EXPECT_TRUE(registerWebConsole());
    for (const std::string& path : {descriptor, page, entryScript, requestor}) {
        EXPECT_EQ(readFile(path), "") << path;
    }
    EXPECT_EQ(modeOf(requestor), 0755U);
}

TEST_F(WebConsoleRegistrationTest, DirectoriesAsSourcesAreSkipped) {
    for (const std::string& path : {descriptorSource, pageSource, entryScriptSource, requestorSource}) {
        std::filesystem::remove(path);
        std::filesystem::create_directory(path);
    }
    EXPECT_TRUE(registerWebConsole());
    expectDirectories();
    EXPECT_THAT(namesIn(pages), ElementsAre("bin"));
    EXPECT_THAT(namesIn(productPrograms), IsEmpty());
    EXPECT_FALSE(exists(descriptor));
}

TEST_F(WebConsoleRegistrationTest, FifosAsSourcesDoNotBlock) {
    for (const std::string& path : {descriptorSource, pageSource, entryScriptSource, requestorSource}) {
        std::filesystem::remove(path);
        EXPECT_EQ(mkfifo(path.c_str(), 0644), 0);
    }
    EXPECT_TRUE(registerWebConsole());
    expectDirectories();
    EXPECT_THAT(namesIn(pages), ElementsAre("bin"));
    EXPECT_THAT(namesIn(productPrograms), IsEmpty());
    EXPECT_FALSE(exists(descriptor));
}

TEST_F(WebConsoleRegistrationTest, WithoutMemoryForThePathsNothingIsPublished) {
    if (!AllocationFailure::isPossible()) {
        GTEST_SKIP() << "allocations cannot be made to fail here";
    }
    const AllocationFailure failure(1);
    EXPECT_FALSE(registerWebConsole());
    EXPECT_TRUE(AllocationFailure::hasHappened());
    EXPECT_FALSE(exists(pages));
}

TEST_F(WebConsoleRegistrationTest, WithoutMemoryForOneOfItsFilesTheRestStaysUnpublished) {
    if (!AllocationFailure::isPossible()) {
        GTEST_SKIP() << "allocations cannot be made to fail here";
    }
    const std::string text = "%ZNORB_BIN_PATH%" + std::string(1U << 20, 'x');
    writeFile(entryScriptSource, text);
    const AllocationFailure failure(text.size() + 2); // it fits as it is, but not as it is filled in
    EXPECT_TRUE(registerWebConsole());
    EXPECT_TRUE(AllocationFailure::hasHappened());
    expectPagePublished();
    EXPECT_FALSE(exists(requestor));
}

TEST_F(WebConsoleRegistrationTest, SourcesThatNoMemoryHoldsNeitherThrowNorStopTheRest) {
    if (outOfMemoryIsFatal) {
        GTEST_SKIP() << fatalReason;
    }
    const HugeFile huge;
    for (const std::string& path : {descriptorSource, entryScriptSource}) {
        std::filesystem::remove(path);
        std::filesystem::create_symlink(HugeFile::path(), path);
    }
    EXPECT_NO_THROW(EXPECT_TRUE(registerWebConsole()));
    expectDirectories();
    expectPagePublished();
    expectRequestorPublished();
}

TEST_F(WebConsoleRegistrationTest, DestinationsThatCannotBeOpenedAreSkippedOneByOne) {
    for (const std::string& blocked : {descriptor, page, entryScript, requestor}) {
        std::filesystem::create_directories(blocked);
        EXPECT_TRUE(registerWebConsole());
        expectDirectories();
        EXPECT_TRUE(blocked == descriptor || readFile(descriptor) == descriptorContent) << blocked;
        EXPECT_TRUE(blocked == page || readFile(page) == pageContent) << blocked;
        EXPECT_TRUE(blocked == entryScript || readFile(entryScript) == filledIn) << blocked;
        EXPECT_TRUE(blocked == requestor || readFile(requestor) == requestorContent) << blocked;
        EXPECT_THAT(namesIn(blocked), IsEmpty());
        std::filesystem::remove_all(pages);
        std::filesystem::remove_all(descriptor);
    }
}

TEST_F(WebConsoleRegistrationTest, FileInThePagesDirectorysPlaceCountsAsCreatedAndStopsThePrograms) {
    writeFile(pages, "no directory", 0600);
    EXPECT_TRUE(registerWebConsole());
    expectDescriptorPublished();
    EXPECT_EQ(readFile(pages), "no directory");
    EXPECT_EQ(modeOf(pages), 0755U) << "the mode is set on whatever is there";
}

TEST_F(WebConsoleRegistrationTest, FileInTheProgramDirectorysPlaceCountsAsCreated) {
    writeFile(productPrograms, "no directory", 0600);
    EXPECT_TRUE(registerWebConsole());
    expectDescriptorPublished();
    expectPagePublished();
    expectEntryScriptPublished();
    EXPECT_EQ(readFile(productPrograms), "no directory");
    EXPECT_EQ(modeOf(productPrograms), 0755U);
}

TEST_F(WebConsoleRegistrationTest, SourcesLieBesideTheDirectoryOfTheRunningExecutable) {
    std::filesystem::rename(StagedInstallation::root, "/opt/zn/znorb.moved");
    std::filesystem::create_directories(StagedInstallation::programs);
    {
        const ExecutableLink link("/opt/zn/znorb.moved/bin/znorbresponder");
        EXPECT_TRUE(registerWebConsole());
    }
    std::filesystem::remove_all("/opt/zn/znorb.moved");
    expectDescriptorPublished();
    expectPagePublished();
    EXPECT_EQ(readFile(entryScript), "bin=[/opt/zn/znorb.moved/bin] html=[/opt/zn/znorb.moved/HTML/ORB1]");
    expectRequestorPublished();
}

TEST_F(WebConsoleRegistrationTest, NoDescriptorStaysOpen) {
    const int before = lowestFreeDescriptor();
    EXPECT_TRUE(registerWebConsole());
    EXPECT_EQ(lowestFreeDescriptor(), before);
}

/// A file system of the test's own over the console's document root.
class DocumentRootMount {
public:
    explicit DocumentRootMount(const char* options, unsigned long flags = 0)
        : m_isMounted(currentSandboxMode() == SandboxMode::Isolated &&
                      mount("tmpfs", documents.c_str(), "tmpfs", flags, options) == 0) {}
    ~DocumentRootMount() {
        if (m_isMounted) {
            EXPECT_EQ(umount(documents.c_str()), 0);
        }
    }
    DocumentRootMount(const DocumentRootMount&) = delete;
    DocumentRootMount& operator=(const DocumentRootMount&) = delete;

    [[nodiscard]] bool isMounted() const { return m_isMounted; }

private:
    bool m_isMounted;
};

TEST_F(WebConsoleRegistrationTest, PagesDirectoryThatCannotBeCreatedEndsTheRegistrationBehindTheDescriptor) {
    const DocumentRootMount readOnly("mode=0755", MS_RDONLY);
    if (!readOnly.isMounted()) {
        GTEST_SKIP() << "no mounts are allowed here";
    }
    EXPECT_TRUE(registerWebConsole());
    expectDescriptorPublished();
    EXPECT_THAT(namesIn(documents), IsEmpty());
}

TEST_F(WebConsoleRegistrationTest, ProgramDirectoryThatCannotBeCreatedEndsTheRegistrationBehindThePages) {
    // Room for the root, the pages directory and its two files.
    const DocumentRootMount small("mode=0755,nr_inodes=4");
    if (!small.isMounted()) {
        GTEST_SKIP() << "no mounts are allowed here";
    }
    (void)umask(0077);
    EXPECT_TRUE(registerWebConsole());
    expectDescriptorPublished();
    EXPECT_EQ(modeOf(pages), 0755U);
    expectPagePublished();
    expectEntryScriptPublished();
    EXPECT_THAT(namesIn(pages), ElementsAre("chp.htm", "ipcelmclient.php"));
}

TEST_F(WebConsoleRegistrationTest, FileThatFindsNoRoomIsSkipped) {
    // Room for the root, the pages directory and one file, which is the page as it comes first.
    const DocumentRootMount small("mode=0755,nr_inodes=3");
    if (!small.isMounted()) {
        GTEST_SKIP() << "no mounts are allowed here";
    }
    EXPECT_TRUE(registerWebConsole());
    expectPagePublished();
    EXPECT_THAT(namesIn(pages), ElementsAre("chp.htm"));
}

} // namespace
