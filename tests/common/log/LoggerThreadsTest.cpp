#include "tests/common/log/LoggerFixture.h"
#include "tests/support/Matchers.h"
#include "tests/support/OnThreads.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

namespace {

using Common::OutputStream;
using namespace ORBCOMMON;
using namespace ZNORBTEST;

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

using Operations = std::vector<std::function<void()>>;

// Each operation runs on a thread of its own while the test holds the mutex, and looks at what is there
// meanwhile. The wait only gives an operation that ignores the mutex the time to show itself.
void runWhileHeld(const Operations& operations, const std::function<void()>& look) {
    std::atomic<std::size_t> started = 0;
    std::atomic<std::size_t> finished = 0;
    logger_mutex->lock();
    std::thread callers([&operations, &started, &finished] {
        onThreads(static_cast<int>(operations.size()), [&](int number) {
            ++started;
            operations[static_cast<std::size_t>(number)]();
            ++finished;
        });
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
    while (started < operations.size() || std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
    }
    EXPECT_EQ(finished, 0U);
    look();
    logger_mutex->unlock();
    callers.join();
    EXPECT_EQ(finished, operations.size());
}

TEST_F(LoggerTest, EveryOperationHoldsTheMutexAndDoesNothingBefore) {
    addRecorder();
    const Operations operations = {
        [] { Logger::log("x"); },
        [] { Logger::logAt(0, "x"); },
        [] { logList(0, "x"); },
        [] { Logger::writeLine(0, "x"); },
        [] { Logger::hexDump(0, "x", 1); },
        [this] { addRecorder(); },
        [] { Logger::pause(); },
        [] { Logger::setShowTimestamp(true); },
        [] { Logger::setLogLevel(1); },
        [] { Logger::removeAllOutputStreams(); },
    };
    runWhileHeld(operations, [this] {
        Logger::log("held");
        Logger::logAt(1, "too verbose");
        EXPECT_THAT(writes, ElementsAre("held", "\r\n"));
    });
}

TEST_F(LoggerTest, OperationsOfAPausedLogWaitForTheMutexToo) {
    addRecorder();
    Logger::pause();
    const Operations operations = {
        [] { Logger::log("x"); },          [] { Logger::logAt(0, "x"); },      [] { logList(0, "x"); },
        [] { Logger::writeLine(0, "x"); }, [] { Logger::hexDump(0, "x", 1); }, [] { Logger::resume(); },
    };
    runWhileHeld(operations, [this] {
        Logger::log("lost");
        EXPECT_THAT(writes, IsEmpty());
    });
}

TEST_F(LoggerTest, HolderOfTheMutexMayLog) {
    addRecorder();
    logger_mutex->lock();
    Logger::log("held");
    logger_mutex->unlock();
    EXPECT_THAT(writes, ElementsAre("held", "\r\n"));
}

} // namespace
