#include "common/Logger.h"

#include "foundation/OutputStream.h"
#include "foundation/OutputStreamToConsole.h"
#include "tests/common/WithoutLoggerMutex.h"
#include "tests/support/FailingStart.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using Common::OutputStream;
using Common::shared_ptr;
using ORBCOMMON::formatLogTime;
using ORBCOMMON::Logger;
using ORBCOMMON::logger_mutex;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool canRunOutOfMemory = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool canRunOutOfMemory = false;
#else
constexpr bool canRunOutOfMemory = true;
#endif
#else
constexpr bool canRunOutOfMemory = true;
#endif

using Writes = std::vector<std::string>;
using StreamPointer = shared_ptr<OutputStream>;

static_assert(!std::is_default_constructible_v<Logger>);

// The clock as this executable sees it: counted, and set by a test that gives it a start.
std::atomic<int> clockReads = 0;
std::atomic<std::time_t> clockStart = 0;

// 2001-09-09 01:46:40 UTC, with a day of the month of one digit.
constexpr std::time_t billionthSecond = 1000000000;

} // namespace

// Stands in for the C library's in this executable. A clock that a test has set moves on by a second with
// each reading.
extern "C" time_t time(time_t* result) noexcept {
    timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    const int reads = clockReads++;
    const time_t value = clockStart == 0 ? now.tv_sec : clockStart + reads;
    if (result != nullptr) {
        *result = value;
    }
    return value;
}

namespace {

// Notes every write, behind its own name, in a record that streams may share.
class RecordingStream : public OutputStream {
public:
    explicit RecordingStream(Writes& writes, std::string name = "")
        : m_writes(writes), m_name(std::move(name)) {}

    void write(const char* data, const unsigned int& length) override {
        EXPECT_EQ(data[length], '\0') << "streams that print text need a terminated one";
        m_writes.push_back(m_name + std::string(data, length));
    }

private:
    Writes& m_writes;
    std::string m_name;
};

// Does something of its own after each write, and when it is destroyed.
class ActingStream : public RecordingStream {
public:
    using Action = std::function<void(const std::string&)>;

    ActingStream(Writes& writes, Action onWrite, std::function<void()> onEnd = {})
        : RecordingStream(writes), m_onWrite(std::move(onWrite)), m_onEnd(std::move(onEnd)) {}

    ~ActingStream() override {
        if (m_onEnd) {
            m_onEnd();
        }
    }

    void write(const char* data, const unsigned int& length) override {
        RecordingStream::write(data, length);
        if (m_onWrite) {
            m_onWrite(std::string(data, length));
        }
    }

private:
    Action m_onWrite;
    std::function<void()> m_onEnd;
};

std::string joined(const Writes& writes) {
    std::string text;
    for (const std::string& write : writes) {
        text += write;
    }
    return text;
}

// Constructed before the Logger's own static initialisation and destroyed after its end. What it logs at the
// end must neither reach a stream nor touch what is gone.
class EarlyGlobal {
public:
    EarlyGlobal() : m_mutexExisted(static_cast<bool>(logger_mutex)) {
        Logger::addOutputStream(StreamPointer(new RecordingStream(m_writes)));
        Logger::log("early %d", 1);
        Logger::hexDump(0, "A", 1);
        Logger::removeAllOutputStreams();
        Logger::setLogLevel(7);
    }

    ~EarlyGlobal() {
        Writes late;
        Logger::addOutputStream(StreamPointer(new RecordingStream(late)));
        Logger::log("late");
        Logger::hexDump(0, "A", 1);
        Logger::writeLine(0, "late");
        Logger::removeAllOutputStreams();
        Logger::setLogLevel(0);
        Logger::setShowTimestamp(false);
        Logger::pause();
        Logger::resume();
        if (reportAtEnd) {
            (void)std::fprintf(stderr, "late writes: %zu\n", late.size());
        }
    }

