#include "responder/commands/StartStop.h"

#include "responder/commands/ExitStatus.h"
#include "tests/support/Descriptor.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/PlayedDaemon.h"
#include "tests/support/Rows.h"
#include "tests/support/Scarcity.h"
#include "tests/support/SignalMask.h"
#include "tests/support/Skipping.h"
#include "tests/support/StandIns.h"
#include "tests/support/SystemCallTracer.h"

#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

/// How long `-stop` waits, counted in its sleeps, of which none takes any time here. What it says and how it
/// ends on the real executable are the system tests' matter.
namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;

/// The sleeps of the stopping process, and when the daemon lets go of its lock.
struct Sleeps {
    unsigned ofTenths = 0;
    unsigned ofMilliseconds = 0;
    unsigned others = 0;
    unsigned afterTheMessage = 0;
    unsigned releaseIn = 0; ///< the number of the sleep; 0 for never
    bool isNameRemoved = false;
    const PlayedDaemon* daemon = nullptr;
};

void count(Sleeps& sleeps, useconds_t microseconds) {
    switch (microseconds) {
    case 100'000:
        if (++sleeps.ofTenths == sleeps.releaseIn) {
            sleeps.daemon->releaseLock();
            (void)(sleeps.isNameRemoved && sem_unlink(daemonLock) == 0);
        }
        break;
    case 1'000:
        ++sleeps.ofMilliseconds;
        break;
    default:
        ++sleeps.others;
    }
}

/// A daemon that answers "QUIT" and holds its lock; the name stays when it lets go.
class StopDaemon : public testing::Test {
protected:
    /// The daemon lets go in this sleep of the stop, of the name perhaps, too.
    ProcessEnd stopReleasedIn(unsigned sleep, bool isNameRemoved) {
        sleeps->releaseIn = sleep;
        sleeps->isNameRemoved = isNameRemoved;
        sleeps->daemon = &m_daemon;
        return endOfForked([this]() {
            const Descriptor output(memfd_create("output", MFD_CLOEXEC));
            (void)dup2(output.get(), STDOUT_FILENO);
            const InPlaceOf<usleep> noSleep([this, &output](useconds_t microseconds) {
                count(*sleeps, microseconds);
                sleeps->afterTheMessage += contentOf(output.get()).empty() ? 0U : 1U;
                return 0;
            });
            return stopDaemon();
        });
    }

    const SharedReport<Sleeps> sleeps;

private:
    const PlayedDaemon m_daemon{"0"};
};

/// The sleep in which the daemon lets go, the status of the stop, and its sleeps.
struct Release {
    const char* name;
    unsigned in;
    int status;
    unsigned ofTenths;
    unsigned ofMilliseconds; ///< while the name stays
    bool isNameRemoved = false;

    friend void PrintTo(const Release& row, std::ostream* stream) { *stream << row.name; }
};

class ReleasedStop : public StopDaemon, public testing::WithParamInterface<Release> {};

TEST_P(ReleasedStop, SleepsThatOften) {
    EXPECT_EQ(stopReleasedIn(GetParam().in, GetParam().isNameRemoved), exitedWith(GetParam().status));
    EXPECT_EQ(sleeps->ofTenths, GetParam().ofTenths);
    EXPECT_EQ(sleeps->ofMilliseconds, GetParam().ofMilliseconds);
    EXPECT_EQ(sleeps->others, 0U);
    EXPECT_EQ(sleeps->afterTheMessage, 0U);
}

const Release releases[] = {
    {"GivesUpAfterExactlyFiftyTenthsOfASecond", 0, stopTimedOutStatus, 50, 0},
    {"LooksForTheLastTimeAfterTheFortyNinth", 49, 255, 49, 200},
    {"DoesNotLookAgainAfterTheFiftieth", 50, stopTimedOutStatus, 50, 0},
    {"WaitsForANameThatStaysForAFifthOfASecond", 1, 255, 1, 200},
    {"WaitsForNoNameThatIsGone", 1, 255, 1, 0, true},
};

INSTANTIATE_TEST_SUITE_P(StopDaemon, ReleasedStop, testing::ValuesIn(releases), rowName);

TEST(StartInBackground, IsTrueInTheDaemon) {
    constexpr int cannotForbid = 9;
    const ProcessEnd end = endOfForked([]() {
        return !forbidForks() ? cannotForbid : startInBackground(currentMask()) ? 0 : 1; // without a fork
    });
    ZNORB_SKIP_IF(end == exitedWith(cannotForbid)) << "no second user in this sandbox";
    EXPECT_EQ(end, exitedWith(0));
}

TEST(StartDaemon, ClosesTheLockOfAnotherInstanceBeforeItSaysSo) {
    ZNORB_SKIP_IF(!canTrace()) << "no process can be traced here";
    { const Onlooker left(daemonLock, 0); }
    SystemCallTracer tracer;
    (void)tracer.start([]() { _exit(startDaemon()); });
    std::string maps;
    EXPECT_TRUE(tracer.follow([&maps](const TracedStop& stop) {
        if (stop.kind == TracedStop::Kind::Call && stop.call.isStart && stop.call.number == SYS_write) {
            maps = readFile("/proc/" + std::to_string(stop.thread) + "/maps");
        }
    }));
    EXPECT_NE(maps, "");
    EXPECT_EQ(maps.find("/dev/shm/sem."), std::string::npos);
    (void)sem_unlink(daemonLock);
}

} // namespace
