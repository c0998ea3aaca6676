#include "tests/responder/webconsole/WebConsoleRegistrationFixture.h"
#include "tests/sandbox/Sandbox.h"
#include "tests/support/Allocations.h"
#include "tests/support/Matchers.h"
#include "tests/support/StandIns.h"

#include <sys/mount.h>

#include <cerrno>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;

TEST_F(WebConsoleRegistrationTest, MissingSourceIsSkipped) {
    for (const File& file : files) {
        SCOPED_TRACE(file.source);
        const std::string content = readFile(file.source);
        std::filesystem::remove(file.source);
        EXPECT_TRUE(registerWebConsole());
        EXPECT_FALSE(exists(file.path));
        expectAllPublishedBut(file.path);
        writeFile(file.source, content);
        std::filesystem::remove_all(pages);
        std::filesystem::remove(descriptor);
    }
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
    for (const File& file : files) {
        EXPECT_EQ(readFile(file.path), std::string(20000, 'o'));
        EXPECT_EQ(modeOf(file.path), file.mode);
    }
}

TEST_F(WebConsoleRegistrationTest, WhereNoModeCanBeSetEverybodyMayReadWhatIsNewAndItsOwnerAloneWriteToIt) {
    (void)umask(0);
    const FailingCall<chmod> refusal(EPERM);
    EXPECT_TRUE(registerWebConsole());
    expectDirectories();
    for (const File& file : files) {
        EXPECT_EQ(readFile(file.path), file.content);
        EXPECT_EQ(modeOf(file.path), 0644U) << file.path;
    }
}

TEST_F(WebConsoleRegistrationTest, DirectoryThatTheSystemRefusesIsNotUsedAlthoughItIsThere) {
    publishOld(0600, 0777);
    for (const unsigned made : {0U, 1U}) {
        const FailingCall<mkdir> refusal(EACCES, FailingCall<mkdir>::always, made);
        EXPECT_TRUE(registerWebConsole());
        expectPublished(descriptor);
        EXPECT_EQ(readFile(page) == pageContent, made == 1);
        EXPECT_EQ(modeOf(pages), made == 1 ? 0755U : 0777U);
        EXPECT_EQ(readFile(requestor), std::string(20000, 'o'));
        EXPECT_EQ(modeOf(productPrograms), 0777U);
    }
}

TEST_F(WebConsoleRegistrationTest, EmptySourcesArePublishedEmpty) {
    for (const File& file : files) {
        writeFile(file.source, "");
    }
    EXPECT_TRUE(registerWebConsole());
    for (const File& file : files) {
        EXPECT_EQ(readFile(file.path), "") << file.path;
    }
    EXPECT_EQ(modeOf(requestor), 0755U);
}

TEST_F(WebConsoleRegistrationTest, DirectoriesAndFifosAsSourcesAreSkippedAndDoNotBlock) {
    for (int (*const make)(const char*, mode_t) : {mkdir, mkfifo}) {
        for (const File& file : files) {
            std::filesystem::remove(file.source);
            EXPECT_EQ(make(file.source.c_str(), 0644), 0);
        }
        EXPECT_TRUE(registerWebConsole());
        expectDirectories();
        EXPECT_THAT(namesIn(pages), ElementsAre("bin"));
        EXPECT_THAT(namesIn(productPrograms), IsEmpty());
        EXPECT_FALSE(exists(descriptor));
    }
}

TEST_F(WebConsoleRegistrationTest, WithoutMemoryForThePathsNothingIsPublished) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be made to fail here";
    const FailingAllocation failure(0);
    EXPECT_FALSE(registerWebConsole());
    EXPECT_TRUE(FailingAllocation::hasHappened());
    EXPECT_FALSE(exists(pages));
}

TEST_F(WebConsoleRegistrationTest, WithoutMemoryForOneOfItsFilesTheRestStaysUnpublished) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be made to fail here";
    const std::string text = "%ZNORB_BIN_PATH%" + std::string(1U << 20, 'x');
    writeFile(entryScriptSource, text);
    const FailingAllocation failure(0, text.size() + 2); // it fits as it is, but not as it is filled in
    EXPECT_TRUE(registerWebConsole());
    EXPECT_TRUE(FailingAllocation::hasHappened());
    expectPublished(page);
    EXPECT_FALSE(exists(requestor));
}

