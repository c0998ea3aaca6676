#include "foundation/streams/InputStreamFromBuffer.h"

#include "tests/foundation/streams/Reads.h"
#include "tests/support/Allocations.h"

#include <stdexcept>

using namespace Common;
using namespace ZNORBTEST;

namespace {

using InputStreamFromBufferAllocations = AllocationTest;

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

class ReadsOfABuffer : public testing::TestWithParam<Reading> {};

TEST_P(ReadsOfABuffer, GiveTheirParts) {
    InputStreamFromBuffer stream(GetParam().given);
    EXPECT_TRUE(stream.isOpen());
    expectReads(stream, GetParam().expected);
    EXPECT_TRUE(stream.isOpen()) << "always";
}

const Reading readings[] = {
    {"IsAtItsEndWhenNoByteIsLeft", "a", {notAtEnd, character("a"), atEnd}},
    {"CharactersAreTakenFromTheFront",
     {"a\0\n", 3},
     {character("a"), character({'\0'}), character("\n"), character("")}},
    {"LinesEndAtALineFeedAndTheCarriageReturnBehindIt", "a\n\rb", {line("a"), all("b")}},
    {"CarriageReturnBeforeTheLineFeedBelongsToTheLine", "a\r\n", {line("a\r"), atEnd}},
    {"OnlyOneCarriageReturnBehindTheLineFeedIsDropped", "a\n\r\rb\n", {line("a"), line("\rb")}},
    {"LinesFollowOneAnother",
     "one\n\ntwo\n\rthree\n",
     {line("one"), line(""), line("two"), line("three"), line(unchanged)}},
    {"LineFeedAndCarriageReturnAtTheVeryEndAreBothTaken", "a\n\r", {line("a"), atEnd}},
    {"EmptyBufferLeavesTheStringOfALineUnchangedAndThrowsNothing", "", {line(unchanged)}},
    {"AllTakesEverythingAndThenItIsUnchanged", {"a\n\0b", 4}, {all({"a\n\0b", 4}), atEnd, all(unchanged)}},
};

INSTANTIATE_TEST_SUITE_P(InputStreamFromBuffer, ReadsOfABuffer, testing::ValuesIn(readings), rowName);

} // namespace

TEST(InputStreamFromBuffer, ReadsACopyOfItsData) {
    std::string data = "abc";
    InputStreamFromBuffer stream(data);
    data = "xyz";
    EXPECT_EQ(allOf(stream), "abc");
}

TEST(InputStreamFromBuffer, ALastLineWithoutLineFeedSetsItsStringAndRaisesTheRangeErrorEachTime) {
    InputStreamFromBuffer stream("x\nlast");
    EXPECT_EQ(lineOf(stream), "x");
    for (int read = 0; read < 2; ++read) {
        std::string out = "old";
        try {
            stream.getLine(out);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::out_of_range& error) {
            EXPECT_STREQ(error.what(), "basic_string::substr");
        }
        EXPECT_EQ(out, "last");
    }
    EXPECT_EQ(allOf(stream), "last");
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
