#include "foundation/streams/OutputStream.h"

#include "tests/support/RecordingStream.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

using Common::OutputStream;
using ZNORBTEST::RecordingStream;

namespace {

class StreamThatTellsItsEnd : public OutputStream {
public:
    explicit StreamThatTellsItsEnd(bool& ended) : m_ended(ended) {}
    StreamThatTellsItsEnd(const StreamThatTellsItsEnd&) = delete;
    StreamThatTellsItsEnd& operator=(const StreamThatTellsItsEnd&) = delete;
    ~StreamThatTellsItsEnd() override { m_ended = true; }

    void write(const char* /*data*/, const unsigned int& /*length*/) override {}

private:
    bool& m_ended;
};

} // namespace

TEST(OutputStream, IsAbstractAndNeverCopied) {
    EXPECT_TRUE(std::is_abstract_v<OutputStream>);
    EXPECT_FALSE(std::is_copy_constructible_v<RecordingStream>);
    EXPECT_FALSE(std::is_copy_assignable_v<RecordingStream>);
}

TEST(OutputStream, HasNoMembers) {
    EXPECT_EQ(sizeof(OutputStream), sizeof(void*));
}

TEST(OutputStream, HandsBytesAndLengthToTheKindOfStream) {
    std::vector<std::string> pieces;
    RecordingStream recorder(pieces);
    OutputStream& stream = recorder;
    stream.write("abc", 2);
    EXPECT_EQ(pieces, std::vector<std::string>{"ab"});
}

TEST(OutputStream, DestroysTheKindOfStreamThroughItsBase) {
    bool ended = false;
    std::unique_ptr<OutputStream> stream = std::make_unique<StreamThatTellsItsEnd>(ended);
    stream.reset();
    EXPECT_TRUE(ended);
}