    EarlyGlobal(const EarlyGlobal&) = delete;
    EarlyGlobal& operator=(const EarlyGlobal&) = delete;

    [[nodiscard]] bool mutexExisted() const { return m_mutexExisted; }
    [[nodiscard]] const Writes& writes() const { return m_writes; }

    bool reportAtEnd = false;

private:
    bool m_mutexExisted;
    Writes m_writes;
};

__attribute__((init_priority(101))) EarlyGlobal earlyGlobal;

// Before the first test: notes what is written under the threshold that the early global has set, and sets
// the usual one for the tests.
class EarlySettings : public testing::Environment {
public:
    void SetUp() override {
        Logger::addOutputStream(StreamPointer(new RecordingStream(s_writes)));
        Logger::logAt(7, "seven");
        Logger::logAt(8, "eight");
        Logger::removeAllOutputStreams();
        Logger::setLogLevel(0);
    }

    static const Writes& writes() { return s_writes; }

private:
    inline static Writes s_writes;
};

[[maybe_unused]] const testing::Environment* const earlySettings =
    testing::AddGlobalTestEnvironment(new EarlySettings);

class LoggerTest : public testing::Test {
protected:
    void SetUp() override { reset(); }

    void TearDown() override { reset(); }

    static void reset() {
        Logger::removeAllOutputStreams();
        Logger::resume();
        Logger::setShowTimestamp(false);
        Logger::setLogLevel(0);
        clockStart = 0;
    }

    static void setZone(const char* zone) {
        ASSERT_EQ(setenv("TZ", zone, 1), 0);
        tzset();
    }

    // From now on the clock shows `start`, and a second more with each reading.
    static void setClock(std::time_t start) {
        clockReads = 0;
        clockStart = start;
    }

    void addRecorder(const std::string& name = "") {
        Logger::addOutputStream(StreamPointer(new RecordingStream(writes, name)));
    }

