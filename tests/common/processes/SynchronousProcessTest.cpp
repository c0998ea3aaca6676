#include "common/processes/SynchronousProcess.h"

#include "common/processes/ProcessEvent.h"
#include "tests/support/Allocations.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Layout.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Scarcity.h"
#include "tests/support/StandIns.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <thread>
#include <type_traits>

namespace {

using namespace ZNORBTEST;

using namespace ORBCOMMON;
using ORBCOMMON::ProcessEvent;

static_assert(std::is_base_of_v<Threadable, SynchronousProcess>);
static_assert(std::is_abstract_v<SynchronousProcess>, "a subclass supplies run()");
static_assert(sizeof(SynchronousProcess) == sizeof(Threadable) + sizeof(void*), "one pointer");
static_assert(!std::is_copy_constructible_v<SynchronousProcess>);

// Serves requests until one comes after `quit`, and answers each with what it is told to.
class Service : public SynchronousProcess {
public:
    void run() override {
        while (waitForRequest()) {
            if (quit) {
                break;
            }
            ++served;
            thread = std::this_thread::get_id();
            if (answersWithCount) {
                setResult(served);
            }
            signalDone();
        }
        signalDone();
    }
    void finish() override { ++finished; }

    // Ends the service loop by a last request, then the thread.
    void end() {
        quit = true;
        (void)call();
        stop();
    }

    bool answersWithCount = false;
    std::atomic<bool> quit{false};
    std::atomic<int> served{0};
    std::atomic<int> finished{0};
    std::thread::id thread;
};

// Takes one request and leaves it unanswered until its caller has come back, or the bound has passed.
class Silent : public SynchronousProcess {
public:
    void run() override {
        (void)waitForRequest();
        taken = true;
        callerCameBack = waitUntil([this] { return callerIsBack.load(); });
    }

    std::atomic<bool> taken{false};
    std::atomic<bool> callerIsBack{false};
    std::atomic<bool> callerCameBack{false};
};

// Ends at once and says so outside of itself, as the last that its thread does with it.
class OnceOnly : public SynchronousProcess {
public:
    explicit OnceOnly(std::atomic<bool>& finished) : m_finished(finished) {}

    void run() override {}
    void finish() override { m_finished = true; }
    int call() override { return 42; }

private:
    std::atomic<bool>& m_finished;
};

class RunCounter : public SynchronousProcess {
public:
    void run() override { ++runs; }

