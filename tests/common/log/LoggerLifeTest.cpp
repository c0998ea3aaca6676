#include "foundation/synchronization/RecursiveProcessMutex.h"
#include "tests/common/log/LoggerFixture.h"
#include "tests/support/Allocations.h"
#include "tests/support/FailingStart.h"
#include "tests/support/Layout.h"
#include "tests/support/Matchers.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Scarcity.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <type_traits>

namespace {

using namespace ORBCOMMON;
using namespace ZNORBTEST;

static_assert(!std::is_default_constructible_v<Logger>);

// Constructed before the Logger's own static initialisation and destroyed after its end. What it logs at the
// end must neither reach a stream nor touch what is gone.
class EarlyGlobal {
public:
    EarlyGlobal() : m_mutexExisted(static_cast<bool>(logger_mutex)), m_wasSilent(Logger::isSilent()) {
        Logger::addOutputStream(StreamPointer(new RecordingStream(m_writes)));
        Logger::log("early %d", 1);
        Logger::logAt(1, "too verbose");
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
    [[nodiscard]] bool wasSilent() const { return m_wasSilent; }
    [[nodiscard]] const Writes& writes() const { return m_writes; }

    bool reportAtEnd = false;

private:
    bool m_mutexExisted;
    bool m_wasSilent;
    Writes m_writes;
};

__attribute__((init_priority(101))) EarlyGlobal earlyGlobal;

/// In copies with this variable the Logger's static initialisation, which comes after this one, finds no
/// memory for its mutex.
constexpr const char* withoutLoggerMutex = "ZNORB_TEST_WITHOUT_LOGGER_MUTEX";
[[maybe_unused]] const bool hasNoMutex =
    failAllocationAtStart(sizeof(Common::Synchronization::RecursiveProcessMutex), withoutLoggerMutex);

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

TEST(LoggerLife, StaticInitialisationMakesTheMutex) {
    EXPECT_TRUE(static_cast<bool>(logger_mutex));
}

TEST(LoggerLife, ConstructorsOfGlobalsMayLogBeforeTheMutexExists) {
    EXPECT_FALSE(earlyGlobal.mutexExisted());
    EXPECT_TRUE(earlyGlobal.wasSilent());
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

TEST(LoggerLife, StreamThatFindsNoMemoryIsLeftOutOfTheList) {
    ZNORB_SKIP_IF(underSanitizer) << "a sanitizer ends a process that runs out of memory";
    const auto addWithoutMemory = [] {
        static Writes writes;
        StreamPointer stream(new RecordingStream(writes));
        useUpMemory();
        Logger::addOutputStream(stream);
        Logger::log("message");
        _exit(writes.empty() && Logger::isSilent() ? 0 : 1);
    };
    EXPECT_EXIT(addWithoutMemory(), testing::ExitedWithCode(0), "");
}

TEST(LoggerLife, WithoutMemoryForTheMutexNoStreamIsTakenAndAllIsSilent) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be made to fail here";
    if (!isCopyWith(withoutLoggerMutex)) {
        expectToPassInCopyWith(withoutLoggerMutex);
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
    EXPECT_THAT(writes, IsEmpty());
}

TEST(LoggerLife, NobodyElseSharesTheMutexWhichGoesWithIt) {
    EXPECT_EQ(*fieldAt<const std::uint32_t*>(&logger_mutex, sizeof(void*)), 1U);
}

} // namespace