    Writes writes;
};

// --- Records

TEST_F(LoggerTest, RecordIsTheMessageAndThenTheLineEndInTwoWrites) {
    addRecorder();
    Logger::log("message");
    EXPECT_THAT(writes, ElementsAre("message", "\r\n"));
}

TEST_F(LoggerTest, LogFormatsItsArguments) {
    addRecorder();
    Logger::log("Entry: %2d, Valid?: %s, ID: %s", 3, "Yes", "abc");
    EXPECT_THAT(writes, ElementsAre("Entry:  3, Valid?: Yes, ID: abc", "\r\n"));
}

TEST_F(LoggerTest, LogAtFormatsItsArguments) {
    addRecorder();
    Logger::logAt(0, "Error Receiving from Server. Code: %d", 104);
    EXPECT_THAT(writes, ElementsAre("Error Receiving from Server. Code: 104", "\r\n"));
}

__attribute__((format(printf, 2, 3))) void logList(int level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Logger::vlog(level, format, arguments);
    va_end(arguments);
}

TEST_F(LoggerTest, VlogFormatsAnArgumentList) {
    addRecorder();
    logList(0, "%s=%u", "length", 58U);
    logList(1, "%s", "too verbose");
    EXPECT_THAT(writes, ElementsAre("length=58", "\r\n"));
}

TEST_F(LoggerTest, MessageWithALineFeedGetsTheLineEndAllTheSame) {
    addRecorder();
    Logger::log("line\n");
    EXPECT_THAT(writes, ElementsAre("line\n", "\r\n"));
}

TEST_F(LoggerTest, EmptyMessageIsARecordToo) {
    addRecorder();
    Logger::log("%s", "");
    EXPECT_THAT(writes, ElementsAre("", "\r\n"));
}

TEST_F(LoggerTest, ConsoleStreamPrintsExactlyTheMessageAndTheLineEnd) {
    Logger::addOutputStream(StreamPointer(new Common::OutputStreamToConsole));
    testing::internal::CaptureStdout();
    Logger::log("Press: q, then Enter to exit.");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Press: q, then Enter to exit.\r\n");
}

TEST_F(LoggerTest, WriteLineDoesNotReadItsTextAsAFormat) {
    addRecorder();
    Logger::writeLine(0, "100%s %n %d %%");
    EXPECT_THAT(writes, ElementsAre("100%s %n %d %%", "\r\n"));
}

TEST_F(LoggerTest, ArgumentsAreNotReadAsAFormat) {
    addRecorder();
    Logger::log("%s", "%s %n");
    EXPECT_THAT(writes, ElementsAre("%s %n", "\r\n"));
}

TEST_F(LoggerTest, MessageOf8191BytesIsWrittenWhole) {
    addRecorder();
    const std::string message(8191, 'm');
    Logger::log("%s", message.c_str());
    EXPECT_THAT(writes, ElementsAre(message, "\r\n"));
}

TEST_F(LoggerTest, LongerMessageIsCutAt8191Bytes) {
    addRecorder();
    for (const std::size_t length : {8192U, 8193U, 100000U}) {
        writes.clear();
        Logger::log("%s", std::string(length, 'm').c_str());
        EXPECT_THAT(writes, ElementsAre(std::string(8191, 'm'), "\r\n"));
    }
}

TEST_F(LoggerTest, WriteLineCutsNothing) {
    addRecorder();
    const std::string text(100000, 't');
    Logger::writeLine(0, text.c_str());
    EXPECT_THAT(writes, ElementsAre(text, "\r\n"));
}

// The C locale has no bytes for the wide character, so the formatter gives up halfway.
TEST_F(LoggerTest, MessageThatCannotBeFormattedIsStillATerminatedRecord) {
    addRecorder();
    const wchar_t unknown[] = {L'\x20AC', L'\0'};
    Logger::log("price: %ls", unknown);
    ASSERT_EQ(writes.size(), 2U);
    EXPECT_EQ(writes[0].substr(0, 7), "price: ");
    EXPECT_EQ(writes[1], "\r\n");
}

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

// Formatting the argument, or dumping it, would touch a page that must not be read.
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
    clockReads = 0;
    Logger::log("message");
    Logger::hexDump(0, "AB", 2);
    EXPECT_EQ(clockReads, 0);
}

// --- Time stamps

TEST_F(LoggerTest, StampedRecordIsFiveWrites) {
    setZone("UTC");
    addRecorder();
    Logger::setShowTimestamp(true);
    setClock(billionthSecond);
    Logger::log("message");
    EXPECT_THAT(writes, ElementsAre("[", "Sun Sep  9 01:46:40 2001", "] ", "message", "\r\n"));
}

TEST_F(LoggerTest, StampIsTheLocalTime) {
    setZone("XYZ-2");
    addRecorder();
    Logger::setShowTimestamp(true);
    setClock(billionthSecond);
    Logger::log("message");
    EXPECT_EQ(joined(writes), "[Sun Sep  9 03:46:40 2001] message\r\n");
}

TEST_F(LoggerTest, StampIsThePresentTime) {
    addRecorder();
    Logger::setShowTimestamp(true);
    const std::time_t before = std::time(nullptr);
    Logger::log("message");
    const std::time_t after = std::time(nullptr);
    ASSERT_EQ(writes.size(), 5U);
    std::tm parts{};
    ASSERT_NE(strptime(writes[1].c_str(), "%a %b %d %H:%M:%S %Y", &parts), nullptr) << writes[1];
    parts.tm_isdst = -1;
    EXPECT_GE(std::mktime(&parts), before);
    EXPECT_LE(std::mktime(&parts), after);
}

TEST_F(LoggerTest, ClockIsReadOncePerRecordAndNotPerStream) {
    setZone("UTC");
    addRecorder("A");
    addRecorder("B");
    Logger::setShowTimestamp(true);
    setClock(billionthSecond);
    Logger::log("x");
    EXPECT_EQ(clockReads, 1);
    EXPECT_THAT(writes, ElementsAre("A[", "ASun Sep  9 01:46:40 2001", "A] ", "Ax", "A\r\n", "B[",
                                    "BSun Sep  9 01:46:40 2001", "B] ", "Bx", "B\r\n"));
    Logger::log("y");
    EXPECT_EQ(writes[11], "ASun Sep  9 01:46:41 2001") << "and read anew for the next record";
}

