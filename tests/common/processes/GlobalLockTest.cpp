#include "common/processes/GlobalLock.h"

#include "tests/common/processes/GlobalLockFixture.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Layout.h"
#include "tests/support/Rows.h"
#include "tests/support/Skipping.h"
#include "tests/support/StandIns.h"
#include "tests/support/SystemCallTracer.h"

#include <sys/stat.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstddef>
#include <optional>
#include <type_traits>

namespace {

using ORBCOMMON::GlobalLock;
using namespace ZNORBTEST;

static_assert(std::has_virtual_destructor_v<GlobalLock>);
static_assert(!std::is_copy_constructible_v<GlobalLock> && !std::is_copy_assignable_v<GlobalLock>);
static_assert(std::is_base_of_v<Common::NonCopyable, GlobalLock>);
static_assert(!std::is_convertible_v<GlobalLock*, Common::NonCopyable*>, "private base");

TEST_F(GlobalLockTest, IsClosedAndTouchesNothingUntilItIsUsed) {
    {
        GlobalLock lock(m_name);
        EXPECT_FALSE(lock.isHeld());
        EXPECT_FALSE(nameExists(m_name));
        errno = 0;
        lock.unlock(true);
        lock.close();
        lock.remove(false);
        EXPECT_EQ(errno, 0) << "nothing is closed";
    }
    EXPECT_FALSE(nameExists(m_name));
}

using Step = void (*)(GlobalLock&);

/// The life of an object: the semaphore's count before it, what it does, the count then, whether its end
/// leaves the name, and the count at last.
struct Life {
    const char* name;
    int before; ///< `none` for no semaphore of the name
    std::vector<Step> steps;
    int then;
    bool isNameLeft;
    int atLast;