TEST_F(WebConsoleRegistrationTest, SourcesThatNoMemoryHoldsNeitherThrowNorStopTheRest) {
    ZNORB_SKIP_IF(underSanitizer) << fatalReason;
    const HugeFile huge;
    for (const std::string& path : {descriptorSource, entryScriptSource}) {
        std::filesystem::remove(path);
        std::filesystem::create_symlink(HugeFile::path(), path);
    }
    EXPECT_NO_THROW(EXPECT_TRUE(registerWebConsole()));
    expectDirectories();
    expectPublished(page);
    expectPublished(requestor);
}

TEST_F(WebConsoleRegistrationTest, DestinationsThatCannotBeOpenedAreSkippedOneByOne) {
    for (const File& blocked : files) {
        SCOPED_TRACE(blocked.path);
        std::filesystem::create_directories(blocked.path);
        EXPECT_TRUE(registerWebConsole());
        expectAllPublishedBut(blocked.path);
        EXPECT_THAT(namesIn(blocked.path), IsEmpty());
        std::filesystem::remove_all(pages);
        std::filesystem::remove_all(descriptor);
    }
}

TEST_F(WebConsoleRegistrationTest, FileInADirectorysPlaceCountsAsCreatedAndStopsWhatBelongsInIt) {
    for (const std::string& path : {pages, productPrograms}) {
        std::filesystem::remove(descriptor);
        std::filesystem::remove(pages);
        writeFile(path, "no directory", 0600);
        EXPECT_TRUE(registerWebConsole());
        expectPublished(descriptor);
        EXPECT_EQ(readFile(path), "no directory");
        EXPECT_EQ(modeOf(path), 0755U) << "the mode is set on whatever is there";
    }
    expectPublished(page);
    expectPublished(entryScript);
}

/// A file system of the test's own over the console's document root.
class DocumentRootMount {
public:
    explicit DocumentRootMount(const char* options, unsigned long flags = 0)
        : m_isMounted(
              currentSandboxMode() == SandboxMode::Isolated &&
              mount("tmpfs", WebConsoleRegistrationTest::documents.c_str(), "tmpfs", flags, options) == 0) {}
    ~DocumentRootMount() {
        if (m_isMounted) {
            EXPECT_EQ(umount(WebConsoleRegistrationTest::documents.c_str()), 0);
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
    ZNORB_SKIP_IF(!readOnly.isMounted()) << "no mounts are allowed here";
    EXPECT_TRUE(registerWebConsole());
    expectPublished(descriptor);
    EXPECT_THAT(namesIn(documents), IsEmpty());
}

TEST_F(WebConsoleRegistrationTest, ProgramDirectoryThatCannotBeCreatedEndsTheRegistrationBehindThePages) {
    // Room for the root, the pages directory and its two files.
    const DocumentRootMount small("mode=0755,nr_inodes=4");
    ZNORB_SKIP_IF(!small.isMounted()) << "no mounts are allowed here";
    (void)umask(0077);
    EXPECT_TRUE(registerWebConsole());
    expectPublished(descriptor);
    EXPECT_EQ(modeOf(pages), 0755U);
    expectPublished(page);
    expectPublished(entryScript);
    EXPECT_THAT(namesIn(pages), ElementsAre("chp.htm", "ipcelmclient.php"));
}

TEST_F(WebConsoleRegistrationTest, FileThatFindsNoRoomIsSkipped) {
    // Room for the root, the pages directory and one file, which is the page as it comes first.
    const DocumentRootMount small("mode=0755,nr_inodes=3");
    ZNORB_SKIP_IF(!small.isMounted()) << "no mounts are allowed here";
    EXPECT_TRUE(registerWebConsole());
    expectPublished(page);
    EXPECT_THAT(namesIn(pages), ElementsAre("chp.htm"));
}

} // namespace