TEST_F(LoggerTest, ClockIsNotReadForARecordWithoutAStamp) {
    addRecorder();
    clockReads = 0;
    Logger::log("message");
    Logger::hexDump(0, "AB", 2);
    EXPECT_EQ(clockReads, 0);
}

TEST_F(LoggerTest, StampsCanBeTurnedOffAgain) {
    addRecorder();
    Logger::setShowTimestamp(true);
    Logger::setShowTimestamp(false);
    Logger::log("message");
    EXPECT_THAT(writes, ElementsAre("message", "\r\n"));
}

TEST_F(LoggerTest, EveryLineOfADumpIsStamped) {
    setZone("UTC");
    addRecorder();
    Logger::setShowTimestamp(true);
    setClock(billionthSecond);
    Logger::hexDump(0, "A", 1);
    ASSERT_EQ(writes.size(), 15U);
    EXPECT_EQ(writes[1], "Sun Sep  9 01:46:40 2001");
    EXPECT_EQ(writes[6], "Sun Sep  9 01:46:41 2001");
    EXPECT_EQ(writes[11], "Sun Sep  9 01:46:42 2001");
}

TEST_F(LoggerTest, TimeWithoutATextGivesAnEmptyStamp) {
    addRecorder();
    Logger::setShowTimestamp(true);
    setClock(std::time_t{1} << 55);
    Logger::log("message");
    EXPECT_THAT(writes, ElementsAre("[", "", "] ", "message", "\r\n"));
}

TEST_F(LoggerTest, TimeTextHas24CharactersAndNoNewline) {
    setZone("UTC");
    char text[ORBCOMMON::logTimeSize];
    EXPECT_EQ(formatLogTime(0, text), 24U);
    EXPECT_STREQ(text, "Thu Jan  1 00:00:00 1970");
}

TEST_F(LoggerTest, TimeTextFollowsAChangedZone) {
    char text[ORBCOMMON::logTimeSize];
    ASSERT_EQ(setenv("TZ", "UTC", 1), 0);
    (void)formatLogTime(0, text);
    EXPECT_STREQ(text, "Thu Jan  1 00:00:00 1970");
    ASSERT_EQ(setenv("TZ", "XYZ-5", 1), 0);
    (void)formatLogTime(0, text);
    EXPECT_STREQ(text, "Thu Jan  1 05:00:00 1970");
}

TEST_F(LoggerTest, YearOfFiveDigitsHasNoTimeText) {
    setZone("UTC");
    char text[ORBCOMMON::logTimeSize];
    EXPECT_EQ(formatLogTime(253402300799, text), 24U);
    EXPECT_STREQ(text, "Fri Dec 31 23:59:59 9999");
    EXPECT_EQ(formatLogTime(253402300800, text), 0U);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(formatLogTime(std::time_t{LONG_MAX}, text), 0U);
    EXPECT_STREQ(text, "");
}

// --- Levels

TEST_F(LoggerTest, LevelZeroIsWrittenAndLevelOneDroppedAtFirst) {
    addRecorder();
    Logger::logAt(0, "zero");
    Logger::logAt(1, "one");
    Logger::writeLine(1, "one");
    Logger::hexDump(1, "A", 1);
    EXPECT_THAT(writes, ElementsAre("zero", "\r\n"));
}

TEST_F(LoggerTest, LevelUpToTheThresholdIsWritten) {
    addRecorder();
    Logger::setLogLevel(2);
    for (const int level : {-1, 0, 1, 2, 3, INT_MAX}) {
        Logger::logAt(level, "%d", level);
    }
    EXPECT_EQ(joined(writes), "-1\r\n0\r\n1\r\n2\r\n");
}

