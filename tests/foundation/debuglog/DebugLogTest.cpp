#include "foundation/debuglog/DebugLog.h"

#include "foundation/streams/OutputStreamToBuffer.h"
#include "tests/support/Allocations.h"
#include "tests/support/Matchers.h"
#include "tests/support/ObservedThread.h"
#include "tests/support/OnThreads.h"
#include "tests/support/RecordingStream.h"
#include "tests/support/SetClock.h"
#include "tests/support/StandIns.h"
#include "tests/support/Waiting.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <regex>
#include <thread>

using namespace Common;
using namespace ZNORBTEST;

namespace {

using Pieces = std::vector<std::string>;

const std::string stampPattern = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)";

shared_ptr<OutputStream> recorderInto(Pieces& pieces, const std::string& name = "") {
    return shared_ptr<OutputStream>(new RecordingStream(pieces, name));
}

bool isStamp(const std::string& text) {
    return std::regex_match(text, std::regex(stampPattern));
}

/// Uses the log before any other static object is made and after all of them are gone.
struct EarlyAndLate {
    EarlyAndLate() {
        DebugLog::addOutputStream(0xff, shared_ptr<OutputStream>(new OutputStreamToBuffer));
        wasActive = DebugLog::isActive();
        DebugLog::print("early");
        DebugLog::removeAllOutputStreams();
    }
    ~EarlyAndLate() {
        DebugLog::addOutputStream(0xff, shared_ptr<OutputStream>(new OutputStreamToBuffer));
        DebugLog::print("late");
        DebugLog::removeAllOutputStreams();
    }
    EarlyAndLate(const EarlyAndLate&) = delete;
    EarlyAndLate& operator=(const EarlyAndLate&) = delete;

    bool wasActive = true;
};
__attribute__((init_priority(101))) EarlyAndLate earlyAndLate;

/// What the log is like before any test.
class Beginning : public testing::Environment {
public:
    void SetUp() override {
        DebugLog::addOutputStream(1, shared_ptr<OutputStream>(new OutputStreamToBuffer));
        s_isActive = DebugLog::isActive();
        DebugLog::removeAllOutputStreams();
    }

    static inline bool s_isActive = false;
};
const testing::Environment* const beginning = testing::AddGlobalTestEnvironment(new Beginning);

/// The records without their time stamps, which must all be there.
std::vector<std::string> messagesOf(const std::string& text) {
    static const std::regex record("^\\[" + stampPattern + "\\] (.*)$");
    std::vector<std::string> messages;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = text.find('\n', start);
        std::smatch match;
        const std::string line = text.substr(start, end - start);
        EXPECT_NE(end, std::string::npos) << "no line feed at the end";
        EXPECT_TRUE(std::regex_match(line, match, record)) << line;
        messages.push_back(match.size() > 1 ? match[1].str() : "?");
        start = end == std::string::npos ? text.size() : end + 1;
    }
    return messages;
}

std::string localNow() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    char text[32];
    (void)localtime_r(&now, &local);
    (void)std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

/// The log is the process's: every test leaves it as it found it.
class DebugLogTest : public testing::Test {
protected:
    void TearDown() override {
        DebugLog::removeAllOutputStreams();
        DebugLog::resume();
    }

    void addRecorder(unsigned char mask, const std::string& name = "") {
        DebugLog().addOutputStream(mask, recorderInto(m_pieces, name));
    }

    std::vector<std::string> messages() const { return messagesOf(joined(m_pieces)); }

    Pieces m_pieces;
};

/// With a stream of category 1.
class RecordedDebugLog : public DebugLogTest {
protected:
    void SetUp() override { addRecorder(0x01); }
};

