#include "common/processes/GlobalLock.h"

#include "foundation/synchronization/NonCopyable.h"
#include "tests/common/processes/GlobalLockFixture.h"
#include "tests/support/Files.h"
#include "tests/support/Scarcity.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>

namespace {

using ORBCOMMON::GlobalLock;
using ZNORBTEST::GlobalLockTest;
using ZNORBTEST::longestName;
using ZNORBTEST::nameExists;
using ZNORBTEST::Onlooker;
using ZNORBTEST::statusInOwnProcess;

static_assert(std::has_virtual_destructor_v<GlobalLock>);
static_assert(!std::is_copy_constructible_v<GlobalLock> && !std::is_copy_assignable_v<GlobalLock>);
static_assert(std::is_base_of_v<Common::NonCopyable, GlobalLock>);
static_assert(!std::is_convertible_v<GlobalLock*, Common::NonCopyable*>, "private base");

// The error of the calls that read the memory of a process; 0 lets them do so.
int readingError = 0;

} // namespace

// Stands in for the C library's in this executable.
extern "C" ssize_t process_vm_readv(pid_t process, const iovec* to, unsigned long toCount, const iovec* from,
                                    unsigned long fromCount, unsigned long flags) {
    if (readingError != 0) {
        errno = readingError;
        return -1;
    }
    return syscall(SYS_process_vm_readv, process, to, toCount, from, fromCount, flags);
}

