#include "responder/Globals.h"

#include "tests/support/Allocations.h"
#include "tests/support/FailingStart.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Names.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Waiting.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <semaphore.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <thread>
#include <type_traits>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;

/// A point in time that has passed: a wait until then only looks.
constexpr std::time_t past = 1;

static_assert(std::is_same_v<decltype(pipeName), const std::string>);
static_assert(std::is_same_v<decltype(parsedCommandList), std::vector<std::string>>);
static_assert(std::is_same_v<decltype(parsedCommandMap), Common::map<std::string, unsigned>>);
static_assert(std::is_same_v<decltype(parsedOptionSet), Common::set<std::string>>);
static_assert(std::is_same_v<decltype(mainExitBarrier), ORBCOMMON::ProcessEvent>);
static_assert(std::is_same_v<decltype(ORBFrontProcessBarrier), ORBCOMMON::ProcessEvent>);
static_assert(std::is_same_v<decltype(appLock), ORBCOMMON::GlobalLock>);
static_assert(std::is_same_v<decltype(gConfigMon), ConfigurationMonitor>);
static_assert(std::is_same_v<decltype(gResponderMonitor), WBXResponderMonitor>);

/// The static objects of the program, in the order in which they are constructed and their destructors
/// registered.
constinit std::array<const void*, 4096> s_constructed = {};
constinit std::size_t s_constructedCount = 0;

/// The threads of this process, those of a sanitizer included.
std::size_t threadCount() {
    return namesIn("/proc/self/task").size();
}

/// The globals as they were before main, where no test has been able to touch them.
struct InitialState {
    bool flags[4];
    std::size_t threads;
};

const InitialState s_initial = {{enableFlag, disableFlag, silentFlag, gIsTestMode}, threadCount()};

TEST(Globals, PipeNameIsTheConsolesOnOtherPlatforms) {
    EXPECT_EQ(pipeName, "\\\\.\\pipe\\ZNORBWBXResponder");
}

constexpr const char* withoutPipeName = "ZNORB_TEST_WITHOUT_PIPE_NAME";
[[maybe_unused]] const bool s_hasNoPipeName =
    failAllocationAtStart(sizeof "\\\\.\\pipe\\ZNORBWBXResponder", withoutPipeName);

TEST(Globals, PipeNameIsEmptyWithoutMemoryForIt) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be made to fail here";
    if (isCopyWith(withoutPipeName)) {
        EXPECT_EQ(pipeName, "");
    } else {
        expectToPassInCopyWith(withoutPipeName);
    }
}

TEST(Globals, CommandLineFlagsAndTestModeAreEmptyOrOffAtFirst) {
    EXPECT_TRUE(parsedCommandList.empty());
    EXPECT_TRUE(parsedCommandMap.empty());
    EXPECT_TRUE(parsedOptionSet.empty());
    EXPECT_FALSE(s_initial.flags[0] || s_initial.flags[1] || s_initial.flags[2]);
    EXPECT_FALSE(s_initial.flags[3]);
    EXPECT_FALSE(gIsTestMode);
}

TEST(Globals, FlagTableNamesEnableDisableAndSilentInThisOrderWithTheirBools) {
    ASSERT_EQ(flagTable.size(), 3U);
    EXPECT_EQ(flagTable[0].name, "enable");
    EXPECT_EQ(flagTable[0].target, &enableFlag);
    EXPECT_EQ(flagTable[1].name, "disable");
    EXPECT_EQ(flagTable[1].target, &disableFlag);
    EXPECT_EQ(flagTable[2].name, "silent");
    EXPECT_EQ(flagTable[2].target, &silentFlag);
}

TEST(Globals, CommandTableNamesDStopTestAndTheDefaultRowInThisOrderWithoutConstraints) {
    const std::string names[] = {"d", "stop", "test", ""};
    ASSERT_EQ(commandTable.size(), 4U);
    for (std::size_t row = 0; row < commandTable.size(); ++row) {
        EXPECT_EQ(commandTable[row].name, names[row]);
        EXPECT_EQ(commandTable[row].required, "") << row;
        EXPECT_EQ(commandTable[row].permitted, "") << row;
        EXPECT_EQ(commandTable[row].companions, "") << row;
    }
}

TEST(Globals, EventsAreNotSignalledAtFirst) {
    EXPECT_FALSE(mainExitBarrier.timedWait(past));
    EXPECT_FALSE(ORBFrontProcessBarrier.timedWait(past));
}

TEST(Globals, ExitEventBelongsToOneProcess) {
    expectEndOfForked(exitedWith(0), []() noexcept {
        return mainExitBarrier.set() == 0 && mainExitBarrier.timedWait(past) ? 0 : 1;
    });
    EXPECT_FALSE(mainExitBarrier.timedWait(past));
}

TEST(Globals, FrontProcessEventIsSharedBetweenParentAndChild) {
    EXPECT_EQ(endOfForked([]() { return ORBFrontProcessBarrier.set(); }), exitedWith(0));
    EXPECT_TRUE(ORBFrontProcessBarrier.timedWait(past));
    EXPECT_EQ(ORBFrontProcessBarrier.reset(), 0);
}

