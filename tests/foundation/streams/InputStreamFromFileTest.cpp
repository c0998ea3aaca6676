#include "foundation/streams/InputStreamFromFile.h"

#include "tests/foundation/streams/Reads.h"
#include "tests/support/Allocations.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Words.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <limits>
#include <optional>
#include <thread>

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

TEST_F(InputStreamFromFileTest, GetAllOfAPipeReadsUntilItsWritersAreGone) {
    int writer = -1;
    InputStreamFromFile& stream = streamOfPipe(writer);
    ASSERT_EQ(write(writer, withNulBytes.data(), withNulBytes.size()),
              static_cast<ssize_t>(withNulBytes.size()));
    ASSERT_EQ(close(writer), 0);
    EXPECT_EQ(allOf(stream), withNulBytes);
    EXPECT_TRUE(stream.isEof());
    EXPECT_EQ(allOf(stream), "unchanged");
}

TEST_F(InputStreamFromFileTest, GetAllOfAPipeTakesALimitedNumberOfBytesAndLeavesTheRest) {
    int writer = -1;
    InputStreamFromFile& stream = streamOfPipe(writer);
    std::thread source([writer] {
        sigset_t brokenPipe; // should the test fail, the write does
        sigemptyset(&brokenPipe);
        sigaddset(&brokenPipe, SIGPIPE);
        (void)pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
        const std::string bytes = std::string(InputStreamFromFile::unseekableLimit, 'a') + "the rest";
        std::size_t written = 0;
        ssize_t count = 1;
        while (written < bytes.size() && count > 0) {
            count = write(writer, bytes.data() + written, bytes.size() - written);
            written += count > 0 ? static_cast<std::size_t>(count) : 0;
        }
        (void)close(writer);
    });
    const std::string first = allOf(stream);
    const std::string second = allOf(stream);
    m_stream.reset();
    source.join();
    EXPECT_EQ(first.size(), InputStreamFromFile::unseekableLimit);
    EXPECT_EQ(first.find_first_not_of('a'), std::string::npos);
    EXPECT_EQ(second, "the rest");
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