TEST_F(LoggerTest, NegativeThresholdCountsAsZero) {
    addRecorder();
    for (const int threshold : {-5, -1, INT_MIN}) {
        writes.clear();
        Logger::setLogLevel(3);
        Logger::setLogLevel(threshold);
        Logger::logAt(1, "one");
        Logger::logAt(0, "zero");
        EXPECT_THAT(writes, ElementsAre("zero", "\r\n")) << threshold;
    }
}

TEST_F(LoggerTest, LogIsWrittenWhateverTheThreshold) {
    addRecorder();
    for (const int threshold : {0, 5, INT_MAX}) {
        writes.clear();
        Logger::setLogLevel(threshold);
        Logger::log("message");
        EXPECT_THAT(writes, ElementsAre("message", "\r\n")) << threshold;
    }
}

// --- Pause

TEST_F(LoggerTest, NothingIsWrittenWhilePaused) {
    addRecorder();
    Logger::pause();
    Logger::log("message");
    Logger::logAt(0, "message");
    logList(0, "message");
    Logger::writeLine(0, "message");
    Logger::hexDump(0, "AB", 2);
    EXPECT_THAT(writes, IsEmpty());
}

TEST_F(LoggerTest, ResumeWritesAgainAndBringsNothingBack) {
    addRecorder();
    Logger::pause();
    Logger::pause();
    Logger::log("lost");
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

// --- Streams

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
    setClock(billionthSecond);
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

// --- Dumps

const std::string dumpHeader = "      00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 0123456789ABCDEF\n\r\n";
const std::string dumpRule = "      ----------------------------------------------------------------\n\r\n";

// The lines of a dump below the header and the rule, without their line ends.
Writes rowsOf(const Writes& writes) {
    Writes rows;
    for (std::size_t i = 4; i < writes.size(); i += 2) {
        rows.push_back(writes[i]);
    }
    return rows;
}

TEST_F(LoggerTest, DumpOfTwoBytesIsHeaderRuleAndOneRow) {
    addRecorder();
    Logger::hexDump(0, "AB", 2);
    EXPECT_EQ(joined(writes), dumpHeader + dumpRule + " 000  41 42 " + std::string(42, ' ') + "AB\r\n");
}

TEST_F(LoggerTest, EveryLineOfADumpIsARecordOfItsOwn) {
    addRecorder();
    Logger::hexDump(0, "AB", 2);
    EXPECT_THAT(writes, ElementsAre(dumpHeader.substr(0, 71), "\r\n", dumpRule.substr(0, 71), "\r\n",
                                    " 000  41 42 " + std::string(42, ' ') + "AB", "\r\n"));
}

TEST_F(LoggerTest, DumpOfNoBytesIsHeaderAndRule) {
    addRecorder();
    Logger::hexDump(0, nullptr, 0);
    EXPECT_EQ(joined(writes), dumpHeader + dumpRule);
}

TEST_F(LoggerTest, DumpOfSixteenBytesIsOneRow) {
    addRecorder();
    Logger::hexDump(0, "0123456789abcdef", 16);
    EXPECT_EQ(joined(writes),
              dumpHeader + dumpRule +
                  " 000  30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 0123456789abcdef\r\n");
}

TEST_F(LoggerTest, DumpOfSeventeenBytesIsAFullRowAndAPaddedOne) {
    addRecorder();
    Logger::hexDump(0, "0123456789abcdefg", 17);
    EXPECT_THAT(rowsOf(writes),
                ElementsAre(" 000  30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 0123456789abcdef",
                            " 010  67 " + std::string(45, ' ') + "g"));
}

TEST_F(LoggerTest, DumpShowsUnprintableBytesAsDots) {
    addRecorder();
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes += static_cast<char>(byte);
    }
    Logger::hexDump(0, bytes.data(), 256);
    std::string characters;
    for (const std::string& row : rowsOf(writes)) {
        characters += row.substr(54);
    }
    EXPECT_EQ(characters, std::string(32, '.') + bytes.substr(0x20, 0x5f) + std::string(129, '.'));
}