    int runs = 0;
};

// Hands out what is for run() otherwise.
class Plain : public SynchronousProcess {
public:
    void run() override {}
    using SynchronousProcess::setResult;
    using SynchronousProcess::signalDone;
    using SynchronousProcess::waitForRequest;
};

TEST(SynchronousProcess, EachCallIsServedOnceOnTheThreadThatWasStartedAndReturnsItsOwnResultOrOne) {
    Service service;
    ASSERT_EQ(service.startThread(), 0);
    EXPECT_EQ(service.call(), 1);
    EXPECT_EQ(service.call(), 1);
    EXPECT_NE(service.thread, std::this_thread::get_id());
    EXPECT_NE(service.thread, std::thread::id());
    service.answersWithCount = true;
    for (int count = 3; count <= 22; ++count) {
        EXPECT_EQ(service.call(), count);
    }
    service.end();
    EXPECT_EQ(service.served, 22);
    EXPECT_EQ(service.finished, 1) << "a stop waits for the thread with its finish";
}

TEST(SynchronousProcess, StopReleasesABlockedCallerWithResultZero) {
    Silent process;
    ASSERT_EQ(process.startThread(), 0);
    std::atomic<int> result{-1};
    std::thread caller([&process, &result] {
        result = process.call();
        process.callerIsBack = true;
    });
    EXPECT_TRUE(waitUntil([&] { return process.taken.load(); }));
    process.stop();
    caller.join();
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(process.callerCameBack) << "the caller comes back before the thread ends";
}

TEST(SynchronousProcess, AStopWithoutACallerAnswersTheNextCallWithZero) {
    Plain process;
    process.stop();
    EXPECT_EQ(process.call(), 0);
}

TEST(SynchronousProcess, TheAnswerIsTakenByTheCall) {
    Plain process;
    process.setResult(-7);
    process.signalDone();
    EXPECT_EQ(process.call(), -7);
    process.setResult(8);
    process.signalDone();
    EXPECT_EQ(process.call(), 8);
    EXPECT_TRUE(process.waitForRequest()) << "both calls left one request, events do not count";
}

TEST(SynchronousProcess, CanBeStartedAgainAfterAStop) {
    RunCounter process;
    for (int runs = 1; runs <= 2; ++runs) {
        ASSERT_EQ(process.startThread(), 0);
        process.stop();
        EXPECT_EQ(process.runs, runs);
    }
}

TEST(SynchronousProcess, CallIsVirtual) {
    std::atomic<bool> finished{false};
    OnceOnly process(finished);
    SynchronousProcess& base = process;
    EXPECT_EQ(base.call(), 42);
}

TEST(SynchronousProcess, CanBeDestroyedWithoutAThread) {
    const Plain process;
    SUCCEED();
}

TEST(SynchronousProcess, DestroyingReleasesTheHandleOfAnEndedThread) {
    std::atomic<bool> finished{false};
    {
        OnceOnly process(finished);
        ASSERT_EQ(process.startThread(), 0);
        ASSERT_TRUE(waitUntil([&] { return finished.load(); }));
    }
    EXPECT_TRUE(finished);
}

TEST(SynchronousProcess, AStartThatFailedMayBeStoppedAndTriedAgain) {
    Service service;
    {
        const NoThreads noThreads;
        EXPECT_EQ(service.startThread(), EAGAIN);
        Service stopped;
        EXPECT_EQ(stopped.startThread(), EAGAIN);
        stopped.stop();
        EXPECT_EQ(stopped.finished, 0);
    }
    ASSERT_EQ(service.startThread(), 0);
    EXPECT_EQ(service.call(), 1);
    service.end();
}

TEST(SynchronousProcess, FailsWithoutMemoryForItsRecordOrForAThread) {
    ZNORB_SKIP_IF(underSanitizer) << "the sanitizers end a process that has no memory";
    EXPECT_TRUE(holdsInForked([] {
        useUpMemory();
        Plain process;
        process.setResult(5);
        process.signalDone();
        process.stop();
        const bool refused = process.startThread() == ENOMEM && process.call() == 0;
        return refused && !process.waitForRequest();
    }));
    EXPECT_TRUE(holdsInForked([] {
        Plain process;
        useUpMemory();
        return process.startThread() == ENOMEM;
    }));
}

using SynchronousProcessAllocations = AllocationTest;

TEST_F(SynchronousProcessAllocations, WithoutItsRecordItStartsNoThread) {
    const FailingAllocation ofTheRecord(0);
    RunCounter process;
    EXPECT_TRUE(FailingAllocation::hasHappened());
    EXPECT_EQ(process.startThread(), ENOMEM);
    EXPECT_EQ(process.runs, 0);
}

/// Whether an event of the record is signalled.
bool isSignalled(const void* event) {
    return fieldAt<const std::uint8_t*>(event, 0)[1] != 0;
}

/// Whether it is of this process alone.
bool isOnTheHeap(const void* event) {
    return fieldAt<const std::uint8_t*>(event, 0)[2] == 0;
}

/// The record: request, response, result and thread, in this order.
class Record {
public:
    explicit Record(const SynchronousProcess& process) : m_start(fieldAt<char*>(&process, sizeof(void*))) {}

    [[nodiscard]] const void* request() const { return m_start; }
    [[nodiscard]] const void* response() const { return m_start + sizeof(ProcessEvent); }
    [[nodiscard]] std::int32_t& result() const {
        return *static_cast<std::int32_t*>(static_cast<void*>(m_start + 2 * sizeof(ProcessEvent)));
    }
    [[nodiscard]] const void* thread() const {
        return fieldAt<void*>(m_start, 2 * sizeof(ProcessEvent) + sizeof(void*));
    }

