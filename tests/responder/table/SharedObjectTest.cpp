#include "responder/table/SharedObject.h"

#include "responder/table/ClientTable.h"
#include "responder/table/TruncationGuard.h"
#include "tests/support/Descriptor.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/SharedTable.h"
#include "tests/support/StandIns.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;

static_assert(!std::is_copy_constructible_v<SharedObject>);
static_assert(!std::is_copy_assignable_v<SharedObject>);

constexpr std::size_t objectSize = 8196;

bool isMapped(void* address) {
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto start = reinterpret_cast<std::uintptr_t>(address) / page * page;
    unsigned char resident[8];
    return mincore(reinterpret_cast<void*>(start), objectSize, resident) == 0 || errno != ENOMEM;
}

constexpr bool canSteerMappings = !underSanitizer;

class SharedObjectTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(exists(tableFile)) << "not in a sandbox, or left behind by a test";
        m_mask = umask(0022);
    }
    void TearDown() override {
        (void)umask(m_mask);
        (void)shm_unlink(ZNORB_TABLE_NAME);
    }

private:
    mode_t m_mask = 0;
};

TEST_F(SharedObjectTest, CreatesAnObjectOf8196ZeroBytesAndLeavesNoDescriptorOpen) {
    const int before = lowestFreeDescriptor();
    SharedObject object;
    object.create();
    ASSERT_NE(object.table(), nullptr);
    EXPECT_EQ(lowestFreeDescriptor(), before);
    EXPECT_EQ(readFile(tableFile), std::string(objectSize, '\0'));
    EXPECT_EQ(object.table()->count, 0U);
    std::memset(static_cast<void*>(object.table()), 'x', sizeof(SharedVariables));
    EXPECT_EQ(readFile(tableFile), std::string(objectSize, 'x')) << "all of it can be written";
}

TEST_F(SharedObjectTest, ObjectIsReadableAndWritableByEverybodyWhateverTheUmask) {
    for (const mode_t mask : {0U, 0022U, 0077U, 0777U}) {
        (void)umask(mask);
        SharedObject object;
        object.create();
        EXPECT_NE(object.table(), nullptr);
        EXPECT_EQ(modeOf(tableFile), 0666U) << mask;
    }
}

TEST_F(SharedObjectTest, ObjectWhoseModeCannotBeSetIsReadableByEverybodyAsFarAsTheUmaskHasIt) {
    const FailingCall<fchmod> refusal(EPERM);
    SharedObject object;
    object.create();
    EXPECT_NE(object.table(), nullptr);
    EXPECT_EQ(modeOf(tableFile), 0755U);
}

TEST_F(SharedObjectTest, TableIsSharedWithOtherMappingsInBothDirections) {
    SharedObject object;
    object.create();
    ASSERT_NE(object.table(), nullptr);
    object.table()->count = 3;
    object.table()->entries[63].port = 8080;
    const znorb_shared_table seen = sharedTable();
    EXPECT_EQ(seen.count, 3U);
    EXPECT_EQ(seen.entries[63].port, 8080);

    EXPECT_TRUE(writeSharedTable(4, "\1"));
    EXPECT_EQ(static_cast<volatile std::uint8_t&>(object.table()->entries[0].inUse), 1);
}