TEST(DebugLogLife, TakesNoStreamBeforeItsStaticInitialisationAndIsSilentAfterItsEnd) {
    EXPECT_FALSE(earlyAndLate.wasActive);
    // The late calls run in the child's exit, while a stream is still registered.
    EXPECT_EXIT(
        {
            DebugLog::addOutputStream(0xff, shared_ptr<OutputStream>(new OutputStreamToBuffer));
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(DebugLogLife, BeginsUnpaused) {
    ASSERT_NE(beginning, nullptr);
    EXPECT_TRUE(Beginning::s_isActive);
}

} // namespace

TEST_F(DebugLogTest, WithoutStreamsIsInactiveAndEveryOperationReturns) {
    EXPECT_FALSE(DebugLog().isActive());
    DebugLog().write(1, "text", true, true);
    DebugLog().print("%s", "text");
    DebugLog().print(1, "%s", "text");
    DebugLog().hexDump(1, "text", 4);
    DebugLog().removeAllOutputStreams();
    EXPECT_FALSE(DebugLog().isActive());
}

TEST_F(RecordedDebugLog, IsActiveWithAStreamUnlessPaused) {
    EXPECT_TRUE(DebugLog().isActive());
    DebugLog().pause();
    EXPECT_FALSE(DebugLog().isActive());
    DebugLog().resume();
    EXPECT_TRUE(DebugLog().isActive());
    DebugLog().removeAllOutputStreams();
    EXPECT_FALSE(DebugLog().isActive());
}

TEST_F(DebugLogTest, IsInactiveAlreadyWhenItsStreamsEnd) {
    class Ending : public OutputStreamToBuffer {
    public:
        explicit Ending(bool& wasActive) : m_wasActive(wasActive) {}
        Ending(const Ending&) = delete;
        Ending& operator=(const Ending&) = delete;
        ~Ending() override { m_wasActive = DebugLog::isActive(); }

    private:
        bool& m_wasActive;
    };
    bool wasActive = true;
    DebugLog::addOutputStream(1, shared_ptr<OutputStream>(new Ending(wasActive)));
    EXPECT_TRUE(DebugLog::isActive());
    DebugLog::removeAllOutputStreams();
    EXPECT_FALSE(wasActive);
}

TEST_F(RecordedDebugLog, ARecordIsWrittenInPieces) {
    DebugLog().write(1, "the text", true, true);
    EXPECT_THAT(m_pieces, ElementsAre("[", Truly(isStamp), "] ", "the text", "\n"));
}

TEST_F(RecordedDebugLog, TheStampIsTheLocalTime) {
    const std::string before = localNow();
    DebugLog().write(1, "", true, false);
    const std::string after = localNow();
    EXPECT_THAT(m_pieces, ElementsAre("[", AllOf(SizeIs(19), Ge(before), Le(after)), "] ", ""));
}

TEST_F(DebugLogTest, TheStampFollowsAChangedZone) {
    const SetClock clock(0);
    addRecorder(0x01);
    for (const char* const zone : {"UTC", "XYZ-5"}) {
        ASSERT_EQ(setenv("TZ", zone, 1), 0);
        DebugLog().write(1, "", true, false);
    }
    (void)unsetenv("TZ");
    tzset();
    EXPECT_EQ(joined(m_pieces), "[1970-01-01 00:00:00] [1970-01-01 05:00:00] ");
}

TEST_F(DebugLogTest, TheStampHasRoomForLongYears) {
    const SetClock clock(400000000000); // in the year 14645
    addRecorder(0x01);
    DebugLog().write(1, "", true, false);
    EXPECT_THAT(m_pieces, ElementsAre("[", AllOf(localNow(), StartsWith("14645-")), "] ", ""));
}

TEST_F(DebugLogTest, TheStampIsEmptyWhenTheClockYieldsNoDate) {
    const SetClock clock(std::numeric_limits<std::time_t>::max());
    addRecorder(0x01);
    DebugLog().write(1, "text", true, true);
    EXPECT_EQ(m_pieces, Pieces({"[", "", "] ", "text", "\n"}));
}

TEST_F(RecordedDebugLog, StampAndLineFeedAreWrittenOnlyOnRequest) {
    DebugLog().write(1, "plain", false, false);
    DebugLog().write(1, "line", false, true);
    DebugLog().write(1, "stamped", true, false);
    EXPECT_THAT(m_pieces, ElementsAre("plain", "line", "\n", "[", Truly(isStamp), "] ", "stamped"));
}

TEST_F(RecordedDebugLog, WriteDoesNotTakeTheTextForAFormatAndCutsNothing) {
    const std::string text(10000, 'x');
    DebugLog().write(1, "100% %s %n", false, false);
    DebugLog().write(1, text.c_str(), false, false);
    EXPECT_EQ(m_pieces, Pieces({"100% %s %n", text}));
}

TEST_F(RecordedDebugLog, PrintFormatsAStampedLine) {
    DebugLog().print("%s %d%%", "at", 50);
    DebugLog().print(0x01, "%03d", 7);
    EXPECT_EQ(messages(), Pieces({"at 50%", "007"}));
}

TEST_F(DebugLogTest, ARecordReachesTheStreamsThatShareABitWithIt) {
    addRecorder(0x02);
    DebugLog().print("category 1");
    DebugLog().print(0x06, "categories 2 and 4");
    DebugLog().print(0x05, "categories 1 and 4");
    DebugLog().print(0x02, "category 2");
    EXPECT_EQ(messages(), Pieces({"categories 2 and 4", "category 2"}));
}

TEST_F(DebugLogTest, TheHighestCategoryIsTheEighthBit) {
    addRecorder(0x80);
    DebugLog().write(0x80, "eighth", false, false);
    DebugLog().write(0x100, "ninth", false, false);
    DebugLog().write(0, "none", false, false);
    DebugLog().write(-1, "all", false, false);
    EXPECT_EQ(m_pieces, Pieces({"eighth", "all"}));
}

TEST_F(DebugLogTest, AStreamWithoutCategoriesReceivesNothing) {
    addRecorder(0);
    EXPECT_TRUE(DebugLog().isActive());
    DebugLog().write(0xFF, "text", true, true);
    EXPECT_EQ(m_pieces, Pieces());
}

TEST_F(DebugLogTest, StreamsReceiveEveryRecordInTheOrderOfTheirAdditionAndANullOneIsPassedOver) {
    addRecorder(0x01, "A:");
    DebugLog().addOutputStream(1, shared_ptr<OutputStream>());
    addRecorder(0x01, "B:");
    DebugLog().write(1, "x", false, true);
    EXPECT_EQ(m_pieces, Pieces({"A:x", "A:\n", "B:x", "B:\n"}));
}

TEST_F(DebugLogTest, AStreamAddedTwiceReceivesEveryRecordTwice) {
    const shared_ptr<OutputStream> stream = recorderInto(m_pieces);
    DebugLog().addOutputStream(1, stream);
    DebugLog().addOutputStream(1, stream);
    DebugLog().write(1, "x", false, false);
    EXPECT_EQ(m_pieces, Pieces({"x", "x"}));
}

TEST_F(RecordedDebugLog, PausedWritesNothingUntilResumed) {
    DebugLog().pause();
    DebugLog().write(1, "write", true, true);
    DebugLog().print("print");
    DebugLog().print(1, "print");
    DebugLog().hexDump(1, "dump", 4);
    EXPECT_EQ(m_pieces, Pieces());
    DebugLog().resume();
    DebugLog().write(1, "again", false, false);
    EXPECT_EQ(m_pieces, Pieces({"again"}));
}

TEST_F(DebugLogTest, SharesTheOwnershipOfItsStreamsUntilTheyAreRemovedAndTakesOthersThen) {
    bool ended = false;
    DebugLog().addOutputStream(
        1, shared_ptr<OutputStream>(new ActingStream(m_pieces, {}, [&ended] { ended = true; })));
    DebugLog().write(1, "alive", false, false);
    EXPECT_FALSE(ended);
    EXPECT_EQ(m_pieces, Pieces({"alive"}));
    DebugLog().removeAllOutputStreams();
    EXPECT_TRUE(ended);
    DebugLog().write(1, "gone", false, false);
    EXPECT_EQ(m_pieces, Pieces({"alive"}));
    addRecorder(0x01);
    DebugLog().write(1, "again", false, false);
    EXPECT_EQ(m_pieces, Pieces({"alive", "again"}));
}

TEST_F(DebugLogTest, WithoutMemoryAStreamIsNotAdded) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be made to fail here";
    const shared_ptr<OutputStream> stream = recorderInto(m_pieces);
    {
        const FailingAllocation fault(0);
        DebugLog().addOutputStream(1, stream);
    }
    EXPECT_FALSE(DebugLog().isActive());
    DebugLog().addOutputStream(1, stream);
    DebugLog().write(1, "x", false, false);
    EXPECT_EQ(m_pieces, Pieces({"x"}));
}

TEST_F(RecordedDebugLog, PrintCutsAMessageAt2047Bytes) {
    const std::string longest(2047, 'x');
    DebugLog().print("%s", longest.c_str());
    DebugLog().print("%s", (longest + "yz").c_str());
    DebugLog().print(1, "%s", (longest + "yz").c_str());
    EXPECT_EQ(messages(), Pieces({longest, longest, longest}));
}

TEST_F(RecordedDebugLog, HexDumpWritesHeaderRuleAndRowsAsStampedRecords) {
    struct Dump {
        const char* bytes;
        std::int32_t length;
        Pieces rows;
    };
    const std::string fullRow = " 000  30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 0123456789abcdef";
    const Dump dumps[] = {
        {"x", INT32_MIN, {}},
        {"x", -1, {}},
        {"x", 0, {}},
        {"AB", 2, {" 000  41 42 " + std::string(42, ' ') + "AB"}},
        {"0123456789abcdefg", 16, {fullRow}},
        {"0123456789abcdefg", 17, {fullRow, " 010  67 " + std::string(45, ' ') + "g"}},
        {"%s\0\x7F\x80", 5, {" 000  25 73 00 7F 80 " + std::string(33, ' ') + "%s..."}},
    };
    for (const Dump& dump : dumps) {
        m_pieces.clear();
        DebugLog().hexDump(1, dump.bytes, dump.length);
        Pieces expected = {"      00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 0123456789ABCDEF",
                           "      " + std::string(64, '-')};
        expected.insert(expected.end(), dump.rows.begin(), dump.rows.end());
        EXPECT_EQ(messages(), expected) << dump.length;
    }
}

TEST_F(RecordedDebugLog, HexDumpCutsRowsAtTheSameColumnBehindLargeOffsets) {
    const std::string bytes(0x10010, 'a');
    DebugLog().hexDump(1, bytes.data(), static_cast<std::int32_t>(bytes.size()));
    const std::vector<std::string> rows = messages();
    ASSERT_EQ(rows.size(), 2U + 0x1001U);
    EXPECT_EQ(rows[2 + 0x100], " 1000  61 61 61 61 61 61 61 61 61 61 61 61 61 61 61 61aaaaaaaaaaaaaaaa");
    EXPECT_EQ(rows[2 + 0x1000], " 10000  61 61 61 61 61 61 61 61 61 61 61 61 61 61 61 6aaaaaaaaaaaaaaaa");
}

TEST_F(DebugLogTest, HexDumpHasACategoryToo) {
    addRecorder(0x02);
    DebugLog().hexDump(0x01, "x", 1);
    EXPECT_EQ(m_pieces, Pieces());
    DebugLog().hexDump(0x03, "x", 1);
    EXPECT_EQ(messages().size(), 3U);
}

TEST_F(DebugLogTest, RecordsOfSeveralThreadsStayWhole) {
    constexpr int threadCount = 4;
    constexpr int recordCount = 200;
    auto* const buffer = new OutputStreamToBuffer;
    const shared_ptr<OutputStream> stream(buffer);
    DebugLog().addOutputStream(1, stream);
    onThreads(threadCount, [](int thread) {
        for (int record = 0; record < recordCount; ++record) {
            DebugLog().print("thread %d record %d", thread, record);
        }
    });
    std::vector<int> next(threadCount, 0);
    const std::vector<std::string> records = messagesOf(buffer->getString());
    EXPECT_EQ(records.size(), static_cast<std::size_t>(threadCount * recordCount));
    for (const std::string& record : records) {
        int thread = -1;
        int number = -1;
        ASSERT_EQ(std::sscanf(record.c_str(), "thread %d record %d", &thread, &number), 2) << record;
        ASSERT_TRUE(thread >= 0 && thread < threadCount);
        EXPECT_EQ(number, next[static_cast<std::size_t>(thread)]++);
    }
}

TEST_F(DebugLogTest, StreamsComeAndGoWhileOthersWrite) {
    std::atomic<bool> stop = false;
    std::atomic<int> written = 0;
    std::thread writer([&] {
        while (!stop) {
            DebugLog().print("text");
            DebugLog().hexDump(1, "x", 1);
            ++written;
        }
    });
    Pieces pieces;
    for (int round = 0; round < 200; ++round) {
        DebugLog().addOutputStream(1, recorderInto(pieces));
        DebugLog().pause();
        DebugLog().resume();
        DebugLog().removeAllOutputStreams();
    }
    addRecorder(0x01);
    const int before = written;
    (void)waitUntil([&] { return written >= before + 2; });
    stop = true;
    writer.join();
    EXPECT_FALSE(m_pieces.empty());
}

TEST_F(DebugLogTest, TheStampIsMadeOnceForAllStreams) {
    Pieces pieces;
    unsigned looks = 0;
    const InPlaceOf<std::time> clock([&looks](std::time_t*) { return std::time_t{++looks} * 86400; });
    for (int streams = 0; streams < 3; ++streams) {
        DebugLog::addOutputStream(1, recorderInto(pieces));
    }
    DebugLog::print("text");
    EXPECT_EQ(looks, 1U);
    EXPECT_THAT(pieces, SizeIs(15));
    EXPECT_EQ(pieces[1], pieces[11]);
}

TEST_F(RecordedDebugLog, PrintFormatsNothingWhilePaused) {
    int formatted = 0;
    DebugLog::pause();
    DebugLog::print("text%n", &formatted);
    DebugLog::print(1, "text%n", &formatted);
    EXPECT_EQ(formatted, 0);
    DebugLog::resume();
    DebugLog::print("text%n", &formatted);
    EXPECT_EQ(formatted, 4);
}

TEST_F(DebugLogTest, EachOperationThatUsesTheStreamsHoldsTheLock) {
    Pieces pieces;
    DebugLog::addOutputStream(1, recorderInto(pieces));
    void (*const operations[])() = {[]() { DebugLog::write(1, "text", false, false); },
                                    []() { DebugLog::removeAllOutputStreams(); },
                                    []() { DebugLog::addOutputStream(1, shared_ptr<OutputStream>()); }};
    for (void (*const operation)() : operations) {
        const bool wasActive = DebugLog::isActive();
        Common::DebugLogMutex.lock();
        const ObservedThread user(operation);
        EXPECT_TRUE(user.fallsAsleep());
        EXPECT_EQ(DebugLog::isActive(), wasActive) << "nothing has changed yet";
        Common::DebugLogMutex.unlock();
        EXPECT_TRUE(user.finishes());
    }
    EXPECT_THAT(pieces, ElementsAre("text"));
}

TEST_F(RecordedDebugLog, WaitsForNobodyWhilePaused) {
    DebugLog::pause();
    Common::DebugLogMutex.lock();
    const ObservedThread user([] { DebugLog::write(1, "text", false, false); });
    EXPECT_TRUE(user.finishes());
    Common::DebugLogMutex.unlock();
}
