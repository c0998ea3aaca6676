#pragma once

#include "responder/webconsole/WebConsoleRegistration.h"
#include "tests/responder/paths/StagedInstallation.h"
#include "tests/support/Files.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Watchdog.h"
#include "tests/support/Words.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <map>
#include <string>
#include <system_error>

/// What the tests of the publication to the web console, and of its two file operations, have in common.
namespace ZNORBTEST {

inline constexpr const char* htmlVariable = "ZNORB_HTML_PATH";

/// A template with both placeholders.
inline constexpr const char* filled = "bin=[%ZNORB_BIN_PATH%] html=[%ZNORB_HTML_PATH%]";

inline constexpr const char* fatalReason = "sanitizers end the process when memory runs out";

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

/// All there is below a directory: relative path to mode.
inline std::map<std::string, mode_t> treeOf(const std::string& root) {
    std::map<std::string, mode_t> tree;
    std::error_code error;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root, error)) {
        tree[entry.path().string().substr(root.size() + 1)] = modeOf(entry.path().string());
    }
    return tree;
}

/// An installation with everything that is published, beside a complete web console that has none of it yet.
class WebConsoleRegistrationTest : public testing::Test {
public:
    inline static const std::string console = StagedInstallation::console;
    inline static const std::string descriptor = console + "/webapp/znorb.xml";
    inline static const std::string documents = console + "/data/htdocs";
    inline static const std::string pages = documents + "/ZNORB";
    inline static const std::string page = pages + "/chp.htm";
    inline static const std::string entryScript = pages + "/ipcelmclient.php";
    inline static const std::string productPrograms = pages + "/bin";
    inline static const std::string requestor = productPrograms + "/znorbrequestor";

    inline static const std::string sources = StagedInstallation::sources;
    inline static const std::string descriptorSource = sources + "/znorb.xml";
    inline static const std::string pageSource = sources + "/chp.htm";
    inline static const std::string entryScriptSource = sources + "/ipcelmclient.php";
    inline static const std::string requestorSource =
        std::string(StagedInstallation::programs) + "/znorbrequestor";

    /// The template `filled` as it is published.
    static constexpr const char* filledIn = "bin=[/opt/zn/znorb/bin] html=[/opt/zn/znorb/HTML/ORB1]";

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

    /// The file as it is published to the console.
    static void expectPublished(const std::string& path) {
        const File& file = *std::find_if(std::begin(files), std::end(files),
                                         [&path](const File& each) { return each.path == path; });
        EXPECT_EQ(readFile(path), file.content);
        EXPECT_EQ(modeOf(path), file.mode) << path;
    }
    static void expectDirectories() {
        EXPECT_EQ(modeOf(pages), 0755U);
        EXPECT_EQ(modeOf(productPrograms), 0755U);
    }
    /// Everything but this file, which may be none.
    static void expectAllPublishedBut(const std::string& path) {
        expectDirectories();
        for (const File& file : files) {
            if (file.path != path) {
                expectPublished(file.path);
            }
        }
    }
    static void expectAllPublished() { expectAllPublishedBut(""); }

    /// Registers where one of the console's directories is missing, and expects that nothing happens.
    static void expectNoConsole() {
        const std::map<std::string, mode_t> before = treeOf("/opt/zn");
        EXPECT_FALSE(ZNORBRESPONDER::registerWebConsole());
        EXPECT_EQ(treeOf("/opt/zn"), before);
    }

    /// What was published in the former way by a former version.
    static void publishOld(mode_t ofFiles, mode_t directories) {
        for (const std::string& path : {descriptor, page, entryScript, requestor}) {
            writeFile(path, std::string(20000, 'o'), ofFiles);
        }
        EXPECT_EQ(chmod(pages.c_str(), directories), 0);
        EXPECT_EQ(chmod(productPrograms.c_str(), directories), 0);
    }

    /// What is published: where it comes from and where it goes to, with which content and mode.
    struct File {
        std::string source;
        std::string path;
        std::string content;
        mode_t mode;
    };

    inline static const std::string descriptorContent = "<xml>" + allBytes() + "</xml>";
    inline static const std::string pageContent = "<html>%ZNORB_BIN_PATH% %ZNORB_HTML_PATH%</html>\r\n";
    inline static const std::string requestorContent = std::string{'\x7f', 'E', 'L', 'F', 0, 0} + allBytes();
    inline static const File files[] = {{descriptorSource, descriptor, descriptorContent, 0644},
                                        {pageSource, page, pageContent, 0644},
                                        {entryScriptSource, entryScript, filledIn, 0644},
                                        {requestorSource, requestor, requestorContent, 0755}};

    Watchdog m_watchdog{60};
    StagedInstallation m_installation;

private:
    mode_t m_mask = 0;
};

} // namespace ZNORBTEST
