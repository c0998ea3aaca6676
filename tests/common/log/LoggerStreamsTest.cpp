#include "foundation/streams/OutputStreamToConsole.h"
#include "tests/common/log/LoggerFixture.h"
#include "tests/support/Matchers.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/SetClock.h"
#include "tests/support/StandIns.h"

#include <pthread.h>
#include <sys/mman.h>

#include <climits>
#include <utility>

namespace {

using ORBCOMMON::Logger;
using namespace ZNORBTEST;

// --- No stream

TEST_F(LoggerTest, WithoutStreamsEveryOperationReturnsNormally) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Logger::log("nobody %s", "listens");
    Logger::logAt(0, "nobody %s", "listens");
    logList(0, "nobody %s", "listens");
    Logger::writeLine(0, "nobody listens");
    Logger::hexDump(0, "AB", 2);
    Logger::removeAllOutputStreams();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(LoggerTest, WithoutStreamsARecordTakesNoLock) {
    ZNORB_SKIP_IF(underThreadSanitizer) << "the thread sanitizer has locks of its own";
    int unlocks = 0;
    const InPlaceOf<pthread_mutex_unlock> counted([&unlocks](pthread_mutex_t* mutex) {
        ++unlocks;
        return pthread_mutex_unlock(mutex);
    });
    Logger::log("nobody listens");
    Logger::logAt(0, "nobody listens");
    logList(0, "nobody listens");
    EXPECT_EQ(unlocks, 0);
    Logger::resume();
    EXPECT_GT(unlocks, 0);
}

TEST_F(LoggerTest, IsSilentAsLongAsItHasNoStream) {
    EXPECT_TRUE(Logger::isSilent());
    Logger::addOutputStream(StreamPointer(new Common::OutputStreamToConsole));
    EXPECT_FALSE(Logger::isSilent());
    Logger::pause();
    EXPECT_FALSE(Logger::isSilent()) << "what is logged may be heard at any moment";
    Logger::resume();
    Logger::removeAllOutputStreams();
    EXPECT_TRUE(Logger::isSilent());
}

// Formatting the argument, or dumping it, would touch a page that must not be read.
TEST_F(LoggerTest, WithoutStreamsNothingIsFormatted) {
    const std::size_t size = 4096;
    void* const page = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(page, MAP_FAILED);
    Logger::log("%s", static_cast<const char*>(page));
    Logger::logAt(0, "%s", static_cast<const char*>(page));
    Logger::writeLine(0, static_cast<const char*>(page));
    Logger::hexDump(0, page, size);
    EXPECT_EQ(munmap(page, size), 0);
}

TEST_F(LoggerTest, WithoutStreamsClockIsNotRead) {
    Logger::setShowTimestamp(true);
    const SetClock clock(billionthSecond);
    Logger::log("message");
    Logger::hexDump(0, "AB", 2);
    EXPECT_EQ(clock.reads(), 0);
}

// --- Levels

TEST_F(RecordedLogger, LevelZeroIsWrittenAndLevelOneDroppedAtFirst) {
    Logger::logAt(0, "zero");
    Logger::logAt(1, "one");
    Logger::writeLine(1, "one");
    Logger::hexDump(1, "A", 1);
    EXPECT_THAT(writes, ElementsAre("zero", "\r\n"));
}

TEST_F(RecordedLogger, LevelUpToTheThresholdIsWritten) {
    Logger::setLogLevel(2);
    for (const int level : {-1, 0, 1, 2, 3, INT_MAX}) {
        Logger::logAt(level, "%d", level);
    }
    EXPECT_EQ(joined(writes), "-1\r\n0\r\n1\r\n2\r\n");
}

TEST_F(RecordedLogger, NegativeThresholdCountsAsZero) {
    for (const int threshold : {-5, -1, INT_MIN}) {
        writes.clear();
        Logger::setLogLevel(3);
        Logger::setLogLevel(threshold);
        Logger::logAt(1, "one");
        Logger::logAt(0, "zero");
        EXPECT_THAT(writes, ElementsAre("zero", "\r\n")) << threshold;
    }
}

TEST_F(RecordedLogger, LogIsWrittenWhateverTheThreshold) {
    for (const int threshold : {0, 5, INT_MAX}) {
        writes.clear();
        Logger::setLogLevel(threshold);
        Logger::log("message");
        EXPECT_THAT(writes, ElementsAre("message", "\r\n")) << threshold;
    }
}

// --- Pause

TEST_F(RecordedLogger, NothingIsWrittenWhilePausedAndOneResumeBringsNothingBack) {
    Logger::pause();
    Logger::log("message");
    Logger::logAt(0, "message");
    logList(0, "message");
    Logger::writeLine(0, "message");
    Logger::hexDump(0, "AB", 2);
    EXPECT_THAT(writes, IsEmpty());
    Logger::pause();
    Logger::resume();
    Logger::log("kept");
    EXPECT_THAT(writes, ElementsAre("kept", "\r\n"));
}

TEST_F(LoggerTest, SettingsMadeWhilePausedHoldAfterwards) {
    Logger::pause();
    addRecorder();
    Logger::setLogLevel(1);
    Logger::resume();
    Logger::logAt(1, "one");
    EXPECT_THAT(writes, ElementsAre("one", "\r\n"));
}

// --- Several streams, and streams that log

TEST_F(LoggerTest, StreamsGetEveryRecordInTheOrderOfAddition) {
    addRecorder("A:");
    addRecorder("B:");
    Logger::log("1");
    Logger::log("2");
    EXPECT_THAT(writes, ElementsAre("A:1", "A:\r\n", "B:1", "B:\r\n", "A:2", "A:\r\n", "B:2", "B:\r\n"));
}

TEST_F(LoggerTest, StreamAddedTwiceGetsEveryRecordTwice) {
    const StreamPointer stream(new RecordingStream(writes));
    Logger::addOutputStream(stream);
    Logger::addOutputStream(stream);
    Logger::log("1");
    EXPECT_THAT(writes, ElementsAre("1", "\r\n", "1", "\r\n"));
}

TEST_F(LoggerTest, NullStreamGetsNothingAndHoldsNobodyUp) {
    addRecorder("A:");
    Logger::addOutputStream(StreamPointer());
    Logger::addOutputStream(StreamPointer(nullptr));
    addRecorder("B:");
    Logger::log("1");
    EXPECT_THAT(writes, ElementsAre("A:1", "A:\r\n", "B:1", "B:\r\n"));
    writes.clear();
    Logger::setShowTimestamp(true);
    Logger::log("stamped");
    EXPECT_EQ(writes.size(), 2 * 5U);
}

TEST_F(LoggerTest, ListKeepsAStreamAliveUntilItIsRemoved) {
    bool ended = false;
    Logger::addOutputStream(StreamPointer(new ActingStream(writes, {}, [&ended] { ended = true; })));
    Logger::log("alive");
    EXPECT_FALSE(ended);
    Logger::removeAllOutputStreams();
    EXPECT_TRUE(ended);
    EXPECT_THAT(writes, ElementsAre("alive", "\r\n"));
}

TEST_F(LoggerTest, RemovedStreamLivesOnWithItsOtherOwner) {
    bool ended = false;
    {
        const StreamPointer stream(new ActingStream(writes, {}, [&ended] { ended = true; }));
        Logger::addOutputStream(stream);
        Logger::addOutputStream(stream);
        Logger::removeAllOutputStreams();
        EXPECT_FALSE(ended);
        Logger::log("message");
        EXPECT_THAT(writes, IsEmpty());
    }
    EXPECT_TRUE(ended);
}

TEST_F(LoggerTest, StreamsCanBeAddedAgainAfterRemoval) {
    addRecorder("A:");
    Logger::removeAllOutputStreams();
    addRecorder("B:");
    Logger::log("1");
    EXPECT_THAT(writes, ElementsAre("B:1", "B:\r\n"));
}

TEST_F(LoggerTest, StreamMayLogFromWithinItsWrite) {
    addRecorder("before:");
    Logger::addOutputStream(StreamPointer(new ActingStream(writes, [](const std::string& text) {
        if (text == "outer") {
            Logger::log("inner");
        }
    })));
    addRecorder("after:");
    Logger::log("outer");
    EXPECT_THAT(writes,
                ElementsAre("before:outer", "before:\r\n", "outer", "before:inner", "before:\r\n", "inner",
                            "\r\n", "after:inner", "after:\r\n", "\r\n", "after:outer", "after:\r\n"));
}

TEST_F(LoggerTest, RecordFromWithinAWriteLeavesTheOuterStampAlone) {
    setZone("UTC");
    bool first = true;
    Logger::addOutputStream(StreamPointer(new ActingStream(writes, [&first](const std::string& text) {
        if (text == "[" && std::exchange(first, false)) {
            Logger::log("inner");
        }
    })));
    Logger::setShowTimestamp(true);
    const SetClock clock(billionthSecond, 1);
    Logger::log("outer");
    EXPECT_EQ(joined(writes), "[[Sun Sep  9 01:46:41 2001] inner\r\nSun Sep  9 01:46:40 2001] outer\r\n");
}

TEST_F(LoggerTest, SwitchingStampsFromWithinAWriteActsOnTheNextRecord) {
    Logger::addOutputStream(
        StreamPointer(new ActingStream(writes, [](const std::string&) { Logger::setShowTimestamp(true); })));
    addRecorder("B:");
    Logger::log("1");
    EXPECT_THAT(writes, ElementsAre("1", "\r\n", "B:1", "B:\r\n"));
}

TEST_F(LoggerTest, StreamMayAddAStreamFromWithinItsWrite) {
    Logger::addOutputStream(StreamPointer(new ActingStream(writes, [this](const std::string& text) {
        if (text == "first") {
            addRecorder("added:");
        }
    })));
    Logger::log("first");
    writes.clear();
    Logger::log("second");
    EXPECT_THAT(writes, ElementsAre("second", "\r\n", "added:second", "added:\r\n"));
}

TEST_F(LoggerTest, StreamMayLogWhileItIsRemoved) {
    Logger::addOutputStream(StreamPointer(new ActingStream(writes, {}, [] { Logger::log("farewell"); })));
    addRecorder("B:");
    Logger::removeAllOutputStreams();
    Logger::log("nobody");
    EXPECT_THAT(writes, ElementsAre("B:farewell", "B:\r\n"));
}

} // namespace
