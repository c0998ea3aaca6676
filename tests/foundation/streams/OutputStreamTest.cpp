#include "foundation/streams/OutputStream.h"

#include "tests/support/RecordingStream.h"

#include <memory>
#include <type_traits>

using Common::OutputStream;
using namespace ZNORBTEST;

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
    stream.write("a\0b", 3);
    EXPECT_EQ(pieces, std::vector<std::string>(1, {"a\0b", 3}));
}

TEST(OutputStream, DestroysTheKindOfStreamThroughItsBase) {
    bool ended = false;
    std::vector<std::string> pieces;
    std::unique_ptr<OutputStream> stream =
        std::make_unique<ActingStream>(pieces, ActingStream::Action(), [&ended] { ended = true; });
    stream.reset();
    EXPECT_TRUE(ended);
}
