#include "common/processes/GlobalLock.h"
#include "tests/common/processes/GlobalLockFixture.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/StandIns.h"

#include <fcntl.h>

#include <cerrno>
#include <csignal>

/// Leaving the lock behind, as a signal handler may.
namespace {

using ORBCOMMON::GlobalLock;
using namespace ZNORBTEST;

class GlobalLockAbandonTest : public GlobalLockTest {};

TEST_F(GlobalLockAbandonTest, GivesTheLockBackAndRemovesTheName) {
    GlobalLock daemon(m_name);
    ASSERT_TRUE(daemon.create(true));
    GlobalLock stopper(m_name);
    ASSERT_TRUE(stopper.openExisting());
    EXPECT_TRUE(stopper.isHeld());
    daemon.abandon();
    EXPECT_FALSE(nameExists(m_name));
    EXPECT_FALSE(stopper.isHeld());
}

TEST_F(GlobalLockAbandonTest, LeavesTheObjectAsItWas) {
    GlobalLock lock(m_name);
    ASSERT_TRUE(lock.create(true));
    const Onlooker onlooker(m_name);
    lock.abandon();
    EXPECT_EQ(onlooker.count(), 1);
    EXPECT_TRUE(lock.isHeld());
    EXPECT_TRUE(lock.create(true)) << "open still";
    EXPECT_FALSE(nameExists(m_name));
    lock.close();
    EXPECT_EQ(onlooker.count(), 2) << "close gives back what the object still believes to hold";
}

TEST_F(GlobalLockAbandonTest, GivesNothingBackThatIsNotHeld) {
    GlobalLock lock(m_name);
    ASSERT_TRUE(lock.create(false));
    const Onlooker onlooker(m_name);
    lock.abandon();
    EXPECT_EQ(onlooker.count(), 1);
    EXPECT_FALSE(nameExists(m_name));
}

TEST_F(GlobalLockAbandonTest, RemovesANameThatItDoesNotOwnEvenWhenNotOpen) {
    for (const int count : {0, 1}) {
        const Onlooker onlooker(m_name, static_cast<unsigned>(count));
        GlobalLock lock(m_name);
        EXPECT_TRUE(count == 0 || lock.openExisting());
        lock.abandon();
        EXPECT_FALSE(nameExists(m_name));
        EXPECT_EQ(onlooker.count(), count);
    }
}

TEST_F(GlobalLockAbandonTest, DoesNothingWhenThereIsNoSuchName) {
    const GlobalLock lock(m_name);
    lock.abandon();
    EXPECT_FALSE(nameExists(m_name));
}

TEST_F(GlobalLockAbandonTest, TakesNamesWithoutAndWithSeveralLeadingSlashes) {
    for (const std::string& name : {m_name.substr(1), "//" + m_name}) {
        GlobalLock lock(name);
        ASSERT_TRUE(lock.create(true)) << name;
        const Onlooker onlooker(m_name);
        lock.abandon();
        EXPECT_FALSE(nameExists(m_name)) << name;
        EXPECT_EQ(onlooker.count(), 1) << name;
        lock.remove(false);
    }
}

TEST_F(GlobalLockAbandonTest, TakesTheLongestName) {
    const std::string name = m_name + "." + std::string(longestName - m_name.size(), 'x');
    ASSERT_EQ(name.size(), longestName + 1) << "with its slash";
    GlobalLock lock(name);
    ASSERT_TRUE(lock.create(true));
    lock.abandon();
    EXPECT_FALSE(nameExists(name));
    (void)sem_unlink(name.c_str());
}

TEST_F(GlobalLockAbandonTest, LeavesAloneTheNameThatAnOverlongOneBeginsWith) {
    const std::string longest = m_name + "." + std::string(longestName - m_name.size(), 'x');
    const Onlooker onlooker(longest, 1);
    for (const std::size_t excess : {1U, 2U, 5000U}) {
        const GlobalLock lock(longest + std::string(excess, 'x'));
        errno = 0;
        lock.abandon();
        EXPECT_EQ(errno, 0) << "nothing is unlinked";
        EXPECT_TRUE(nameExists(longest)) << "not cut to a name that fits";
    }
    EXPECT_EQ(sem_unlink(longest.c_str()), 0);
}

TEST_F(GlobalLockAbandonTest, NeverLeavesTheFolderOfTheSemaphores) {
    const std::string folder = "/dev/shm/sem." + m_name.substr(1);
    const std::string file = folder + "/victim";
    writeFile(file, "");
    for (const std::string& name : {m_name + "/victim", m_name + "/../" + folder.substr(9) + "/victim"}) {
        const GlobalLock lock(name);
        lock.abandon();
        EXPECT_EQ(access(file.c_str(), F_OK), 0) << name;
    }
    EXPECT_EQ(unlink(file.c_str()), 0);
    EXPECT_EQ(rmdir(folder.c_str()), 0);
}

TEST_F(GlobalLockAbandonTest, IgnoresEmptyNames) {
    for (const char* name : {"", "/", "///"}) {
        const GlobalLock lock(name);
        errno = 0;
        lock.abandon();
        EXPECT_EQ(errno, 0) << "nothing is unlinked";
    }
}

// The lock that the signal handler of a child process abandons.
const GlobalLock* lockOfTheHandler = nullptr;

TEST_F(GlobalLockAbandonTest, WorksInASignalHandlerThatEndsTheProcess) {
    const Onlooker onlooker(m_name, 1);
    expectEndOfForked(exitedWith(10), [this] {
        GlobalLock lock(m_name);
        if (!lock.openExisting() || !lock.tryLock(true)) {
            return 1;
        }
        lockOfTheHandler = &lock;
        (void)std::signal(SIGTERM, [](int) {
            lockOfTheHandler->abandon();
            _exit(10);
        });
        (void)std::raise(SIGTERM);
        return 2;
    });
    EXPECT_FALSE(nameExists(m_name));
    EXPECT_EQ(onlooker.count(), 1);
}

TEST_F(GlobalLockAbandonTest, GivesTheLockBackBeforeTheNameGoes) {
    GlobalLock lock(m_name);
    ASSERT_TRUE(lock.create(true));
    int count = -1;
    const InPlaceOf<unlink> removals([this, &count](const char* path) {
        count = Onlooker(m_name).count();
        return unlink(path);
    });
    lock.abandon();
    EXPECT_EQ(count, 1);
    EXPECT_FALSE(nameExists(m_name));
}

} // namespace
