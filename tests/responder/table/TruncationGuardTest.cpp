#include "responder/table/TruncationGuard.h"

#include "responder/table/ClientTable.h"
#include "responder/table/SharedObject.h"
#include "tests/support/Descriptor.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Matchers.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/SharedTable.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstring>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;

constexpr std::size_t objectSize = sizeof(SharedVariables);
constexpr std::uint16_t untouched = 12345;

/// A mapped object full of 'x' that can be shortened.
class MappedObject {
public:
    MappedObject() : m_descriptor(memfd_create("object", MFD_CLOEXEC)) {
        resize(objectSize);
        m_memory = static_cast<char*>(
            mmap(nullptr, objectSize, PROT_READ | PROT_WRITE, MAP_SHARED, m_descriptor.get(), 0));
        EXPECT_NE(static_cast<void*>(m_memory), MAP_FAILED);
        std::memset(m_memory, 'x', objectSize);
    }
    ~MappedObject() { (void)munmap(m_memory, objectSize); }

    void resize(std::size_t size) const {
        EXPECT_EQ(ftruncate(m_descriptor.get(), static_cast<off_t>(size)), 0);
    }

    [[nodiscard]] volatile char* memory() const { return m_memory; }

private:
    const Descriptor m_descriptor;
    char* m_memory;
};

class TruncationGuardTest : public testing::Test {
protected:
    void guard() { guardAgainstTruncation(const_cast<char*>(m_object.memory()), objectSize); }
    void TearDown() override { endTruncationGuard(); }

    MappedObject m_object;
};

TEST_F(TruncationGuardTest, LeavesAWholeObjectAloneAndSeesALossAtTheNextAccessAndNotBefore) {
    guard();
    EXPECT_EQ(m_object.memory()[0], 'x');
    EXPECT_EQ(m_object.memory()[objectSize - 1], 'x');
    EXPECT_FALSE(isTruncated());
    m_object.resize(0);
    EXPECT_FALSE(isTruncated());
    EXPECT_EQ(m_object.memory()[0], 0);
    EXPECT_TRUE(isTruncated());
}

TEST_F(TruncationGuardTest, PartLostIsTheWholeLost) {
    guard();
    m_object.resize(4096);
    EXPECT_EQ(m_object.memory()[0], 'x');
    EXPECT_EQ(m_object.memory()[objectSize - 1], 0);
    EXPECT_EQ(m_object.memory()[0], 0);
    EXPECT_TRUE(isTruncated());
}

TEST_F(TruncationGuardTest, WritesAfterTheLossReachNobody) {
    guard();
    m_object.resize(0);
    m_object.memory()[5] = 'y';
    EXPECT_TRUE(isTruncated());
    m_object.resize(objectSize);
    EXPECT_EQ(m_object.memory()[5], 'y');
    EXPECT_TRUE(isTruncated()) << "although the object has grown again";
}

TEST_F(TruncationGuardTest, EndForgetsTheLossAndRestoresTheDisposition) {
    const auto previous = std::signal(SIGBUS, SIG_IGN);
    guard();
    m_object.resize(0);
    (void)m_object.memory()[0];
    EXPECT_TRUE(isTruncated());
    endTruncationGuard();
    EXPECT_FALSE(isTruncated());
    EXPECT_EQ(std::signal(SIGBUS, previous), SIG_IGN);
}

TEST_F(TruncationGuardTest, BusErrorThatWasSentEndsTheProcess) {
    expectEndOfForked(endedBy(SIGBUS), [this] {
        guard();
        (void)raise(SIGBUS);
        return 0;
    });
}

TEST_F(TruncationGuardTest, BusErrorThatWasSentWithAGuardedAddressEndsTheProcess) {
    expectEndOfForked(endedBy(SIGBUS), [this] {
        guard();
        siginfo_t fault = {};
        fault.si_code = SI_QUEUE;
        fault.si_addr = const_cast<char*>(m_object.memory());
        (void)syscall(SYS_rt_sigqueueinfo, getpid(), SIGBUS, &fault);
        return 0;
    });
}

