#include "responder/webconsole/WebConsoleRegistration.h"
#include "tests/responder/webconsole/WebConsoleRegistrationFixture.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/Matchers.h"
#include "tests/support/Rows.h"
#include "tests/support/Skipping.h"
#include "tests/support/StandIns.h"
#include "tests/support/TemporaryFolder.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;

class CopyFileToTest : public testing::Test {
protected:
    CopyFileToTest() {
        EXPECT_EQ(mkdir(m_from.c_str(), 0755), 0);
        EXPECT_EQ(mkdir(m_to.c_str(), 0755), 0);
    }

    bool copy() const { return copyFileTo(m_from, m_to, "file"); }

    Watchdog m_watchdog{60};
    TemporaryFolder m_folder;
    const std::string m_from = m_folder / "from";
    const std::string m_to = m_folder / "to";
    const std::string m_source = m_from + "/file";
    const std::string m_copy = m_to + "/file";
};

TEST_F(CopyFileToTest, ContentIsCopiedByteForByteOverWhateverWasThere) {
    std::string large;
    for (int i = 0; i < 20000; ++i) {
        large += allBytes();
    }
    for (const std::string& content : {allBytes() + allBytes(), std::string(), std::string(1, '\0'), large}) {
        SCOPED_TRACE(content.size());
        writeFile(m_source, content);
        EXPECT_TRUE(copy());
        EXPECT_TRUE(readFile(m_copy) == content);
        EXPECT_TRUE(readFile(m_source) == content);
        writeFile(m_copy, std::string(content.size() + 10000, 'o'));
        EXPECT_TRUE(copy());
        EXPECT_TRUE(readFile(m_copy) == content) << "longer content is replaced whole";
        std::filesystem::remove(m_copy);
    }
}

TEST_F(CopyFileToTest, ModeOfTheDestinationIsNotTheCopysBusiness) {
    writeFile(m_source, "new", 0600);
    writeFile(m_copy, "old", 0640);
    const FailingCall<chmod> modes(EPERM);
    EXPECT_TRUE(copy());
    EXPECT_EQ(modeOf(m_copy), 0640U);
    EXPECT_EQ(modes.calls(), 0U);
}

TEST_F(CopyFileToTest, RightsOfOthersToWriteToTheDestinationAreTakenAndNoMore) {
    writeFile(m_source, "new", 0600);
    for (const auto& [before, afterwards] :
         {std::pair(0666U, 0644U), {0777U, 0755U}, {01622U, 01600U}, {0420U, 0400U}, {0602U, 0600U}}) {
        writeFile(m_copy, "old", before);
        EXPECT_TRUE(copy());
        EXPECT_EQ(modeOf(m_copy), afterwards);
    }
}

TEST_F(CopyFileToTest, TrailingSeparatorsOfBothDirectoriesAreRemoved) {
    writeFile(m_source, "content");
    EXPECT_TRUE(copyFileTo(m_from + "//\\/", m_to + "\\//", "file"));
    EXPECT_EQ(readFile(m_copy), "content");
}

TEST_F(CopyFileToTest, MissingSourceIsAFailureAndLeavesTheDestinationAlone) {
    EXPECT_FALSE(copy());
    EXPECT_FALSE(copyFileTo(m_folder / "absent", m_to, "file"));
    EXPECT_THAT(namesIn(m_to), IsEmpty());
    writeFile(m_copy, "old");
    EXPECT_FALSE(copy());
    EXPECT_EQ(readFile(m_copy), "old");
}