TEST_F(LoggerTest, DumpShowsAPercentSignAsItIs) {
    addRecorder();
    Logger::hexDump(0, "%s%n%d%%", 8);
    EXPECT_THAT(rowsOf(writes),
                ElementsAre(" 000  25 73 25 6E 25 64 25 25 " + std::string(24, ' ') + "%s%n%d%%"));
}

TEST_F(LoggerTest, DumpRowFromOffset1000LosesItsLastSpace) {
    addRecorder();
    const std::string bytes(0x1010, 'Z');
    Logger::hexDump(0, bytes.data(), 0x1010);
    const Writes rows = rowsOf(writes);
    ASSERT_EQ(rows.size(), 0x101U);
    EXPECT_EQ(rows[0xff], " FF0  5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A ZZZZZZZZZZZZZZZZ");
    EXPECT_EQ(rows[0x100], " 1000  5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5AZZZZZZZZZZZZZZZZ");
}

TEST_F(LoggerTest, DumpRowFromOffset10000LosesItsLastDigitToo) {
    addRecorder();
    const std::string bytes(0x10011, 'Z');
    Logger::hexDump(0, bytes.data(), 0x10011);
    const Writes rows = rowsOf(writes);
    ASSERT_EQ(rows.size(), 0x1002U);
    EXPECT_EQ(rows[0xfff], " FFF0  5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5AZZZZZZZZZZZZZZZZ");
    EXPECT_EQ(rows[0x1000], " 10000  5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5ZZZZZZZZZZZZZZZZ");
    EXPECT_EQ(rows[0x1001], " 10010  5A " + std::string(43, ' ') + "Z");
}

// A row put together with the C library's own formatting.
std::string expectedRow(const std::string& bytes, std::size_t offset) {
    char field[32];
    (void)std::snprintf(field, sizeof(field), " %03zX  ", offset);
    std::string digits = field;
    std::string characters;
    for (std::size_t i = offset; i < offset + 16 && i < bytes.size(); ++i) {
        const unsigned int byte = static_cast<unsigned char>(bytes[i]);
        (void)std::snprintf(field, sizeof(field), "%02X ", byte);
        digits += field;
        characters += byte >= 0x20 && byte <= 0x7e ? bytes[i] : '.';
    }
    digits.resize(54, ' ');
    return digits + characters;
}

TEST_F(LoggerTest, DumpOfEveryLengthIsRightByteForByte) {
    addRecorder();
    std::string bytes;
    for (unsigned int length = 0; length <= 100; ++length) {
        writes.clear();
        Logger::hexDump(0, bytes.data(), length);
        Writes expected;
        for (std::size_t offset = 0; offset < length; offset += 16) {
            expected.push_back(expectedRow(bytes, offset));
        }
        EXPECT_THAT(rowsOf(writes), ElementsAreArray(expected)) << length;
        bytes += static_cast<char>(length * 37 + 11);
    }
}

// --- Threads

