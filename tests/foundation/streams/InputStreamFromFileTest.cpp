#include "foundation/streams/InputStreamFromFile.h"

#include "tests/foundation/streams/Reads.h"
#include "tests/support/Allocations.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Watchdog.h"
#include "tests/support/Words.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <limits>
#include <optional>
#include <utility>

using namespace Common;
using namespace ZNORBTEST;

namespace {

const std::string withNulBytes("\0a\0\0b\0", 6);

class InputStreamFromFileTest : public testing::Test {
protected:
    /// A stream at the start of a new file with the content.
    InputStreamFromFile& streamOf(const std::string& content) {
        return m_stream.emplace(fileWith(content).c_str());
    }

    /// The path of the file, which now has the content.
    std::string fileWith(const std::string& content) const {
        writeFile(m_folder / "file", content);
        return m_folder / "file";
    }

    /// A stream on a pipe by name, and `writer`, its only writing end.
    InputStreamFromFile& streamOfPipe(int& writer) {
        const std::string path = m_folder / "pipe";
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        const int bothEnds = open(path.c_str(), O_RDWR | O_CLOEXEC); // or opening would wait for us
        InputStreamFromFile& stream = m_stream.emplace(path.c_str());
        writer = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        (void)close(bothEnds);
        return stream;
    }

    TemporaryFolder m_folder;
    std::optional<InputStreamFromFile> m_stream;
};

class ReadsOfAFile : public InputStreamFromFileTest, public testing::WithParamInterface<Reading> {};

TEST_P(ReadsOfAFile, GiveTheirParts) {
    InputStreamFromFile& stream = streamOf(GetParam().given);
    EXPECT_TRUE(stream.isOpen());
    expectReads(stream, GetParam().expected);
}

const std::string longLine(100000, 'l');

const Reading readings[] = {
    {"EndIsKnownOnceItIsMet", "a", {notAtEnd, character("a"), notAtEnd, character(""), atEnd, character("")}},
    {"CharactersAreBytesOfAnyValue",
     {"\0\xFF\r\n", 4},
     {character({'\0'}), character("\xFF"), character("\r"), character("\n"), character("")}},
    {"LinesLoseTheirEndsAndAThirdOfTwoIsUnchanged", "a\rb\nc", {line("ab"), line("c"), line(unchanged)}},
    {"LinesDropEveryCarriageReturn", "\r\ra\r\rb\r\n\rc\r", {line("ab"), line("c")}},
    {"EmptyLineIsAnEmptyString", "\n\r\nx\n", {line(""), line(""), line("x")}},
    {"ReadThatMeetsTheEndEmptiesItsString", "x\n", {line("x"), notAtEnd, line(""), atEnd, line(unchanged)}},
    {"LinesKeepNulBytesAnd0xFFThatOtherKindsEndWith", {"a\0b\xFF\nz", 6}, {line({"a\0b\xFF", 4}), line("z")}},
    {"LinesMayBeLong", longLine + "\nnext", {line(longLine), line("next")}},
    {"AllOfAnEmptyFileIsEmpty", "", {all("")}},
    {"AllKeepsNulBytes", withNulBytes, {all(withNulBytes)}},
    {"AllGivesTheRestBehindReads", "line\nxrest\nof it", {line("line"), character("x"), all("rest\nof it")}},
    {"AllMeetsNoEnd", "abc", {all("abc"), notAtEnd, all(""), notAtEnd, character(""), atEnd, all(unchanged)}},
};

INSTANTIATE_TEST_SUITE_P(InputStreamFromFile, ReadsOfAFile, testing::ValuesIn(readings), rowName);

} // namespace

TEST_F(InputStreamFromFileTest, AMissingFileIsNotOpenAndAtItsEnd) {
    InputStreamFromFile stream((m_folder / "missing").c_str());
    EXPECT_FALSE(stream.isOpen());
    expectReads(stream, {atEnd, character(""), line(unchanged), all(unchanged)});
}

TEST_F(InputStreamFromFileTest, ALineBeyondTheMemoryEndsEarly) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be made to fail here";
    InputStreamFromFile& stream = streamOf(std::string(100000, 'l') + "\nnext");
    EXPECT_EQ(characterOf(stream), "l"); // stdio has its own buffer from here on
    std::string out;
    {
        const FailingAllocation fault(3);
        stream.getLine(out);
    }
    EXPECT_LT(out.size(), 99999U);
    EXPECT_EQ(out, std::string(out.size(), 'l'));
    EXPECT_GT(out.size(), 0U);
}

TEST_F(InputStreamFromFileTest, ReadBufferOfALargeFileGivesAllOfIt) {
    const std::string content = pattern(300000);
    EXPECT_EQ(allOf(streamOf(content)), content);
}

TEST_F(InputStreamFromFileTest, GetAllOfAFileThatWasCutShortMeanwhileIsEmpty) {
    InputStreamFromFile& stream = streamOf(std::string(100, 'x'));
    EXPECT_EQ(characterOf(stream), "x");
    ASSERT_EQ(truncate((m_folder / "file").c_str(), 0), 0);
    EXPECT_EQ(allOf(stream), "");
}