TEST_F(CopyFileToTest, DestinationThatIsADirectoryOrMissesItsOwnIsIgnoredAndNoDescriptorStaysOpen) {
    const int before = lowestFreeDescriptor();
    writeFile(m_source, "content");
    EXPECT_TRUE(copy());
    EXPECT_FALSE(copyFileTo(m_from, m_to, "absent"));
    EXPECT_TRUE(copyFileTo(m_from, m_folder / "absent", "file"));
    EXPECT_FALSE(exists(m_folder / "absent"));
    std::filesystem::remove(m_copy);
    EXPECT_EQ(mkdir(m_copy.c_str(), 0755), 0);
    EXPECT_EQ(chmod(m_copy.c_str(), 0777), 0);
    EXPECT_TRUE(copy());
    EXPECT_THAT(namesIn(m_copy), IsEmpty());
    EXPECT_EQ(modeOf(m_copy), 0777U);
    EXPECT_EQ(lowestFreeDescriptor(), before);
}

TEST_F(CopyFileToTest, LinksAreFollowedOnBothSides) {
    writeFile(m_folder / "real source", "content");
    EXPECT_EQ(symlink((m_folder / "real source").c_str(), m_source.c_str()), 0);
    EXPECT_EQ(symlink((m_folder / "real copy").c_str(), m_copy.c_str()), 0);
    EXPECT_TRUE(copy());
    EXPECT_EQ(readFile(m_folder / "real copy"), "content");
}

TEST_F(CopyFileToTest, SourceThatIsNoOrdinaryFileIsNotCopiedAndDoesNotBlock) {
    using Make = int (*)(const char*);
    const Row<Make, int> sources[] = {
        {"a directory", [](const char* path) { return mkdir(path, 0755); }, 0},
        {"a FIFO", [](const char* path) { return mkfifo(path, 0644); }, 0},
        {"an endless device", [](const char* path) { return symlink("/dev/zero", path); }, 0},
    };
    for (const auto& source : sources) {
        SCOPED_TRACE(source.name);
        EXPECT_EQ(source.given(m_source.c_str()), source.expected);
        EXPECT_FALSE(copy());
        EXPECT_FALSE(exists(m_copy));
        writeFile(m_copy, "old");
        EXPECT_FALSE(copy());
        EXPECT_EQ(readFile(m_copy), "old");
        std::filesystem::remove(m_source);
        std::filesystem::remove(m_copy);
    }
}

TEST_F(CopyFileToTest, SourceThatNoMemoryHoldsNeitherThrowsNorBlocks) {
    ZNORB_SKIP_IF(underSanitizer) << fatalReason;
    const HugeFile huge;
    EXPECT_NO_THROW(EXPECT_TRUE(copyFileTo(HugeFile::directory, m_to, HugeFile::name())));
}

/// Where each write came from, and its length. The bytes are not looked at.
class LengthRecorder : public Common::OutputStream {
public:
    void write(const char* data, const unsigned int& length) override { m_writes.emplace_back(data, length); }

    [[nodiscard]] const std::vector<std::pair<const char*, unsigned>>& writes() const { return m_writes; }

private:
    std::vector<std::pair<const char*, unsigned>> m_writes;
};

TEST(WriteWhole, TextIsOneWriteUnlessItIsLongerThanAWriteCanBe) {
    ZNORB_SKIP_IF(sizeof(std::size_t) == sizeof(unsigned)) << "no text is longer here";
    constexpr std::size_t longest = 0xffffffff;
    constexpr std::size_t room = longest + 10; // of which nothing is used
    void* const memory = mmap(nullptr, room, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ZNORB_SKIP_IF(memory == MAP_FAILED) << "no address space of that size";
    const char* const text = static_cast<const char*>(memory);
    const Row<std::size_t, std::vector<std::pair<const char*, unsigned>>> texts[] = {
        {"nothing", 0, {}},
        {"one byte", 1, {{text, 1}}},
        {"the longest", longest, {{text, longest}}},
        {"a little more", room, {{text, longest}, {text + longest, 10}}},
    };
    for (const auto& row : texts) {
        LengthRecorder stream;
        writeWhole(stream, std::string_view(text, row.given));
        EXPECT_EQ(stream.writes(), row.expected) << row.name;
    }
    (void)munmap(memory, room);
}

} // namespace
