#include "common/GlobalLock.h"

#include "foundation/NonCopyable.h"
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
using ZNORBTEST::statusInOwnProcess;

static_assert(std::has_virtual_destructor_v<GlobalLock>);
static_assert(!std::is_copy_constructible_v<GlobalLock> && !std::is_copy_assignable_v<GlobalLock>);
static_assert(std::is_base_of_v<Common::NonCopyable, GlobalLock>);
static_assert(!std::is_convertible_v<GlobalLock*, Common::NonCopyable*>, "private base");

constexpr std::size_t longestName = NAME_MAX - 4;

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

bool nameExists(const std::string& name) {
    sem_t* semaphore = sem_open(name.c_str(), 0);
    if (semaphore == SEM_FAILED) {
        return false;
    }
    (void)sem_close(semaphore);
    return true;
}

// A handle on the semaphore besides the lock under test: another process's view of it.
class Onlooker {
public:
    explicit Onlooker(const std::string& name) : m_semaphore(sem_open(name.c_str(), 0)) {}
    // Makes the name.
    Onlooker(const std::string& name, unsigned count)
        : m_semaphore(sem_open(name.c_str(), O_CREAT | O_EXCL, 0600, count)) {}
    ~Onlooker() {
        if (m_semaphore != SEM_FAILED) {
            (void)sem_close(m_semaphore);
        }
    }
    Onlooker(const Onlooker&) = delete;
    Onlooker& operator=(const Onlooker&) = delete;

    // -1 when the semaphore could not be opened.
    int count() const {
        int value = -1;
        if (m_semaphore == SEM_FAILED || sem_getvalue(m_semaphore, &value) != 0) {
            return -1;
        }
        return value;
    }
    void post() const { (void)sem_post(m_semaphore); }

private:
    sem_t* m_semaphore;
};

// A name of this test's own, gone before and after it.
class GlobalLockTest : public testing::Test {
protected:
    void SetUp() override { (void)sem_unlink(m_name.c_str()); }
    void TearDown() override { (void)sem_unlink(m_name.c_str()); }

    const std::string m_name = "/znorb.globalLockTest." + std::to_string(getpid());
};

class GlobalLockAbandonTest : public GlobalLockTest {};

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

TEST_F(GlobalLockAbandonTest, RemovesANameThatItDoesNotOwn) {
    const Onlooker onlooker(m_name, 1);
    GlobalLock lock(m_name);
    ASSERT_TRUE(lock.openExisting());
    lock.abandon();
    EXPECT_FALSE(nameExists(m_name));
    EXPECT_EQ(onlooker.count(), 1);
}

TEST_F(GlobalLockAbandonTest, RemovesTheNameEvenWhenNotOpen) {
    const Onlooker onlooker(m_name, 0);
    const GlobalLock lock(m_name);
    lock.abandon();
    EXPECT_FALSE(nameExists(m_name));
    EXPECT_EQ(onlooker.count(), 0);
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
        lock.abandon();
        EXPECT_TRUE(nameExists(longest)) << "not cut to a name that fits";
    }
    EXPECT_EQ(sem_unlink(longest.c_str()), 0);
}

TEST_F(GlobalLockAbandonTest, NeverLeavesTheFolderOfTheSemaphores) {
    const std::string folder = "/dev/shm/sem." + m_name.substr(1);
    const std::string file = folder + "/victim";
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    const int descriptor = open(file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    EXPECT_GE(descriptor, 0);
    (void)close(descriptor);
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
    const int status = statusInOwnProcess([this] {
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
    EXPECT_EQ(status, 10);
    EXPECT_FALSE(nameExists(m_name));
    EXPECT_EQ(onlooker.count(), 1);
}

} // namespace