TEST_F(InputStreamFromFileTest, GetAllSeesWhatWasAppendedMeanwhile) {
    InputStreamFromFile& stream = streamOf("xold");
    EXPECT_EQ(characterOf(stream), "x");
    (void)fileWith("xold and new");
    EXPECT_EQ(allOf(stream), "old and new");
}

TEST_F(InputStreamFromFileTest, GetAllOfWhatCannotBeSoughtReadsNothingAtOnce) {
    int writer = -1; // stays open: who waits for the end waits for ever
    InputStreamFromFile& stream = streamOfPipe(writer);
    const Watchdog watchdog(20);
    EXPECT_EQ(allOf(stream), "") << "nothing was written";
    ASSERT_EQ(write(writer, withNulBytes.data(), withNulBytes.size()),
              static_cast<ssize_t>(withNulBytes.size()));
    EXPECT_EQ(allOf(stream), "");
    EXPECT_FALSE(stream.isEof());
    EXPECT_EQ(characterOf(stream), withNulBytes.substr(0, 1));
    EXPECT_EQ(allOf(stream), "");
    EXPECT_EQ(characterOf(stream), withNulBytes.substr(1, 1)) << "what stdio had read ahead stays as well";
    EXPECT_EQ(close(writer), 0);
}

TEST_F(InputStreamFromFileTest, GetAllBeyondTheMemoryIsEmptyAndMayBeTriedAgain) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be made to fail here";
    const std::string content(100000, 'm');
    InputStreamFromFile& stream = streamOf(content);
    std::string out;
    out.reserve(20); // more than fits into the string object
    {
        const FailingAllocation fault(0);
        stream.getAll(out);
    }
    EXPECT_EQ(out, "");
    EXPECT_EQ(allOf(stream), content);
}

TEST_F(InputStreamFromFileTest, GetAllOfAFileLongerThanAnyStringIsEmpty) {
    const int descriptor = memfd_create("long", MFD_CLOEXEC);
    ASSERT_GE(descriptor, 0);
    ASSERT_EQ(ftruncate(descriptor, std::numeric_limits<off_t>::max()), 0);
    InputStreamFromFile stream(("/proc/self/fd/" + std::to_string(descriptor)).c_str());
    ASSERT_TRUE(stream.isOpen());
    EXPECT_EQ(allOf(stream), "");
    EXPECT_EQ(close(descriptor), 0);
}

TEST_F(InputStreamFromFileTest, WhatIsNoOrdinaryFileIsReadAsFarAsItCanBe) {
    const Row<std::string, std::vector<Read>> files[] = {
        {"a directory", m_folder.path(), {character(""), line(""), all(""), notAtEnd}},
        {"a directory in memory, whose end cannot be sought", "/dev/shm", {all(""), notAtEnd}},
        {"a file of size 0 with a content", "/proc/self/status", {character("N"), all(""), character("a")}},
    };
    for (const auto& file : files) {
        SCOPED_TRACE(file.name);
        InputStreamFromFile stream(file.given.c_str());
        EXPECT_TRUE(stream.isOpen());
        expectReads(stream, file.expected);
    }
}

TEST_F(InputStreamFromFileTest, ReadTakesEverythingUntilTheLineReaderIsSet) {
    std::string out;
    InputStreamFromFile& stream = streamOf("a\nb\nc");
    stream.setReader(InputStream::readLine).read(out);
    EXPECT_EQ(out, "a");
    stream.setReader(InputStream::readCharacter).read(out);
    EXPECT_EQ(out, "b");
    EXPECT_EQ(allOf(stream), "\nc");
    streamOf("a\nb\nc").read(out);
    EXPECT_EQ(out, "a\nb\nc");
}

TEST_F(InputStreamFromFileTest, ClosesItsFileAtItsEnd) {
    const std::string path = fileWith("x");
    const int before = lowestFreeDescriptor();
    {
        const InputStreamFromFile stream(path.c_str());
        EXPECT_TRUE(stream.isOpen());
        EXPECT_NE(lowestFreeDescriptor(), before);
    }
    EXPECT_EQ(lowestFreeDescriptor(), before);
}

TEST(InputStreamFromFile, GetsAsManyBytesAsAreReadWhenTheFileIsShorterThanItSays) {
    const cookie_io_functions_t file = {
        .read = [](void* position, char* bytes, std::size_t) -> ssize_t {
            off64_t& at = *static_cast<off64_t*>(position);
            const bool isStart = std::exchange(at, 100) == 0;
            return isStart ? static_cast<ssize_t>(withNulBytes.copy(bytes, withNulBytes.size())) : 0;
        },
        .write = nullptr,
        .seek =
            [](void* position, off64_t* offset, int whence) {
                off64_t& at = *static_cast<off64_t*>(position);
                *offset += whence == SEEK_END ? 100 : whence == SEEK_CUR ? at : 0;
                at = *offset;
                return 0;
            },
        .close = nullptr};
    off64_t position = 0;
    std::FILE* const shorter = fopencookie(&position, "rb", file);
    ASSERT_NE(shorter, nullptr);
    std::string out;
    InputStreamFromFile::readRemaining(shorter, out);
    EXPECT_EQ(out, withNulBytes);
    EXPECT_EQ(std::fclose(shorter), 0);
}