    /// The lock of one of its events.
    static const void* mutexOf(const void* event) {
        return fieldAt<const char*>(event, 0) + alignof(pthread_mutex_t); // behind three bytes
    }

private:
    char* m_start;
};

TEST(SynchronousProcess, KeepsItsRecordsFieldsInTheirOrder) {
    RunCounter process;
    const Record record(process);
    EXPECT_EQ(record.result(), 1);
    EXPECT_EQ(record.thread(), nullptr);
    EXPECT_TRUE(isOnTheHeap(record.request()));
    EXPECT_TRUE(isOnTheHeap(record.response()));
    process.stop();
    EXPECT_EQ(record.result(), 0);
    EXPECT_TRUE(isSignalled(record.response()));
    EXPECT_FALSE(isSignalled(record.request()));
    EXPECT_EQ(process.call(), 0);
    EXPECT_FALSE(isSignalled(record.response()));
    EXPECT_TRUE(isSignalled(record.request()));
    ASSERT_EQ(process.startThread(), 0);
    EXPECT_NE(record.thread(), nullptr);
    process.stop();
}

class SynchronousProcessLocks : public testing::Test {
protected:
    void SetUp() override {
        ZNORB_SKIP_IF(underThreadSanitizer) << "the thread sanitizer has locks of its own";
    }
};

TEST_F(SynchronousProcessLocks, TheResultIsReadBeforeTheResponseIsReset) {
    Plain process;
    const Record record(process);
    process.setResult(7);
    process.signalDone();
    const InPlaceOf<pthread_mutex_unlock> unlocks([&record](pthread_mutex_t* mutex) {
        if (mutex == Record::mutexOf(record.response()) && !isSignalled(record.response())) {
            record.result() = 8; // what the next request would leave
        }
        return pthread_mutex_unlock(mutex);
    });
    EXPECT_EQ(process.call(), 7);
    EXPECT_EQ(record.result(), 8);
}

TEST_F(SynchronousProcessLocks, ARequestIsTakenWhateverTheWaitingReturned) {
    Plain process;
    const Record record(process);
    process.signalDone();
    EXPECT_EQ(process.call(), 1);
    ASSERT_TRUE(isSignalled(record.request()));
    const InPlaceOf<pthread_mutex_unlock> unlocks([&record](pthread_mutex_t* mutex) {
        const int error = pthread_mutex_unlock(mutex);
        return mutex == Record::mutexOf(record.request()) ? EPERM : error;
    });
    EXPECT_FALSE(process.waitForRequest());
    EXPECT_FALSE(isSignalled(record.request()));
}

TEST_F(SynchronousProcessLocks, TheResponseIsDestroyedBeforeTheRequest) {
    std::vector<const void*> destroyed;
    std::vector<const void*> expected;
    {
        const InPlaceOf<pthread_mutex_destroy> destructions([&destroyed](pthread_mutex_t* mutex) {
            destroyed.push_back(mutex);
            return pthread_mutex_destroy(mutex);
        });
        const Plain process;
        const Record record(process);
        expected = {Record::mutexOf(record.response()), Record::mutexOf(record.request())};
    }
    EXPECT_EQ(destroyed, expected);
}

TEST_F(SynchronousProcessLocks, AStopLeavesItsResultBeforeItAnswers) {
    Plain process;
    const Record record(process);
    std::int32_t resultWithAnswer = -1;
    const InPlaceOf<pthread_mutex_unlock> unlocks([&record, &resultWithAnswer](pthread_mutex_t* mutex) {
        if (mutex == Record::mutexOf(record.response())) {
            resultWithAnswer = record.result();
        }
        return pthread_mutex_unlock(mutex);
    });
    process.stop();
    EXPECT_EQ(resultWithAnswer, 0);
}

} // namespace
