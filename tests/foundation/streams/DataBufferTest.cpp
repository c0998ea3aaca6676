#include "foundation/streams/DataBuffer.h"

#include "foundation/streams/InputStreamFromBuffer.h"
#include "foundation/streams/OutputStreamToBuffer.h"

#include <gtest/gtest.h>

#include <type_traits>

using namespace Common;

namespace {

class VisibleBuffer : public DataBuffer {
public:
    std::string& bytes() { return m_bytes; }
};

/// Both ends of one buffer.
class Channel : public InputStreamFromBuffer, public OutputStreamToBuffer {
public:
    explicit Channel(const std::string& data = {}) : InputStreamFromBuffer(data) {}
};

} // namespace

TEST(DataBuffer, StartsEmptyAndAFlushLeavesTheBytesAlone) {
    VisibleBuffer buffer;
    EXPECT_EQ(buffer.bytes(), "");
    buffer.bytes() = "abc";
    buffer.flush();
    EXPECT_EQ(buffer.bytes(), "abc");
}

TEST(DataBuffer, IsNeverCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<DataBuffer>);
    EXPECT_FALSE(std::is_copy_assignable_v<DataBuffer>);
}

TEST(DataBuffer, IsOneInAnObjectThatIsBothBufferStreamsAndFlushesTheWritingSide) {
    Channel channel;
    InputStreamFromBuffer& reading = channel;
    OutputStreamToBuffer& writing = channel;
    EXPECT_EQ(static_cast<DataBuffer*>(&reading), static_cast<DataBuffer*>(&writing));
    channel.write("abc", 3);
    static_cast<DataBuffer&>(reading).flush();
    EXPECT_EQ(channel.copyOut(0, nullptr, 0), 0U);
    std::string out;
    channel.getAll(out);
    EXPECT_EQ(out, "abc");
}

TEST(DataBuffer, WrittenBytesAreVisibleToEveryReadOfTheSameObject) {
    Channel channel;
    std::string out;
    EXPECT_TRUE(channel.isEof());
    channel.write("x", 1);
    EXPECT_FALSE(channel.isEof());
    channel.getCharacter(out);
    EXPECT_EQ(out, "x");
    channel.write("line\nrest", 9);
    channel.getLine(out);
    EXPECT_EQ(out, "line");
    channel.write("!", 1);
    channel.getAll(out);
    EXPECT_EQ(out, "rest!");
    EXPECT_TRUE(channel.isEof());
}

TEST(DataBuffer, BytesGivenAtTheStartComeBeforeThoseWritten) {
    Channel channel("first");
    channel.write(" second", 7);
    EXPECT_EQ(channel.size(), 12U);
    std::string out;
    channel.getAll(out);
    EXPECT_EQ(out, "first second");
}

TEST(DataBuffer, BytesReadAreGoneFromTheWritingSide) {
    Channel channel;
    channel.write("ab", 2);
    std::string out;
    channel.getCharacter(out);
    EXPECT_EQ(channel.size(), 1U);
    EXPECT_EQ(channel.getString(), "b");
    channel.clear();
    EXPECT_TRUE(channel.isEof());
}

TEST(DataBuffer, ServesAChannelThroughItsStreamBases) {
    Channel channel;
    OutputStream& writing = channel;
    InputStream& reading = channel;
    const std::string text(20000, 'q');
    writing.write(text.data(), static_cast<unsigned int>(text.size()));
    std::string out;
    reading.read(out);
    EXPECT_EQ(out, text);
}