TEST(Globals, ApplicationLockIsClosedAtFirstAndHasItsName) {
    EXPECT_FALSE(appLock.isHeld());
    EXPECT_FALSE(appLock.openExisting()) << "nothing of its name is made";
    EXPECT_FALSE(exists(lockFile));
    EXPECT_TRUE(appLock.create(true));
    EXPECT_TRUE(exists(lockFile));
    appLock.remove(true);
    EXPECT_FALSE(exists(lockFile));
}

TEST(Globals, NothingStartsAThreadBeforeMain) {
    const InitialState& initial = s_initial;
    if (underThreadSanitizer) {
        EXPECT_LE(initial.threads, 2U) << "the sanitizer may have one of its own";
    } else {
        EXPECT_EQ(initial.threads, 1U);
    }
}

TEST(Globals, IdleMonitorsAreUsableObjects) {
    EXPECT_NE(dynamic_cast<ORBCOMMON::Threadable*>(&gConfigMon), nullptr);
    EXPECT_NE(dynamic_cast<ORBCOMMON::Threadable*>(&gResponderMonitor), nullptr);
    EXPECT_FALSE(exists("/dev/shm/znorb.shvars")) << "neither has run";
}

TEST(Globals, ExitRemovesTheNameOfALockThatIsHeld) {
    const ProcessEnd end = endOfForked([]() noexcept -> int {
        ORBFrontProcessBarrier.setOwner(false); // or its end would be that of this process' event, too
        std::exit(appLock.create(true) ? 3 : 4);
    });
    EXPECT_EQ(end, exitedWith(3));
    EXPECT_FALSE(exists(lockFile));
}

/// The waiter of `exitWhileWaiting` sleeps nowhere else.
bool isAnyOtherThreadInAFutex() {
    const std::string futex = std::to_string(SYS_futex) + " ";
    for (const std::string& thread : namesIn("/proc/self/task")) {
        const std::string call = readFile("/proc/self/task/" + thread + "/syscall");
        if (thread != std::to_string(getpid()) && call.compare(0, futex.size(), futex) == 0) {
            return true;
        }
    }
    return false;
}

/// Exits while a thread waits on the exit event, whose destructor therefore never returns: the process stops
/// in the middle of the destruction of its globals.
int exitWhileWaiting() noexcept {
    ORBFrontProcessBarrier.setOwner(false); // or its end would be that of the parent's, too
    if (!appLock.create(true) || !exists(lockFile)) {
        return EXIT_FAILURE;
    }
    std::thread([]() { (void)mainExitBarrier.wait(); }).detach();
    if (!waitUntil(isAnyOtherThreadInAFutex)) {
        return EXIT_FAILURE;
    }
    std::exit(EXIT_SUCCESS);
}

/// The memory that a process shares with others.
std::size_t sharedMappingsOf(pid_t process) {
    const std::string maps = readFile("/proc/" + std::to_string(process) + "/maps");
    std::size_t count = 0;
    for (auto at = maps.find(" rw-s "); at != std::string::npos; at = maps.find(" rw-s ", at + 1)) {
        ++count;
    }
    return count;
}

TEST(Globals, AreDestroyedAtExitInReverseOrderLockAndFrontEventBeforeTheExitEvent) {
    ZNORB_SKIP_IF(underThreadSanitizer)
        << "the thread sanitizer reports the destruction under a waiter that this relies on";
    ASSERT_FALSE(exists(lockFile));
    const std::size_t mappings = sharedMappingsOf(getpid());
    ForkedChild process(exitWhileWaiting);
    EXPECT_TRUE(waitUntil([&process, mappings]() { return sharedMappingsOf(process.pid()) == mappings - 1; }))
        << "the front process event is gone";
    EXPECT_FALSE(exists(lockFile));
    EXPECT_EQ(process.waitForEnd(Milliseconds(0)), stillRunning()) << "in the exit event's destructor";
    (void)sem_unlink(daemonLock); // left behind only if this has failed
}

TEST(Globals, AreConstructedInTheirOrder) {
    ZNORB_SKIP_IF(underThreadSanitizer) << "the thread sanitizer keeps the register of destructors itself";
    const std::vector<const void*> expected = {
        &pipeName,  &parsedCommandList, &parsedCommandMap, &parsedOptionSet,
        &flagTable, &commandTable,      &mainExitBarrier,  &ORBFrontProcessBarrier,
        &appLock,   &gConfigMon,        &gResponderMonitor};
    std::vector<const void*> found;
    std::copy_if(s_constructed.begin(), s_constructed.begin() + s_constructedCount, std::back_inserter(found),
                 [&expected](const void* object) {
                     return std::find(expected.begin(), expected.end(), object) != expected.end();
                 });
    EXPECT_EQ(found, expected);
}

} // namespace

#if !ZNORB_THREAD_SANITIZER
extern "C" int __cxxabiv1::__cxa_atexit(void (*destroy)(void*), void* object, void* library) noexcept {
    static const auto original =
        reinterpret_cast<decltype(&abi::__cxa_atexit)>(dlsym(RTLD_NEXT, "__cxa_atexit"));
    if (s_constructedCount < s_constructed.size()) {
        s_constructed[s_constructedCount++] = object;
    }
    return original(destroy, object, library);
}
#endif
