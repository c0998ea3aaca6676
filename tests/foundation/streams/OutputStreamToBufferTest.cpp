#include "foundation/streams/OutputStreamToBuffer.h"

#include "tests/support/Allocations.h"
#include "tests/support/Layout.h"
#include "tests/support/Rows.h"
#include "tests/support/Words.h"

#include <algorithm>
#include <memory>
#include <type_traits>

using namespace Common;
using namespace ZNORBTEST;

namespace {

using OutputStreamToBufferAllocations = AllocationTest;

constexpr std::size_t chunkSize = 8192;

/// Shows how many chunks there are.
class VisibleStream : public OutputStreamToBuffer {
public:
    using OutputStreamToBuffer::chunkCount;
};

void writeText(OutputStream& stream, const std::string& text) {
    stream.write(text.data(), static_cast<unsigned int>(text.size()));
}

/// What `copyOut` leaves in a destination of `count` bytes.
std::string copyOf(const OutputStreamToBuffer& stream, std::size_t offset, std::size_t count,
                   std::size_t& copied) {
    std::string destination(count + 1, '#');
    copied = stream.copyOut(offset, destination.data(), count);
    EXPECT_EQ(destination.back(), '#') << "wrote behind the destination";
    destination.pop_back();
    return destination;
}

TEST_F(OutputStreamToBufferAllocations, AnUnusedStreamHasNone) {
    const AllocationWatch watch;
    {
        OutputStreamToBuffer stream;
        EXPECT_EQ(stream.getString(), "");
    }
    EXPECT_EQ(watch.allocations(), 0);
}

TEST(OutputStreamToBuffer, StartsEmptyAndAFlushChangesNothing) {
    VisibleStream stream;
    for (int look = 0; look < 2; ++look) {
        EXPECT_EQ(stream.size(), 0U);
        EXPECT_TRUE(stream.isEmpty());
        EXPECT_EQ(stream.chunkCount(), 0U);
        stream.flush();
    }
    EXPECT_EQ(stream.getString(), "");
}

/// How many bytes are written at once, and how many chunks they make.
using Chunks = Row<std::size_t, std::size_t>;

class ChunksOfAWrite : public testing::TestWithParam<Chunks> {};

TEST_P(ChunksOfAWrite, HoldItUntilItIsJoinedIntoTheString) {
    const std::string bytes = pattern(GetParam().given);
    VisibleStream stream;
    writeText(stream, bytes);
    EXPECT_EQ(stream.chunkCount(), GetParam().expected);
    EXPECT_EQ(stream.size(), bytes.size());
    EXPECT_EQ(stream.getString(), bytes);
    EXPECT_EQ(stream.chunkCount(), 0U);
    EXPECT_EQ(stream.size(), bytes.size());
}

const Chunks chunks[] = {
    {"OneByteLessThanAChunkStaysInIt", chunkSize - 1, 1},
    {"AFullChunkIsFollowedByAnEmptyOneAtOnce", chunkSize, 2},
    {"ALongWriteSpreadsOverChunks", 5 * chunkSize + 17, 6},
};

INSTANTIATE_TEST_SUITE_P(OutputStreamToBuffer, ChunksOfAWrite, testing::ValuesIn(chunks), rowName);

TEST(OutputStreamToBuffer, JoinsWritesInOrderAndGivesTheSameStringAgain) {
    VisibleStream stream;
    writeText(stream, pattern(chunkSize - 1));
    EXPECT_EQ(stream.chunkCount(), 1U);
    stream.write("xyz", 3);
    EXPECT_EQ(stream.chunkCount(), 2U);
    EXPECT_EQ(stream.getString(), pattern(chunkSize - 1) + "xyz");
    EXPECT_EQ(stream.getString(), pattern(chunkSize - 1) + "xyz");
}

TEST(OutputStreamToBuffer, ALengthOfZeroNeedsNoDataAllocatesTheFirstChunkAndHoldsNothing) {
    for (const char* const data : {"text", static_cast<const char*>(nullptr)}) {
        VisibleStream stream;
        for (int write = 0; write < 2; ++write) {
            stream.write(data, 0);
            EXPECT_EQ(stream.chunkCount(), 1U);
            EXPECT_EQ(stream.size(), 0U);
            EXPECT_TRUE(stream.isEmpty());
        }
        EXPECT_EQ(stream.getString(), "");
        EXPECT_EQ(stream.chunkCount(), 0U);
        stream.write("x", 1);
        stream.write(data, 0);
        EXPECT_EQ(stream.chunkCount(), 1U);
        EXPECT_EQ(stream.getString(), "x");
    }
}

TEST(OutputStreamToBuffer, HoldsBytesOfAnyValue) {
    OutputStreamToBuffer stream;
    writeText(stream, allBytes());
    EXPECT_EQ(stream.getString(), allBytes());
}

TEST(OutputStreamToBuffer, WritesOfAnySizeMeetTheChunkBoundsRight) {
    const std::string bytes = pattern(40000);
    for (const std::size_t step : {1U, 7U, 4096U, 8191U, 8192U, 8193U, 16384U}) {
        OutputStreamToBuffer stream;
        for (std::size_t done = 0; done < bytes.size(); done += step) {
            writeText(stream, bytes.substr(done, step));
            ASSERT_EQ(stream.size(), std::min(done + step, bytes.size()));
        }
        EXPECT_EQ(stream.getString(), bytes) << step;
    }
}

TEST_F(OutputStreamToBufferAllocations, DoesNotCopyWhatItHoldsWhileItGrows) {
    const std::string rest = pattern(chunkSize - 1);
    OutputStreamToBuffer stream;
    writeText(stream, pattern(10 * chunkSize));
    const AllocationWatch watch;
    stream.write("x", 1);
    EXPECT_EQ(watch.allocations(), 0);
    writeText(stream, rest);
    EXPECT_EQ(watch.allocations(), 1); // the next chunk
}

TEST(OutputStreamToBuffer, FlushMovesTheChunksBehindTheString) {
    VisibleStream stream;
    stream.write("first ", 6);
    stream.flush();
    EXPECT_EQ(stream.chunkCount(), 0U);
    writeText(stream, pattern(chunkSize + 1));
    EXPECT_EQ(stream.size(), chunkSize + 7);
    static_cast<DataBuffer&>(stream).flush();
    EXPECT_EQ(stream.chunkCount(), 0U);
    EXPECT_EQ(stream.size(), chunkSize + 7);
    EXPECT_EQ(stream.getString(), "first " + pattern(chunkSize + 1));
}

TEST(OutputStreamToBuffer, GetDataFlushesAndPointsToTheOneStringOfTheStreamsLife) {
    VisibleStream stream;
    const std::string& held = stream.getString();
    stream.write("abc", 3);
    EXPECT_STREQ(stream.getData(), "abc");
    EXPECT_EQ(stream.chunkCount(), 0U);
    EXPECT_EQ(stream.getData(), stream.getString().data());
    EXPECT_EQ(&stream.getString(), &held);
    EXPECT_EQ(held, "abc");
}

TEST(OutputStreamToBuffer, SizeCountsStringAndChunksWithoutFlushingAndClearDropsBoth) {
    VisibleStream stream;
    stream.write("abc", 3);
    stream.flush();
    writeText(stream, pattern(2 * chunkSize));
    EXPECT_EQ(stream.size(), 3 + 2 * chunkSize);
    EXPECT_FALSE(stream.isEmpty());
    EXPECT_EQ(stream.chunkCount(), 3U);
    stream.clear();
    EXPECT_EQ(stream.chunkCount(), 0U);
    EXPECT_TRUE(stream.isEmpty());
    EXPECT_EQ(stream.getString(), "");
    stream.write("new", 3);
    EXPECT_EQ(stream.getString(), "new");
}

TEST_F(OutputStreamToBufferAllocations, GivesBackAllItsMemory) {
    const AllocationWatch watch;
    {
        std::unique_ptr<OutputStream> stream = std::make_unique<OutputStreamToBuffer>();
        writeText(*stream, pattern(3 * chunkSize));
    }
    {
        OutputStreamToBuffer stream;
        writeText(stream, pattern(3 * chunkSize));
        stream.flush();
        writeText(stream, pattern(10));
    }
    EXPECT_EQ(watch.outstanding(), 0);
}

TEST(OutputStreamToBuffer, IsNeverCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<OutputStreamToBuffer>);
    EXPECT_FALSE(std::is_copy_assignable_v<OutputStreamToBuffer>);
}

