#include "responder/webconsole/WebConsoleRegistration.h"
#include "tests/responder/DescriptorLimit.h"
#include "tests/responder/webconsole/WebConsoleRegistrationFixture.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;
using testing::IsEmpty;

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

} // namespace