TEST_F(SharedObjectTest, EndOfTheOwnerUnmapsTheTableAndRemovesTheNameButAClientsMappingStays) {
    void* address = nullptr;
    void* mapped = nullptr;
    {
        SharedObject object;
        object.create();
        address = object.table();
        ASSERT_NE(address, nullptr);
        EXPECT_TRUE(isMapped(address));
        object.table()->count = 9;
        const int descriptor = shm_open(ZNORB_TABLE_NAME, O_RDWR, 0);
        mapped = mmap(nullptr, objectSize, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
        (void)close(descriptor);
        ASSERT_NE(mapped, MAP_FAILED);
    }
    EXPECT_FALSE(isMapped(address));
    EXPECT_FALSE(exists(tableFile));
    EXPECT_EQ(static_cast<const SharedVariables*>(mapped)->count, 9U);
    (void)munmap(mapped, objectSize);
}

TEST_F(SharedObjectTest, ObjectThatExistsGivesNoTableAndIsRemovedAtTheEndSoThatTheNextCreationSucceeds) {
    const std::string content = "somebody else's";
    writeFile(tableFile, content, 0600);
    {
        SharedObject refused;
        refused.create();
        EXPECT_EQ(refused.table(), nullptr);
        EXPECT_EQ(readFile(tableFile), content);
        EXPECT_EQ(modeOf(tableFile), 0600U);
    }
    EXPECT_FALSE(exists(tableFile));
    SharedObject next;
    next.create();
    ASSERT_NE(next.table(), nullptr);
    EXPECT_EQ(readFile(tableFile), std::string(objectSize, '\0'));
}

TEST_F(SharedObjectTest, SecondOwnerGetsNoTableAndTakesTheNameFromTheFirst) {
    SharedObject first;
    first.create();
    ASSERT_NE(first.table(), nullptr);
    const Descriptor object(open(tableFile, O_RDWR | O_CLOEXEC));
    {
        SharedObject second;
        second.create();
        EXPECT_EQ(second.table(), nullptr);
    }
    EXPECT_FALSE(exists(tableFile));
    first.table()->count = 1;
    EXPECT_EQ(boundedCount(*first.table()), 1U) << "its own mapping is still there";
    EXPECT_EQ(ftruncate(object.get(), 0), 0);
    EXPECT_EQ(boundedCount(*first.table()), 0U) << "and still guarded";
}

TEST_F(SharedObjectTest, OwnerThatNeverCreatesHasNoTableAndMakesNoneButRemovesTheNameAllTheSame) {
    {
        const SharedObject object;
        EXPECT_EQ(object.table(), nullptr);
        EXPECT_FALSE(exists(tableFile));
        writeFile(tableFile, "stale", 0600);
    }
    EXPECT_FALSE(exists(tableFile));
}

TEST_F(SharedObjectTest, WithoutAFreeDescriptorThereIsNoTable) {
    {
        SharedObject object;
        {
            const DescriptorLimit none(0);
            object.create();
        }
        EXPECT_EQ(object.table(), nullptr);
        writeFile(tableFile, "meanwhile", 0600);
    }
    EXPECT_FALSE(exists(tableFile)) << "the name is removed after a failure, too";
}

TEST_F(SharedObjectTest, MappingAtNullCountsAsFailed) {
    ZNORB_SKIP_IF(!canSteerMappings) << "the sanitizers map by themselves";
    {
        SharedObject object;
        unsigned mappings = 0;
        const InPlaceOf<mmap> mapping([&mappings](auto...) {
            ++mappings;
            return nullptr;
        });
        object.create();
        EXPECT_EQ(mappings, 1U);
        EXPECT_EQ(object.table(), nullptr);
    }
    EXPECT_FALSE(exists(tableFile));
}

TEST_F(SharedObjectTest, AnyOtherFailureOfTheMappingEndsTheProcess) {
    ZNORB_SKIP_IF(underSanitizer) << "a sanitizer ends such a process in its own way";
    expectEndOfForked(endedBy(SIGSEGV), []() {
        const rlimit none = {0, 0};
        (void)setrlimit(RLIMIT_CORE, &none);
        SharedObject object;
        (void)setrlimit(RLIMIT_AS, &none);
        object.create();
        return 0;
    });
}

/// Creates an object, prepared for like this, in a process of its own that ends with status 0 if its table is
/// lost, but there.
ProcessEnd endWithLostTable(const std::function<void()>& prepare) {
    return endOfForked([&prepare]() {
        SharedObject object;
        prepare();
        object.create();
        if (object.table() == nullptr || !isTruncated()) {
            return 1;
        }
        std::uint16_t index = 0;
        return boundedCount(*object.table()) == 0 && !claimEntry(*object.table(), index) ? 0 : 2;
    });
}

TEST_F(SharedObjectTest, TableIsLostWhenTheObjectCannotGetItsSize) {
    EXPECT_EQ(endWithLostTable([]() {
                  (void)std::signal(SIGXFSZ, SIG_IGN);
                  const rlimit none = {0, 0};
                  (void)setrlimit(RLIMIT_FSIZE, &none);
              }),
              exitedWith(0));
}

TEST_F(SharedObjectTest, TableIsLostWhenSomebodyShortensTheObjectBeforeItIsMade) {
    ZNORB_SKIP_IF(!canSteerMappings) << "the sanitizers map by themselves";
    const InPlaceOf<mmap> mapping(
        [](void* address, std::size_t length, int protection, int flags, int descriptor, off_t offset) {
            void* const mapped = mmap(address, length, protection, flags, descriptor, offset);
            (void)!ftruncate(descriptor, 0);
            return mapped;
        });
    EXPECT_EQ(endWithLostTable([]() {}), exitedWith(0));
}

} // namespace