/// A text in the stream, from where and how much is copied, and what comes of it.
struct Copy {
    const char* name;
    std::string text;
    std::size_t offset;
    std::size_t count;
    std::string destination;
    std::size_t copied;
};

TEST(OutputStreamToBuffer, CopyOutCopiesWithoutConsumingOrFlushingAndFillsTheRestWithSpaces) {
    const Copy copies[] = {
        {"from within", "abcdef", 2, 3, "cde", 3},   {"more than there is", "abc", 1, 6, "bc    ", 2},
        {"from the end", "abc", 3, 4, "    ", 0},    {"from beyond the end", "abc", SIZE_MAX, 4, "    ", 0},
        {"from an empty stream", "", 0, 2, "  ", 0},
    };
    for (const Copy& copy : copies) {
        SCOPED_TRACE(copy.name);
        VisibleStream stream;
        writeText(stream, copy.text);
        std::size_t copied = 99;
        EXPECT_EQ(copyOf(stream, copy.offset, copy.count, copied), copy.destination);
        EXPECT_EQ(copied, copy.copied);
        EXPECT_EQ(stream.chunkCount(), 1U);
        EXPECT_EQ(stream.getString(), copy.text);
    }
    std::size_t copied = 99;
    EXPECT_EQ(copyOf(OutputStreamToBuffer(), 0, 2, copied), "  ") << "from one that nothing was written to";
    EXPECT_EQ(copied, 0U);
}