namespace {

TEST_F(GlobalLockTest, IsClosedAndTouchesNothingUntilItIsUsed) {
    {
        GlobalLock lock(m_name);
        EXPECT_FALSE(lock.isHeld());
        EXPECT_FALSE(nameExists(m_name));
        lock.unlock(true);
        lock.close();
        lock.remove(false);
    }
    EXPECT_FALSE(nameExists(m_name));
}

TEST_F(GlobalLockTest, CreatingLockedMakesAHeldSemaphore) {
    GlobalLock lock(m_name);
    EXPECT_TRUE(lock.create(true));
    EXPECT_EQ(Onlooker(m_name).count(), 0);
    EXPECT_TRUE(lock.isHeld());
}

TEST_F(GlobalLockTest, CreatingUnlockedMakesAFreeSemaphore) {
    GlobalLock lock(m_name);
    EXPECT_TRUE(lock.create(false));
    EXPECT_EQ(Onlooker(m_name).count(), 1);
    EXPECT_FALSE(lock.isHeld());
}

TEST_F(GlobalLockTest, CreatesTheNameWithMode0644) {
    const mode_t before = umask(0);
    GlobalLock lock(m_name);
    EXPECT_TRUE(lock.create(true));
    (void)umask(before);
    struct stat status {};
    ASSERT_EQ(stat(("/dev/shm/sem." + m_name.substr(1)).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
}

TEST_F(GlobalLockTest, CreatingTwiceReturnsTrueWithoutTouchingTheSystem) {
    GlobalLock lock(m_name);
    ASSERT_TRUE(lock.create(true));
    const Onlooker onlooker(m_name);
    ASSERT_EQ(sem_unlink(m_name.c_str()), 0);
    EXPECT_TRUE(lock.create(false));
    EXPECT_FALSE(nameExists(m_name));
    EXPECT_EQ(onlooker.count(), 0);
    EXPECT_TRUE(lock.isHeld());
}

TEST_F(GlobalLockTest, CreateOnAnOpenedLockReturnsTrueAndTakesNothing) {
    const Onlooker onlooker(m_name, 1);
    {
        GlobalLock lock(m_name);
        ASSERT_TRUE(lock.openExisting());
        EXPECT_TRUE(lock.create(true));
        EXPECT_EQ(onlooker.count(), 1);
    }
    EXPECT_TRUE(nameExists(m_name)) << "it did not become the owner";
}

TEST_F(GlobalLockTest, CreateOfAnExistingNameFailsAndChangesNothing) {
    const Onlooker onlooker(m_name, 1);
    {
        GlobalLock lock(m_name);
        EXPECT_FALSE(lock.create(true));
        EXPECT_EQ(onlooker.count(), 1);
        EXPECT_FALSE(lock.isHeld());
        EXPECT_FALSE(lock.tryLock(true)) << "it is not open";
        EXPECT_EQ(onlooker.count(), 1);
        lock.remove(false);
    }
    EXPECT_TRUE(nameExists(m_name));
    EXPECT_EQ(onlooker.count(), 1);
}

TEST_F(GlobalLockTest, CanOpenTheNameThatItFailedToCreate) {
    const Onlooker onlooker(m_name, 1);
    GlobalLock lock(m_name);
    ASSERT_FALSE(lock.create(true));
    EXPECT_TRUE(lock.openExisting());
    EXPECT_TRUE(lock.tryLock(false));
    EXPECT_EQ(onlooker.count(), 0);
}

TEST_F(GlobalLockTest, OpenExistingNeverCreates) {
    GlobalLock lock(m_name);
    EXPECT_FALSE(lock.openExisting());
    EXPECT_FALSE(nameExists(m_name));
    EXPECT_FALSE(lock.isHeld());
    EXPECT_TRUE(lock.create(false)) << "the failure leaves the object usable";
}

TEST_F(GlobalLockTest, OpenExistingOpensWithoutLocking) {
    const Onlooker onlooker(m_name, 1);
    GlobalLock lock(m_name);
    EXPECT_TRUE(lock.openExisting());
    EXPECT_TRUE(lock.openExisting());
    EXPECT_EQ(onlooker.count(), 1);
}

TEST_F(GlobalLockTest, NamesThatTheSystemRefusesFailToCreateAndToOpen) {
    for (const std::string& name :
         {std::string(), std::string("/"), "/" + std::string(longestName + 1, 'x'), m_name + "/x"}) {
        GlobalLock lock(name);
        EXPECT_FALSE(lock.create(true)) << name;
        EXPECT_FALSE(lock.openExisting()) << name;
        EXPECT_FALSE(lock.isHeld()) << name;
        lock.remove(true);
    }
}

TEST_F(GlobalLockTest, IsHeldOnAnObjectThatIsNotOpenIsFalse) {
    const Onlooker holder(m_name, 0);
    GlobalLock lock(m_name);
    EXPECT_FALSE(lock.isHeld());
}

TEST_F(GlobalLockTest, IsHeldByTheCreatorIsTrueWithoutASystemCall) {
    GlobalLock lock(m_name);
    ASSERT_TRUE(lock.create(true));
    const Onlooker onlooker(m_name);
    onlooker.post();
    EXPECT_TRUE(lock.isHeld()) << "the semaphore's count is not looked at";
    EXPECT_EQ(onlooker.count(), 1);
}

TEST_F(GlobalLockTest, IsHeldBySomebodyElseIsTrue) {
    const Onlooker holder(m_name, 0);
    GlobalLock lock(m_name);
    ASSERT_TRUE(lock.openExisting());
    EXPECT_TRUE(lock.isHeld());
    EXPECT_EQ(holder.count(), 0);
}

TEST_F(GlobalLockTest, IsHeldGivesAFreeLockBackAtOnce) {
    const Onlooker onlooker(m_name, 1);
    GlobalLock lock(m_name);
    ASSERT_TRUE(lock.openExisting());
    EXPECT_FALSE(lock.isHeld());
    EXPECT_FALSE(lock.isHeld());
    EXPECT_EQ(onlooker.count(), 1);
}

TEST_F(GlobalLockTest, IsHeldKeepsTheOwnershipOfTheName) {
    {
        GlobalLock lock(m_name);
        ASSERT_TRUE(lock.create(false));
        EXPECT_FALSE(lock.isHeld());
    }
    EXPECT_FALSE(nameExists(m_name));
}

TEST_F(GlobalLockTest, TryLockTakesAFreeLockOnce) {
    const Onlooker onlooker(m_name, 2);
    GlobalLock lock(m_name);
    ASSERT_TRUE(lock.openExisting());
    EXPECT_TRUE(lock.tryLock(false));
    EXPECT_EQ(onlooker.count(), 1);
    EXPECT_TRUE(lock.tryLock(false)) << "held already";
    EXPECT_EQ(onlooker.count(), 1);
    EXPECT_TRUE(lock.isHeld());
}

TEST_F(GlobalLockTest, TryLockFailsOnATakenLockAndOnOneThatIsNotOpen) {
    const Onlooker holder(m_name, 0);
    {
        GlobalLock lock(m_name);
        EXPECT_FALSE(lock.tryLock(true));
        ASSERT_TRUE(lock.openExisting());
        EXPECT_FALSE(lock.tryLock(true));
    }
    EXPECT_EQ(holder.count(), 0);
    EXPECT_TRUE(nameExists(m_name)) << "a failure takes no ownership";
}

TEST_F(GlobalLockTest, TryLockWithOwnershipUnlinksTheOpenedNameOnDestruction) {
    const Onlooker onlooker(m_name, 1);
    {
        GlobalLock lock(m_name);
        ASSERT_TRUE(lock.openExisting());
        ASSERT_TRUE(lock.tryLock(true));
    }
    EXPECT_FALSE(nameExists(m_name));
    EXPECT_EQ(onlooker.count(), 1);
}

TEST_F(GlobalLockTest, TryLockWhileHeldTakesNoOwnership) {
    const Onlooker onlooker(m_name, 1);
    {
        GlobalLock lock(m_name);
        ASSERT_TRUE(lock.openExisting());
        ASSERT_TRUE(lock.tryLock(false));
        EXPECT_TRUE(lock.tryLock(true));
    }
    EXPECT_TRUE(nameExists(m_name));
}

TEST_F(GlobalLockTest, DestroyingAnOpenedLockOnlyGivesItBackAndCloses) {
    const Onlooker onlooker(m_name, 1);
    {
        GlobalLock lock(m_name);
        ASSERT_TRUE(lock.openExisting());
        ASSERT_TRUE(lock.tryLock(false));
        EXPECT_EQ(onlooker.count(), 0);
    }
    EXPECT_TRUE(nameExists(m_name));
    EXPECT_EQ(onlooker.count(), 1);
}

TEST_F(GlobalLockTest, DestroyingACreatedLockGivesItBackAndUnlinksTheName) {
    auto lock = std::make_unique<GlobalLock>(m_name);
    ASSERT_TRUE(lock->create(true));
    const Onlooker onlooker(m_name);
    lock.reset();
    EXPECT_FALSE(nameExists(m_name));
    EXPECT_EQ(onlooker.count(), 1);
}

TEST_F(GlobalLockTest, UnlockGivesBackOnlyWhatIsHeld) {
    const Onlooker onlooker(m_name, 1);
    GlobalLock lock(m_name);
    lock.unlock(false);
    ASSERT_TRUE(lock.openExisting());
    lock.unlock(false);
    EXPECT_EQ(onlooker.count(), 1);
    ASSERT_TRUE(lock.tryLock(false));
    lock.unlock(false);
    EXPECT_EQ(onlooker.count(), 1);
    lock.unlock(false);
    EXPECT_EQ(onlooker.count(), 1);
    EXPECT_FALSE(lock.isHeld());
}

TEST_F(GlobalLockTest, UnlockKeepsTheOwnershipUnlessToldToDisown) {
    for (const bool disown : {false, true}) {
        {
            GlobalLock lock(m_name);
            ASSERT_TRUE(lock.create(true));
            lock.unlock(disown);
            EXPECT_FALSE(lock.isHeld());
        }
        EXPECT_EQ(nameExists(m_name), disown);
    }
}

TEST_F(GlobalLockTest, UnlockDisownsEvenWhenNothingIsHeld) {
    {
        GlobalLock lock(m_name);
        ASSERT_TRUE(lock.create(false));
        lock.unlock(true);
        EXPECT_EQ(Onlooker(m_name).count(), 1);
    }
    EXPECT_TRUE(nameExists(m_name));
}

TEST_F(GlobalLockTest, CloseGivesBackAndKeepsTheName) {
    {
        GlobalLock lock(m_name);
        ASSERT_TRUE(lock.create(true));
        lock.close();
        EXPECT_EQ(Onlooker(m_name).count(), 1);
        EXPECT_FALSE(lock.isHeld());
        EXPECT_FALSE(lock.tryLock(false));
        lock.close();
        EXPECT_EQ(Onlooker(m_name).count(), 1);
    }
    EXPECT_TRUE(nameExists(m_name)) << "destroying a closed lock does nothing";
}

TEST_F(GlobalLockTest, CloseKeepsTheOwnership) {
    GlobalLock lock(m_name);
    ASSERT_TRUE(lock.create(true));
    lock.close();
    lock.remove(false);
    EXPECT_FALSE(nameExists(m_name));
}

TEST_F(GlobalLockTest, CanBeOpenedAgainAfterAClose) {
    GlobalLock lock(m_name);
    ASSERT_TRUE(lock.create(true));
    lock.close();
    EXPECT_FALSE(lock.create(true)) << "the name is still there";
    EXPECT_TRUE(lock.openExisting());
    EXPECT_FALSE(lock.isHeld());
    EXPECT_TRUE(lock.tryLock(false));
}

TEST_F(GlobalLockTest, RemoveWithoutForceUnlinksOnlyAnOwnedName) {
    const Onlooker onlooker(m_name, 1);
    GlobalLock lock(m_name);
    ASSERT_TRUE(lock.openExisting());
    ASSERT_TRUE(lock.tryLock(false));
    lock.remove(false);
    EXPECT_TRUE(nameExists(m_name));
    EXPECT_EQ(onlooker.count(), 1);
    EXPECT_FALSE(lock.tryLock(false)) << "it is closed";
}

TEST_F(GlobalLockTest, RemoveWithForceUnlinksEvenANameThatIsNotOpen) {
    const Onlooker onlooker(m_name, 0);
    GlobalLock lock(m_name);
    lock.remove(true);
    EXPECT_FALSE(nameExists(m_name));
    EXPECT_EQ(onlooker.count(), 0);
}

TEST_F(GlobalLockTest, RemoveGivesUpTheOwnership) {
    GlobalLock lock(m_name);
    ASSERT_TRUE(lock.create(true));
    lock.remove(true);
    const Onlooker successor(m_name, 1);
    lock.remove(false);
    EXPECT_TRUE(nameExists(m_name));
}

TEST_F(GlobalLockTest, AnOpenHandleSeesTheRemovedLockAsFree) {
    GlobalLock daemon(m_name);
    ASSERT_TRUE(daemon.create(true));
    GlobalLock stopper(m_name);
    ASSERT_TRUE(stopper.openExisting());
    EXPECT_TRUE(stopper.isHeld());
    daemon.remove(true);
    EXPECT_FALSE(stopper.isHeld());
    EXPECT_FALSE(stopper.isHeld()) << "the probe gave the lock back";
    EXPECT_FALSE(nameExists(m_name));
}

TEST_F(GlobalLockTest, ANewSemaphoreCanBeMadeUnderARemovedName) {
    GlobalLock first(m_name);
    ASSERT_TRUE(first.create(true));
    GlobalLock old(m_name);
    ASSERT_TRUE(old.openExisting());
    first.remove(true);
    ASSERT_TRUE(first.create(true));
    EXPECT_TRUE(old.tryLock(false)) << "it works on the old semaphore";
    GlobalLock probe(m_name);
    ASSERT_TRUE(probe.openExisting());
    EXPECT_TRUE(probe.isHeld());
}

TEST_F(GlobalLockTest, ANameLeftBehindByAKilledProcessStaysHeld) {
    EXPECT_EQ(statusInOwnProcess([this] {
                  GlobalLock lock(m_name);
                  const bool created = lock.create(true);
                  _exit(created ? 0 : 1);
                  return 2;
              }),
              0);
    GlobalLock lock(m_name);
    EXPECT_FALSE(lock.create(true));
    ASSERT_TRUE(lock.openExisting());
    EXPECT_TRUE(lock.isHeld());
    lock.remove(true);
    EXPECT_TRUE(lock.create(true));
}

TEST_F(GlobalLockTest, ANameWhoseFileIsTooShortForASemaphoreIsNeitherHeldNorTaken) {
    const std::string file = "/dev/shm/sem." + m_name.substr(1);
    ZNORBTEST::writeFile(file, "");
    GlobalLock lock(m_name);
    ASSERT_TRUE(lock.openExisting());
    EXPECT_FALSE(lock.isHeld());
    EXPECT_FALSE(lock.tryLock(true));
    ASSERT_EQ(truncate(file.c_str(), sizeof(sem_t)), 0);
    EXPECT_TRUE(lock.isHeld()) << "a count of 0";
    ASSERT_EQ(truncate(file.c_str(), 0), 0);
    EXPECT_FALSE(lock.isHeld());
}

TEST_F(GlobalLockTest, ASystemThatDoesNotTellWhetherMemoryIsThereHindersNobody) {
    Onlooker other(m_name, 1);
    GlobalLock lock(m_name);
    ASSERT_TRUE(lock.openExisting());
    for (const int error : {ENOSYS, EPERM}) {
        readingError = error;
        EXPECT_FALSE(lock.isHeld());
        EXPECT_TRUE(lock.tryLock(false));
        readingError = 0;
        EXPECT_EQ(other.count(), 0);
        lock.unlock(false);
    }
}

TEST_F(GlobalLockTest, AnotherProcessFindsTheLockHeldAndThenFree) {
    GlobalLock daemon(m_name);
    ASSERT_TRUE(daemon.create(true));
    const auto probe = [this] {
        GlobalLock lock(m_name);
        if (!lock.openExisting()) {
            return 2;
        }
        return lock.isHeld() ? 1 : 0;
    };
    EXPECT_EQ(statusInOwnProcess(probe), 1);
    daemon.unlock(false);
    EXPECT_EQ(statusInOwnProcess(probe), 0);
    daemon.remove(true);
    EXPECT_EQ(statusInOwnProcess(probe), 2);
}

} // namespace