/// Reads beyond the end of an object that is not the guarded one, at an address right below or above it.
int readOfAnotherObject(bool isBelow) {
    char* const room = static_cast<char*>(
        mmap(nullptr, 16384 + 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    const int empty = memfd_create("empty", MFD_CLOEXEC);
    char* const address = isBelow ? room : room + 16384;
    (void)mmap(address, 4096, PROT_READ, MAP_SHARED | MAP_FIXED, empty, 0);
    guardAgainstTruncation(room + 4096, 16384 - 4096);
    return static_cast<volatile char*>(address)[isBelow ? 4095 : 0];
}

TEST_F(TruncationGuardTest, BusErrorElsewhereEndsTheProcess) {
    EXPECT_EQ(endOfForked([] { return readOfAnotherObject(true); }), endedBy(SIGBUS));
    EXPECT_EQ(endOfForked([] { return readOfAnotherObject(false); }), endedBy(SIGBUS));
}

TEST_F(TruncationGuardTest, LossThatCannotBeReplacedEndsTheProcess) {
    ZNORB_SKIP_IF(underSanitizer) << "the sanitizers' own memory does not bear the limit";
    expectEndOfForked(endedBy(SIGBUS), [this] {
        guard();
        m_object.resize(0);
        constexpr rlimit none = {0, 0};
        (void)setrlimit(RLIMIT_AS, &none);
        return static_cast<int>(m_object.memory()[0]);
    });
}

/// The daemon's own table, as everybody else sees it.
class LostTableTest : public testing::Test {
protected:
    void SetUp() override {
        create();
        std::uint16_t index = untouched;
        ASSERT_TRUE(claimEntry(table(), index));
        ASSERT_TRUE(claimEntry(table(), index));
    }

    void create() {
        m_object.emplace();
        m_object->create();
        ASSERT_NE(m_object->table(), nullptr);
    }

    SharedVariables& table() { return *m_object->table(); }

    /// Whatever was in it, it is empty and stays so.
    void expectLost() {
        EXPECT_EQ(boundedCount(table()), 0U);
        for (int attempt = 0; attempt < 3; ++attempt) {
            std::uint16_t index = untouched;
            EXPECT_FALSE(claimEntry(table(), index));
            EXPECT_EQ(index, untouched);
            EXPECT_EQ(boundedCount(table()), 0U);
        }
        listEntries(table());
        EXPECT_THAT(m_log.text(), IsEmpty());
    }

    std::optional<SharedObject> m_object;
    LogRecorder m_log;
};

TEST_F(LostTableTest, IsEmptyAndRefusesEveryClaim) {
    ASSERT_TRUE(resizeSharedTable(0));
    expectLost();
}

TEST_F(LostTableTest, IsEmptyAlsoWhenWhatWasClaimedLiesInThePartThatStays) {
    ASSERT_TRUE(resizeSharedTable(8192)); // the last four bytes are missing
    expectLost();
}

TEST_F(LostTableTest, RefusesTheClaimInWhichItIsLost) {
    // The count and entries up to 30 lie in the page that stays.
    for (unsigned entry = 2; entry < 40; ++entry) {
        table().entries[entry].inUse = 1;
    }
    table().count = 40;
    ASSERT_TRUE(resizeSharedTable(4096));
    std::uint16_t index = untouched;
    EXPECT_FALSE(claimEntry(table(), index));
    EXPECT_EQ(index, untouched);
    expectLost();
}

TEST_F(LostTableTest, IsNotThatOfTheNextRun) {
    ASSERT_TRUE(resizeSharedTable(0));
    EXPECT_EQ(boundedCount(table()), 0U);
    m_object.reset();
    create();
    EXPECT_FALSE(isTruncated());
    std::uint16_t index = untouched;
    EXPECT_TRUE(claimEntry(table(), index));
    EXPECT_EQ(index, 0);
    EXPECT_EQ(boundedCount(table()), 1U);
}

} // namespace