// Runs one function on several threads, which begin together; each gets its number.
void onThreads(int count, const std::function<void(int)>& body) {
    std::atomic<int> missing = count;
    std::vector<std::thread> threads;
    threads.reserve(static_cast<std::size_t>(count));
    for (int number = 0; number < count; ++number) {
        threads.emplace_back([&missing, &body, number] {
            --missing;
            while (missing > 0) {
                std::this_thread::yield();
            }
            body(number);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(LoggerTest, RecordsOfSeveralThreadsAreWholeAndInOneOrderOnAllStreams) {
    constexpr int threads = 4;
    constexpr int records = 200;
    Writes first;
    Writes second;
    // Lets the other threads run in the middle of a record.
    const auto giveWay = [](const std::string&) { std::this_thread::yield(); };
    Logger::addOutputStream(StreamPointer(new ActingStream(first, giveWay)));
    Logger::addOutputStream(StreamPointer(new ActingStream(second, giveWay)));
    onThreads(threads, [](int thread) {
        for (int record = 0; record < records; ++record) {
            Logger::log("%d:%d", thread, record);
        }
    });
    EXPECT_EQ(first, second);
    ASSERT_EQ(first.size(), std::size_t{2} * threads * records);
    int next[threads] = {};
    for (std::size_t i = 0; i < first.size(); i += 2) {
        int thread = -1;
        int record = -1;
        ASSERT_EQ(std::sscanf(first[i].c_str(), "%d:%d", &thread, &record), 2) << first[i];
        EXPECT_EQ(first[i + 1], "\r\n");
        EXPECT_EQ(record, next[thread]++);
    }
}

TEST_F(LoggerTest, DumpIsNotInterleavedWithOtherThreadsRecords) {
    const auto giveWay = [](const std::string&) { std::this_thread::yield(); };
    Logger::addOutputStream(StreamPointer(new ActingStream(writes, giveWay)));
    const std::string bytes(64, 'D');
    onThreads(4, [&bytes](int thread) {
        for (int round = 0; round < 50; ++round) {
            if (thread % 2 == 0) {
                Logger::hexDump(0, bytes.data(), 64);
            } else {
                Logger::log("record");
            }
        }
    });
    for (std::size_t i = 0; i < writes.size();) {
        if (writes[i] == "record") {
            i += 2;
            continue;
        }
        ASSERT_LE(i + 12, writes.size());
        EXPECT_EQ(writes[i] + "\r\n", dumpHeader);
        EXPECT_EQ(writes[i + 2] + "\r\n", dumpRule);
        for (std::size_t row = 0; row < 4; ++row) {
            EXPECT_EQ(writes[i + 4 + 2 * row], expectedRow(bytes, 16 * row));
        }
        i += 12;
    }
}

TEST_F(LoggerTest, SettingsAndStreamsMayChangeWhileOthersLog) {
    std::atomic<int> received = 0;
    class Counting : public OutputStream {
    public:
        explicit Counting(std::atomic<int>& count) : m_count(count) {}
        void write(const char*, const unsigned int&) override { ++m_count; }

    private:
        std::atomic<int>& m_count;
    };
    onThreads(4, [&received](int thread) {
        for (int round = 0; round < 100; ++round) {
            if (thread > 1) {
                Logger::log("%d", round);
                continue;
            }
            Logger::addOutputStream(StreamPointer(new Counting(received)));
            Logger::setShowTimestamp(round % 2 == 0);
            Logger::setLogLevel(round % 3);
            Logger::pause();
            Logger::resume();
            Logger::log("%d", round);
            Logger::removeAllOutputStreams();
        }
    });
    EXPECT_GT(received, 0);
}

// Each operation runs on a thread of its own while the test holds the mutex. The wait only gives an operation
// that ignores the mutex the time to show itself.
TEST_F(LoggerTest, EveryOperationHoldsTheMutex) {
    addRecorder();
    const std::vector<std::function<void()>> operations = {
        [] { Logger::log("x"); },
        [] { Logger::logAt(0, "x"); },
        [] { logList(0, "x"); },
        [] { Logger::writeLine(0, "x"); },
        [] { Logger::hexDump(0, "x", 1); },
        [] { Logger::addOutputStream(StreamPointer()); },
        [] { Logger::pause(); },
        [] { Logger::resume(); },
        [] { Logger::setShowTimestamp(false); },
        [] { Logger::setLogLevel(0); },
        [] { Logger::removeAllOutputStreams(); },
    };
    std::atomic<std::size_t> started = 0;
    std::atomic<std::size_t> finished = 0;
    std::vector<std::thread> threads;
    logger_mutex->lock();
    for (const std::function<void()>& operation : operations) {
        threads.emplace_back([&operation, &started, &finished] {
            ++started;
            operation();
            ++finished;
        });
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
    while (started < operations.size() || std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
    }
    EXPECT_EQ(finished, 0U);
    logger_mutex->unlock();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(finished, operations.size());
}

TEST_F(LoggerTest, HolderOfTheMutexMayLog) {
    addRecorder();
    logger_mutex->lock();
    Logger::log("held");
    logger_mutex->unlock();
    EXPECT_THAT(writes, ElementsAre("held", "\r\n"));
}

// --- Life

TEST(LoggerLife, StaticInitialisationMakesTheMutex) {
    EXPECT_TRUE(static_cast<bool>(logger_mutex));
}

TEST(LoggerLife, ConstructorsOfGlobalsMayLogBeforeTheMutexExists) {
    EXPECT_FALSE(earlyGlobal.mutexExisted());
    EXPECT_EQ(joined(earlyGlobal.writes()),
              "early 1\r\n" + dumpHeader + dumpRule + " 000  41 " + std::string(45, ' ') + "A\r\n");
}

TEST(LoggerLife, StaticInitialisationLeavesEarlierSettingsAlone) {
    EXPECT_THAT(EarlySettings::writes(), ElementsAre("seven", "\r\n"));
}

// At the end of a process in which two streams are still in the list. The first one to go logs; the second
// one would show it.
TEST(LoggerLife, ProcessExitReleasesTheStreamsBeforeTheMutexAndThenLogsNothing) {
    const auto endWithStreams = [] {
        static Writes writes;
        const auto report = [](const std::string& what) { (void)std::fprintf(stderr, "%s\n", what.c_str()); };
        earlyGlobal.reportAtEnd = true;
        Logger::addOutputStream(StreamPointer(new ActingStream(writes, {}, [report] {
            Logger::log("too late");
            report(logger_mutex ? "released with mutex" : "released without mutex");
        })));
        Logger::addOutputStream(StreamPointer(new ActingStream(writes, report)));
        std::exit(0);
    };
    EXPECT_EXIT(endWithStreams(), testing::ExitedWithCode(0), "^released with mutex\nlate writes: 0");
}

// Uses up what memory the process may have, down to the smallest piece.
void useUpMemory() {
    const rlimit none{0, 0};
    (void)setrlimit(RLIMIT_AS, &none);
    for (std::size_t size = std::size_t{1} << 20U; size > 0; size = size > 2048 ? size / 2 : size - 8) {
        while (operator new(size, std::nothrow) != nullptr) {
        }
    }
}

TEST(LoggerLife, StreamThatFindsNoMemoryIsLeftOutOfTheList) {
    if (!canRunOutOfMemory) {
        GTEST_SKIP() << "a sanitizer ends a process that runs out of memory";
    }
    const auto addWithoutMemory = [] {
        static Writes writes;
        StreamPointer stream(new RecordingStream(writes));
        useUpMemory();
        Logger::addOutputStream(stream);
        Logger::log("message");
        _exit(writes.empty() ? 0 : 1);
    };
    EXPECT_EXIT(addWithoutMemory(), testing::ExitedWithCode(0), "");
}

TEST(LoggerLife, WithoutMemoryForTheMutexNoStreamIsTakenAndAllIsSilent) {
    if (!canRunOutOfMemory) {
        GTEST_SKIP() << "a sanitizer has an operator new of its own";
    }
    if (!ZNORBTEST::isCopyWith(ZNORBTEST::withoutLoggerMutex)) {
        ZNORBTEST::expectToPassInCopyWith(ZNORBTEST::withoutLoggerMutex);
        return;
    }
    ASSERT_FALSE(logger_mutex);
    Writes writes;
    const StreamPointer stream(new RecordingStream(writes));
    Logger::addOutputStream(stream);
    EXPECT_TRUE(Logger::isSilent());
    Logger::log("nobody");
    Logger::logAt(0, "nobody");
    Logger::hexDump(0, "data", 4);
    Logger::removeAllOutputStreams();
    EXPECT_THAT(writes, testing::IsEmpty());
}

} // namespace
