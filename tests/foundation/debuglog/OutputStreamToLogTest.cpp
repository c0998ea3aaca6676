#include "foundation/debuglog/OutputStreamToLog.h"

#include "foundation/debuglog/DebugLog.h"
#include "tests/support/Matchers.h"
#include "tests/support/RecordingStream.h"

using namespace Common;
using namespace ZNORBTEST;

namespace {

/// A debug log with one stream of category 1, and one of all the others.
class OutputStreamToLogTest : public testing::Test {
protected:
    void SetUp() override {
        DebugLog::addOutputStream(0x01, shared_ptr<OutputStream>(new RecordingStream(m_pieces)));
        DebugLog::addOutputStream(0xFE, shared_ptr<OutputStream>(new RecordingStream(m_others)));
    }

    void TearDown() override { DebugLog::removeAllOutputStreams(); }

    std::vector<std::string> m_pieces;
    std::vector<std::string> m_others;
};

} // namespace

TEST_F(OutputStreamToLogTest, WritesAStampedLineOfCategoryOne) {
    OutputStreamToLog log;
    OutputStream& stream = log;
    stream.write("text", 4);
    EXPECT_THAT(m_pieces, ElementsAre("[", SizeIs(19), "] ", "text", "\n"));
    EXPECT_TRUE(m_others.empty());
}

TEST_F(OutputStreamToLogTest, TakesTheDataForAFormatWhateverTheLengthAndForARecordOfItsOwn) {
    OutputStreamToLog stream;
    stream.write("100%% and whole", 3);
    stream.write("two", 3);
    EXPECT_THAT(m_pieces, ElementsAre("[", SizeIs(19), "] ", "100% and whole", "\n", //
                                      "[", SizeIs(19), "] ", "two", "\n"));
}

TEST_F(OutputStreamToLogTest, WritesNothingWhileTheLogIsInactive) {
    OutputStreamToLog stream;
    DebugLog::removeAllOutputStreams();
    stream.write("lost", 4);
    EXPECT_TRUE(m_pieces.empty());
}

TEST(OutputStreamToLog, HasNoState) {
    EXPECT_EQ(sizeof(OutputStreamToLog), sizeof(OutputStream));
}