TEST(OutputStreamToBuffer, CopyOutOfNothingTouchesNoDestination) {
    OutputStreamToBuffer stream;
    stream.write("abc", 3);
    EXPECT_EQ(stream.copyOut(0, nullptr, 0), 0U);
}

TEST(OutputStreamToBuffer, CopyOutCrossesFromTheStringThroughTheChunks) {
    const std::string bytes = pattern(100 + 3 * chunkSize);
    OutputStreamToBuffer stream;
    writeText(stream, bytes.substr(0, 100));
    stream.flush();
    writeText(stream, bytes.substr(100));
    const std::size_t offsets[] = {0, 99, 100, 100 + chunkSize - 1, 100 + chunkSize, bytes.size() - 1};
    for (const std::size_t offset : offsets) {
        std::size_t copied = 0;
        const std::size_t rest = bytes.size() - offset;
        EXPECT_EQ(copyOf(stream, offset, rest + 5, copied), bytes.substr(offset) + "     ");
        EXPECT_EQ(copied, rest);
        EXPECT_EQ(copyOf(stream, offset, 1, copied), bytes.substr(offset, 1));
        EXPECT_EQ(copied, 1U);
    }
}

// The allocations of a write are the chunks, each in one piece with its place in the list, and once the
// list's sentinel. Whichever of them fails, the front of the run stays and the next write follows it.
TEST_F(OutputStreamToBufferAllocations, WithoutMemoryAWriteKeepsTheFrontOfItsRunAndTheStreamGoesOn) {
    const std::string bytes = pattern(3 * chunkSize + 100);
    std::size_t keptBefore = 0;
    for (long succeeding = 0; succeeding < 5; ++succeeding) {
        const AllocationWatch watch;
        {
            OutputStreamToBuffer stream;
            {
                const FailingAllocation fault(succeeding);
                writeText(stream, bytes);
            }
            const std::size_t kept = stream.size();
            EXPECT_LT(kept, bytes.size());
            EXPECT_GE(kept, keptBefore);
            keptBefore = kept;
            stream.write("tail", 4);
            EXPECT_EQ(stream.getString(), bytes.substr(0, kept) + "tail") << succeeding;
        }
        EXPECT_EQ(watch.outstanding(), 0) << succeeding;
    }
    EXPECT_EQ(keptBefore, 2 * chunkSize);
}

TEST_F(OutputStreamToBufferAllocations, WithoutMemoryForTheNextChunkTheLastOneStillHasRoom) {
    VisibleStream stream;
    writeText(stream, pattern(chunkSize - 1));
    {
        const FailingAllocation fault(0);
        stream.write("x", 1);
    }
    EXPECT_EQ(stream.chunkCount(), 1U);
    EXPECT_EQ(stream.size(), chunkSize - 1);
    stream.write("y", 1);
    EXPECT_EQ(stream.chunkCount(), 2U);
    EXPECT_EQ(stream.getString(), pattern(chunkSize - 1) + "y");
}

TEST_F(OutputStreamToBufferAllocations, WithoutMemoryFlushLosesNothingAndMayBeTriedAgain) {
    const std::string bytes = pattern(chunkSize + 5);
    VisibleStream stream;
    stream.write("held ", 5);
    stream.flush();
    writeText(stream, bytes);
    {
        const FailingAllocation fault(0);
        EXPECT_EQ(stream.getString(), "held ");
    }
    EXPECT_EQ(stream.size(), bytes.size() + 5);
    EXPECT_EQ(stream.chunkCount(), 2U);
    EXPECT_EQ(stream.getString(), "held " + bytes);
}

TEST(OutputStreamToBuffer, KeepsTheFillOfTheLastChunkBehindTheListOfChunks) {
    OutputStreamToBuffer stream;
    EXPECT_EQ(fieldAt<void*>(&stream, sizeof(void*)), nullptr) << "a list that was never used";
    stream.write("abc", 3);
    EXPECT_NE(fieldAt<void*>(&stream, sizeof(void*)), nullptr);
    EXPECT_EQ(fieldAt<std::uint32_t>(&stream, 2 * sizeof(void*)), 3U);
}

} // namespace
