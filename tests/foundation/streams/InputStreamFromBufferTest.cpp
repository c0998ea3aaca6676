#include "foundation/streams/InputStreamFromBuffer.h"

#include "tests/foundation/containers/Allocations.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using Common::InputStream;
using Common::InputStreamFromBuffer;
using ZNORBTEST::FailingAllocation;

namespace {

using InputStreamFromBufferAllocations = ZNORBTEST::AllocationTest;

std::string characterOf(InputStream& stream) {
    std::string out = "unchanged";
    stream.getCharacter(out);
    return out;
}

std::string lineOf(InputStream& stream) {
    std::string out = "unchanged";
    stream.getLine(out);
    return out;
}

std::string allOf(InputStream& stream) {
    std::string out = "unchanged";
    stream.getAll(out);
    return out;
}

/// Brings its bytes only when it is flushed, as a writing side does.
class LateBuffer : public InputStreamFromBuffer {
public:
    LateBuffer() : InputStreamFromBuffer("") {}

    void flush() override {
        m_bytes += m_late;
        m_late.clear();
    }

    void bringLater(const std::string& bytes) { m_late += bytes; }

private:
    std::string m_late;
};

} // namespace

TEST(InputStreamFromBuffer, IsAlwaysOpen) {
    InputStreamFromBuffer stream("");
    EXPECT_TRUE(stream.isOpen());
}

TEST(InputStreamFromBuffer, IsAtItsEndWhenNoByteIsLeft) {
    InputStreamFromBuffer stream("a");
    EXPECT_FALSE(stream.isEof());
    EXPECT_EQ(characterOf(stream), "a");
    EXPECT_TRUE(stream.isEof());
}

TEST(InputStreamFromBuffer, ReadsACopyOfItsData) {
    std::string data = "abc";
    InputStreamFromBuffer stream(data);
    data = "xyz";
    EXPECT_EQ(allOf(stream), "abc");
}

TEST(InputStreamFromBuffer, CharactersAreTakenFromTheFront) {
    InputStreamFromBuffer stream(std::string("a\0\n", 3));
    EXPECT_EQ(characterOf(stream), "a");
    EXPECT_EQ(characterOf(stream), std::string(1, '\0'));
    EXPECT_EQ(characterOf(stream), "\n");
    EXPECT_EQ(characterOf(stream), "");
}

TEST(InputStreamFromBuffer, LinesEndAtALineFeedAndTheCarriageReturnBehindIt) {
    InputStreamFromBuffer stream("a\n\rb");
    EXPECT_EQ(lineOf(stream), "a");
    EXPECT_EQ(allOf(stream), "b");
}

TEST(InputStreamFromBuffer, ACarriageReturnBeforeTheLineFeedBelongsToTheLine) {
    InputStreamFromBuffer stream("a\r\n");
    EXPECT_EQ(lineOf(stream), "a\r");
    EXPECT_TRUE(stream.isEof());
}

TEST(InputStreamFromBuffer, OnlyOneCarriageReturnBehindTheLineFeedIsDropped) {
    InputStreamFromBuffer stream("a\n\r\rb\n");
    EXPECT_EQ(lineOf(stream), "a");
    EXPECT_EQ(lineOf(stream), "\rb");
}

TEST(InputStreamFromBuffer, LinesFollowOneAnother) {
    InputStreamFromBuffer stream("one\n\ntwo\n\rthree\n");
    EXPECT_EQ(lineOf(stream), "one");
    EXPECT_EQ(lineOf(stream), "");
    EXPECT_EQ(lineOf(stream), "two");
    EXPECT_EQ(lineOf(stream), "three");
    EXPECT_EQ(lineOf(stream), "unchanged");
}

TEST(InputStreamFromBuffer, ALineFeedAndCarriageReturnAtTheVeryEndAreBothTaken) {
    InputStreamFromBuffer stream("a\n\r");
    EXPECT_EQ(lineOf(stream), "a");
    EXPECT_TRUE(stream.isEof());
}

TEST(InputStreamFromBuffer, ALastLineWithoutLineFeedSetsItsStringAndRaisesTheRangeError) {
    InputStreamFromBuffer stream("a");
    std::string out = "old";
    try {
        stream.getLine(out);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "basic_string::substr");
    }
    EXPECT_EQ(out, "a");
    EXPECT_EQ(allOf(stream), "a");
}

TEST(InputStreamFromBuffer, AfterTheRangeErrorTheSameLineRaisesItAgain) {
    InputStreamFromBuffer stream("x\nlast");
    EXPECT_EQ(lineOf(stream), "x");
    std::string out;
    EXPECT_THROW(stream.getLine(out), std::out_of_range);
    EXPECT_THROW(stream.getLine(out), std::out_of_range);
    EXPECT_EQ(out, "last");
}

TEST(InputStreamFromBuffer, AnEmptyBufferLeavesTheStringOfALineUnchangedAndThrowsNothing) {
    InputStreamFromBuffer stream("");
    EXPECT_EQ(lineOf(stream), "unchanged");
}

TEST_F(InputStreamFromBufferAllocations, ALineBeyondTheMemoryChangesNothing) {
    const std::string line(1000, 'l');
    InputStreamFromBuffer stream(line + "\nnext");
    std::string out = "old";
    {
        const FailingAllocation fault(0);
        stream.getLine(out);
    }
    EXPECT_EQ(out, "old");
    EXPECT_EQ(lineOf(stream), line);
}

TEST(InputStreamFromBuffer, GetAllTakesEverythingAndThenLeavesItsStringUnchanged) {
    const std::string data("a\n\0b", 4);
    InputStreamFromBuffer stream(data);
    EXPECT_EQ(allOf(stream), data);
    EXPECT_TRUE(stream.isEof());
    EXPECT_EQ(allOf(stream), "unchanged");
}

TEST_F(InputStreamFromBufferAllocations, GetAllNeedsNoMemory) {
    const std::string data(100000, 'd');
    InputStreamFromBuffer stream(data);
    std::string out;
    {
        const FailingAllocation fault(0);
        stream.getAll(out);
    }
    EXPECT_EQ(out, data);
}

TEST(InputStreamFromBuffer, FlushesBeforeEveryRead) {
    LateBuffer stream;
    stream.bringLater("a");
    EXPECT_FALSE(stream.isEof());
    EXPECT_EQ(characterOf(stream), "a");
    stream.bringLater("b");
    EXPECT_EQ(characterOf(stream), "b");
    stream.bringLater("line\n");
    EXPECT_EQ(lineOf(stream), "line");
    stream.bringLater("rest");
    EXPECT_EQ(allOf(stream), "rest");
}

TEST(InputStreamFromBuffer, ReadTakesEverythingUntilTheLineReaderIsSet) {
    std::string out;
    InputStreamFromBuffer("a\nb\n").read(out);
    EXPECT_EQ(out, "a\nb\n");
    InputStreamFromBuffer("a\nb\n").setReader(InputStream::readLine).read(out);
    EXPECT_EQ(out, "a");
}
