#include "foundation/streams/OutputStreamToFile.h"

#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <system_error>
#include <type_traits>

using Common::OutputStreamToFile;
using namespace ZNORBTEST;

namespace {

/// How many of this process's descriptors are open on the file.
int descriptorsOn(const std::string& path) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone; // the iterator's own descriptor, perhaps
        count += std::filesystem::read_symlink(entry.path(), gone) == path ? 1 : 0;
    }
    return count;
}

void writeText(OutputStreamToFile& stream, const std::string& text) {
    stream.write(text.data(), static_cast<unsigned int>(text.size()));
}

class OutputStreamToFileTest : public testing::Test {
protected:
    OutputStreamToFileTest() : m_path(m_folder / "file") {}

    std::string content() const { return readFile(m_path); }

    TemporaryFolder m_folder;
    std::string m_path;
};

} // namespace

TEST_F(OutputStreamToFileTest, TruncatesAnExistingFileOrAddsToItAndCreatesAMissingOne) {
    for (const bool isAppending : {false, true}) {
        const std::string kept = isAppending ? "old" : "";
        writeFile(m_path, "old");
        OutputStreamToFile stream(m_path, isAppending);
        EXPECT_TRUE(stream.isOpen());
        EXPECT_EQ(content(), kept);
        writeText(stream, " and new");
        EXPECT_EQ(content(), kept + " and new");
        const OutputStreamToFile creating(m_folder / "created", isAppending);
        EXPECT_TRUE(std::filesystem::remove(m_folder / "created"));
    }
}

TEST_F(OutputStreamToFileTest, InAMissingDirectoryAcceptsWritesAndWritesNothing) {
    const std::string path = m_folder / "missing/file";
    OutputStreamToFile stream(path, false);
    EXPECT_FALSE(stream.isOpen());
    writeText(stream, "text");
    stream.close();
    EXPECT_FALSE(std::filesystem::exists(m_folder / "missing"));
    EXPECT_FALSE(stream.isOpen());
}

TEST_F(OutputStreamToFileTest, WritesExactlyTheGivenBytesAtOnce) {
    OutputStreamToFile stream(m_path, false);
    const std::string odd("a\0\r\n%s\xFF", 7);
    stream.write("text", 0);
    EXPECT_EQ(content(), "");
    EXPECT_TRUE(stream.isOpen());
    writeText(stream, odd);
    EXPECT_EQ(content(), odd);
    stream.write("0123456789", 4);
    EXPECT_EQ(content(), odd + "0123");
}

TEST_F(OutputStreamToFileTest, AfterCloseWritesDoNothing) {
    OutputStreamToFile stream(m_path, false);
    writeText(stream, "kept");
    stream.close();
    EXPECT_FALSE(stream.isOpen());
    EXPECT_EQ(descriptorsOn(m_path), 0);
    writeText(stream, "lost");
    stream.close();
    EXPECT_EQ(content(), "kept");
}

TEST_F(OutputStreamToFileTest, ClosesTheFileAtItsEnd) {
    {
        const OutputStreamToFile stream(m_path, false);
        EXPECT_EQ(descriptorsOn(m_path), 1);
    }
    EXPECT_EQ(descriptorsOn(m_path), 0);
}

TEST_F(OutputStreamToFileTest, OpensAnotherFileAndLeavesOneThatIsStillOpenUnclosed) {
    for (const bool isClosed : {true, false}) {
        OutputStreamToFile stream(m_path, false);
        if (isClosed) {
            stream.close();
        }
        stream.open(m_folder / "second", false);
        EXPECT_EQ(descriptorsOn(m_path), isClosed ? 0 : 1);
        writeText(stream, "text");
        EXPECT_EQ(content(), "");
        EXPECT_EQ(readFile(m_folder / "second"), "text");
    }
}

TEST_F(OutputStreamToFileTest, AnOpenThatFailsLeavesTheStreamWithoutAFile) {
    OutputStreamToFile stream(m_path, false);
    stream.close();
    stream.open(m_folder.path(), false); // a directory
    EXPECT_FALSE(stream.isOpen());
    writeText(stream, "text");
    EXPECT_EQ(content(), "");
}

TEST_F(OutputStreamToFileTest, AFullDeviceIsNotNoticed) {
    OutputStreamToFile stream("/dev/full", false);
    ASSERT_TRUE(stream.isOpen());
    writeText(stream, "text");
    EXPECT_TRUE(stream.isOpen());
    stream.close();
    EXPECT_FALSE(stream.isOpen());
}

TEST_F(OutputStreamToFileTest, WithoutAPathWritesTheApplicationsLogInTheWorkingDirectory) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(m_folder.path());
    {
        OutputStreamToFile first(false);
        writeText(first, "one");
        OutputStreamToFile second(true);
        writeText(second, "two");
    }
    std::filesystem::current_path(before);
    EXPECT_EQ(readFile(m_folder / "application.exe.log"), "onetwo");
}

TEST_F(OutputStreamToFileTest, APathAloneIsNotTakenForTheAppendSwitch) {
    EXPECT_FALSE((std::is_constructible_v<OutputStreamToFile, const char*>));
    EXPECT_FALSE((std::is_constructible_v<OutputStreamToFile, const char(&)[5]>));
    EXPECT_FALSE((std::is_constructible_v<OutputStreamToFile, std::string>));
    EXPECT_TRUE((std::is_constructible_v<OutputStreamToFile, bool>));
    EXPECT_FALSE(std::is_copy_constructible_v<OutputStreamToFile>);
}

TEST_F(OutputStreamToFileTest, AnOpenThatFailsLeavesNoOldFileToWriteTo) {
    OutputStreamToFile stream(m_path, false);
    stream.open(m_folder.path(), false); // a directory
    EXPECT_FALSE(stream.isOpen());
    writeText(stream, "text");
    EXPECT_EQ(content(), "");
}