    friend void PrintTo(const Life& row, std::ostream* stream) { *stream << row.name; }
};

constexpr int none = -1;
constexpr bool left = true;
constexpr bool unlinked = false;

constexpr Step creates = [](GlobalLock& lock) { EXPECT_TRUE(lock.create(true)); };
constexpr Step createsFree = [](GlobalLock& lock) { EXPECT_TRUE(lock.create(false)); };
constexpr Step failsToCreate = [](GlobalLock& lock) { EXPECT_FALSE(lock.create(true)); };
constexpr Step opens = [](GlobalLock& lock) { EXPECT_TRUE(lock.openExisting()); };
constexpr Step takes = [](GlobalLock& lock) { EXPECT_TRUE(lock.tryLock(false)); };
constexpr Step takesAndOwns = [](GlobalLock& lock) { EXPECT_TRUE(lock.tryLock(true)); };
constexpr Step failsToTake = [](GlobalLock& lock) { EXPECT_FALSE(lock.tryLock(true)); };
constexpr Step isHeld = [](GlobalLock& lock) { EXPECT_TRUE(lock.isHeld()); };
constexpr Step isNotHeld = [](GlobalLock& lock) { EXPECT_FALSE(lock.isHeld()); };
constexpr Step unlocks = [](GlobalLock& lock) { lock.unlock(false); };
constexpr Step disowns = [](GlobalLock& lock) { lock.unlock(true); };
constexpr Step closes = [](GlobalLock& lock) { lock.close(); };
constexpr Step removes = [](GlobalLock& lock) { lock.remove(false); };

class GlobalLockLife : public GlobalLockTest, public testing::WithParamInterface<Life> {};

TEST_P(GlobalLockLife, IsAsItsStepsSay) {
    std::optional<Onlooker> onlooker;
    if (GetParam().before != none) {
        onlooker.emplace(m_name, static_cast<unsigned>(GetParam().before));
    }
    {
        GlobalLock lock(m_name);
        for (const auto& step : GetParam().steps) {
            step(lock);
        }
        if (!onlooker.has_value()) {
            onlooker.emplace(m_name);
        }
        EXPECT_EQ(onlooker->count(), GetParam().then);
    }
    EXPECT_EQ(nameExists(m_name), GetParam().isNameLeft);
    EXPECT_EQ(onlooker->count(), GetParam().atLast);
}

const Life lives[] = {
    {"CreatedLockedIsHeldAndUnlinkedAtTheEnd", none, {creates, isHeld}, 0, unlinked, 1},
    {"CreatedUnlockedIsFreeAndUnlinkedAtTheEnd", none, {createsFree, isNotHeld}, 1, unlinked, 1},
    {"CreateOnAnOpenedLockTakesNothing", 1, {opens, creates}, 1, left, 1},
    {"CreateOfAnExistingNameOpensNothing", 1, {failsToCreate, isNotHeld, failsToTake, removes}, 1, left, 1},
    {"FailedCreateMayBeFollowedByAnOpen", 1, {failsToCreate, opens, takes}, 0, left, 1},
    {"OpenExistingDoesNotLock", 1, {opens, opens}, 1, left, 1},
    {"IsHeldIsFalseOnAnObjectThatIsNotOpen", 0, {isNotHeld}, 0, left, 0},
    {"IsHeldIsTrueWhenSomebodyElseHoldsIt", 0, {opens, isHeld}, 0, left, 0},
    {"IsHeldGivesAFreeLockBackAtOnce", 1, {opens, isNotHeld, isNotHeld}, 1, left, 1},
    {"TryLockTakesAFreeLock", 2, {opens, takes, isHeld}, 1, left, 2},
    {"TryLockTakesAFreeLockOnce", 2, {opens, takes, takes, isHeld}, 1, left, 2},
    {"TryLockFailsOnALockThatIsNotOpen", 0, {failsToTake}, 0, left, 0},
    {"TryLockFailsOnATakenLockAndTakesNoOwnership", 0, {opens, failsToTake}, 0, left, 0},
    {"TryLockWithOwnershipUnlinksAtTheEnd", 1, {opens, takesAndOwns}, 0, unlinked, 1},
    {"TryLockWhileHeldTakesNoOwnership", 1, {opens, takes, takesAndOwns}, 0, left, 1},
    {"UnlockKeepsTheOwnership", none, {creates, unlocks, isNotHeld}, 1, unlinked, 1},
    {"UnlockDisownsWhenToldTo", none, {creates, disowns, isNotHeld}, 1, left, 1},
    {"UnlockDisownsEvenWhenNothingIsHeld", none, {createsFree, disowns}, 1, left, 1},
    {"CloseGivesBackAndKeepsTheName", none, {creates, closes, isNotHeld, failsToTake, closes}, 1, left, 1},
    {"UnlockGivesNothingBackThatIsNotHeld", 1, {unlocks, opens, unlocks}, 1, left, 1},
    {"UnlockGivesBackOnce", 1, {opens, takes, unlocks, unlocks, isNotHeld}, 1, left, 1},
    {"OpensAgainAfterClose", none, {creates, closes, failsToCreate, opens, isNotHeld, takes}, 0, unlinked, 1},
    {"RemoveLeavesANameThatIsNotOwnedAndCloses", 1, {opens, takes, removes, failsToTake}, 1, left, 1},
};

INSTANTIATE_TEST_SUITE_P(GlobalLock, GlobalLockLife, testing::ValuesIn(lives), rowName);

TEST_F(GlobalLockTest, CreatesTheNameWithMode0644) {
    const mode_t before = umask(0);
    GlobalLock lock(m_name);
    EXPECT_TRUE(lock.create(true));
    (void)umask(before);
    EXPECT_EQ(modeOf("/dev/shm/sem." + m_name.substr(1)), 0644U);
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

TEST_F(GlobalLockTest, OpeningTwiceReturnsTrueWithoutTouchingTheSystem) {
    const Onlooker onlooker(m_name, 1);
    GlobalLock lock(m_name);
    ASSERT_TRUE(lock.openExisting());
    EXPECT_TRUE(lock.tryLock(false));
    ASSERT_EQ(sem_unlink(m_name.c_str()), 0);
    EXPECT_TRUE(lock.openExisting());
    EXPECT_TRUE(lock.isHeld());
}

TEST_F(GlobalLockTest, OpenExistingNeverCreates) {
    GlobalLock lock(m_name);
    EXPECT_FALSE(lock.openExisting());
    EXPECT_FALSE(nameExists(m_name));
    EXPECT_FALSE(lock.isHeld());
    EXPECT_TRUE(lock.create(false)) << "the failure leaves the object usable";
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

TEST_F(GlobalLockTest, IsHeldByTheCreatorIsTrueWithoutASystemCall) {
    GlobalLock lock(m_name);
    ASSERT_TRUE(lock.create(true));
    const Onlooker onlooker(m_name);
    onlooker.post();
    EXPECT_TRUE(lock.isHeld()) << "the semaphore's count is not looked at";
    EXPECT_EQ(onlooker.count(), 1);
}

TEST_F(GlobalLockTest, RemoveWithForceUnlinksEvenANameThatIsNotOpen) {
    const Onlooker onlooker(m_name, 0);
    GlobalLock lock(m_name);
    lock.remove(true);
    EXPECT_FALSE(nameExists(m_name));
    EXPECT_EQ(onlooker.count(), 0);
}

TEST_F(GlobalLockTest, CloseKeepsTheOwnershipAndRemoveGivesItUp) {
    GlobalLock lock(m_name);
    ASSERT_TRUE(lock.create(true));
    lock.close();
    lock.remove(false);
    EXPECT_FALSE(nameExists(m_name));
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
    expectEndOfForked(exitedWith(0), [this] {
        GlobalLock lock(m_name);
        const bool created = lock.create(true);
        _exit(created ? 0 : 1);
        return 2;
    });
    GlobalLock lock(m_name);
    EXPECT_FALSE(lock.create(true));
    ASSERT_TRUE(lock.openExisting());
    EXPECT_TRUE(lock.isHeld());
    lock.remove(true);
    EXPECT_TRUE(lock.create(true));
}

TEST_F(GlobalLockTest, ANameWhoseFileIsTooShortForASemaphoreIsNeitherHeldNorTaken) {
    const std::string file = "/dev/shm/sem." + m_name.substr(1);
    writeFile(file, "");
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
        const FailingCall<process_vm_readv> readings(error);
        EXPECT_FALSE(lock.isHeld());
        EXPECT_TRUE(lock.tryLock(false));
        EXPECT_GT(readings.calls(), 0U);
        EXPECT_EQ(other.count(), 0);
        lock.unlock(false);
    }
}

TEST_F(GlobalLockTest, LooksAtTheSemaphoresMemoryAloneAndOnlyWhileOpen) {
    int count = 0;
    const InPlaceOf<process_vm_readv> readings([&count](pid_t process, const iovec* to, unsigned long toCount,
                                                        const iovec* from, unsigned long fromCount,
                                                        unsigned long flags) {
        ++count;
        EXPECT_EQ(fromCount, 1U);
        EXPECT_EQ(from->iov_len, sizeof(sem_t));
        return process_vm_readv(process, to, toCount, from, fromCount, flags);
    });
    const Onlooker other(m_name, 1);
    GlobalLock lock(m_name);
    EXPECT_FALSE(lock.isHeld());
    EXPECT_FALSE(lock.tryLock(false));
    EXPECT_EQ(count, 0);
    ASSERT_TRUE(lock.openExisting());
    EXPECT_TRUE(lock.tryLock(false));
    EXPECT_EQ(count, 1);
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
    EXPECT_EQ(endOfForked(probe), exitedWith(1));
    daemon.unlock(false);
    EXPECT_EQ(endOfForked(probe), exitedWith(0));
    daemon.remove(true);
    EXPECT_EQ(endOfForked(probe), exitedWith(2));
}

TEST_F(GlobalLockTest, KeepsItsFieldsInTheirOrder) {
    constexpr std::size_t flags = sizeof(void*) + sizeof(std::string);
    const auto flagsOf = [](const GlobalLock& lock) {
        std::string text;
        for (std::size_t number = 0; number < 3; ++number) {
            text += fieldAt<bool>(&lock, flags + number) ? 'X' : '-';
        }
        return text;
    };
    const Onlooker other(m_name, 1);
    GlobalLock lock(m_name);
    EXPECT_EQ(fieldAt<std::string>(&lock, sizeof(void*)), m_name);
    EXPECT_EQ(flagsOf(lock), "---") << "open, owner, locked";
    ASSERT_TRUE(lock.openExisting());
    EXPECT_EQ(flagsOf(lock), "X--");
    EXPECT_NE(fieldAt<sem_t*>(&lock, flags + sizeof(void*)), SEM_FAILED);
    EXPECT_TRUE(lock.tryLock(true));
    EXPECT_EQ(flagsOf(lock), "XXX");
    lock.unlock(false);
    EXPECT_EQ(flagsOf(lock), "XX-");
    lock.close();
    EXPECT_EQ(flagsOf(lock), "-X-");
    EXPECT_EQ(fieldAt<sem_t*>(&lock, flags + sizeof(void*)), SEM_FAILED);
    EXPECT_EQ(sizeof lock, flags + 2 * sizeof(void*));
}

TEST_F(GlobalLockTest, RemoveGivesTheLockBackAndClosesItBeforeTheNameGoes) {
    ZNORB_SKIP_IF(!canTrace()) << "no process can be traced here";
    SystemCallTracer tracer;
    (void)tracer.start([this]() {
        GlobalLock lock(m_name);
        (void)lock.create(true);
        lock.remove(true);
    });
    int count = -1;
    std::string maps;
    EXPECT_TRUE(tracer.follow([this, &count, &maps](const TracedStop& stop) {
        if (stop.kind == TracedStop::Kind::Call &&
            unlinkedBy(stop.thread, stop.call).ends_with(m_name.substr(1))) {
            count = Onlooker(m_name).count();
            maps = readFile("/proc/" + std::to_string(stop.thread) + "/maps");
        }
    }));
    EXPECT_EQ(count, 1);
    EXPECT_NE(maps, "");
    EXPECT_EQ(maps.find("/dev/shm/sem."), std::string::npos);
}

} // namespace
