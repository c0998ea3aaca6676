#include "responder/table/ClientTable.h"

#include "tests/support/Allocations.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Matchers.h"
#include "tests/support/Rows.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <iterator>
#include <new>
#include <utility>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;

constexpr std::uint16_t untouched = 12345;
constexpr std::size_t identifierOffset = 1;
constexpr std::size_t reservedOffset = 120;
constexpr std::size_t portOffset = 124;
constexpr std::size_t entrySize = 128;
constexpr std::size_t firstEntry = 4;
const std::vector<std::uint32_t> hostileCounts = {65, 66, 0x100, 0x7fffffff, 0x80000000, 0xffffffff};

/// A table at the very end of readable memory: whoever reads or writes behind it, ends.
class GuardedTable {
public:
    GuardedTable() {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        m_room = (sizeof(SharedVariables) + page - 1) / page * page;
        void* const memory =
            mmap(nullptr, m_room + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        EXPECT_NE(memory, MAP_FAILED);
        m_memory = static_cast<char*>(memory);
        m_size = m_room + page;
        EXPECT_EQ(mprotect(m_memory + m_room, page, PROT_NONE), 0);
        m_table = new (m_memory + m_room - sizeof(SharedVariables)) SharedVariables;
    }
    ~GuardedTable() { (void)munmap(m_memory, m_size); }
    GuardedTable(const GuardedTable&) = delete;
    GuardedTable& operator=(const GuardedTable&) = delete;

    SharedVariables& operator*() const { return *m_table; }
    SharedVariables* operator->() const { return m_table; }

    /// The bytes of the table and of all that lies before it.
    [[nodiscard]] std::string image() const { return {m_memory, m_room}; }

    /// Where the table begins in the image.
    [[nodiscard]] std::size_t begin() const { return m_room - sizeof(SharedVariables); }

private:
    std::size_t m_room = 0;
    std::size_t m_size = 0;
    char* m_memory = nullptr;
    SharedVariables* m_table = nullptr;
};

class ClientTableTest : public testing::Test {
protected:
    /// Gives every byte of every entry a value that is not zero, inUse among them, and sets the count.
    void fillUp(std::uint32_t count) const {
        std::memset(static_cast<void*>(&*m_table), 'x', sizeof(SharedVariables));
        m_table->count = count;
        for (ClientEntry& entry : m_table->entries) {
            entry.inUse = 1;
        }
    }

    void release(const std::vector<unsigned>& entries) const {
        for (const unsigned entry : entries) {
            m_table->entries[entry].inUse = 0;
        }
    }

    /// The image as it is to be after the claim of this entry: nothing else may change.
    [[nodiscard]] std::string imageAfterClaim(unsigned entry, std::uint32_t count) const {
        std::string image = m_table.image();
        std::memcpy(&image[m_table.begin()], &count, sizeof count);
        const std::size_t start = m_table.begin() + firstEntry + entry * entrySize;
        image[start] = 1;
        image.replace(start + identifierOffset, 117, 117, '\0');
        image.replace(start + reservedOffset, 4, 4, '\0');
        image.replace(start + portOffset, 2, 2, '\0');
        return image;
    }

    /// Claims, and expects that entry and that count, and no other change.
    void expectClaim(unsigned entry, std::uint32_t count) const {
        const std::string expected = imageAfterClaim(entry, count);
        std::uint16_t index = untouched;
        EXPECT_TRUE(claimEntry(*m_table, index));
        EXPECT_EQ(index, entry);
        EXPECT_EQ(m_table->count, count);
        EXPECT_TRUE(m_table.image() == expected) << "beyond the claim of entry " << entry;
    }

    /// Claims in vain, and expects no change at all.
    void expectRefusal() const {
        const std::string expected = m_table.image();
        std::uint16_t index = untouched;
        EXPECT_FALSE(claimEntry(*m_table, index));
        EXPECT_EQ(index, untouched);
        EXPECT_TRUE(m_table.image() == expected);
    }

    void setIdentifier(unsigned entry, const std::string& identifier) const {
        ASSERT_LE(identifier.size(), identifierSize);
        std::memset(m_table->entries[entry].identifier, 0, identifierSize);
        (void)identifier.copy(m_table->entries[entry].identifier, identifierSize);
    }

    GuardedTable m_table;
};

TEST_F(ClientTableTest, CountIsTakenAsItIsUpToTheCapacityAndForTheCapacityBeyond) {
    for (std::uint32_t count = 0; count <= 64; ++count) {
        m_table->count = count;
        EXPECT_EQ(boundedCount(*m_table), count);
    }
    for (const std::uint32_t count : hostileCounts) {
        m_table->count = count;
        EXPECT_EQ(boundedCount(*m_table), 64U) << count;
        EXPECT_EQ(m_table->count, count) << "read only";
    }
}

TEST_F(ClientTableTest, EntryIsInUseForEveryMarkButZero) {
    ClientEntry& entry = m_table->entries[63];
    for (unsigned mark = 0; mark <= 255; ++mark) {
        entry.inUse = static_cast<std::uint8_t>(mark);
        EXPECT_EQ(isInUse(entry), mark != 0) << mark;
    }
}

TEST_F(ClientTableTest, PortIsReadInHostOrder) {
    ClientEntry& entry = m_table->entries[63];
    const std::vector<std::uint16_t> ports = {0, 1, 255, 256, 8080, 65535};
    for (const std::uint16_t port : ports) {
        std::memcpy(reinterpret_cast<char*>(&entry) + portOffset, &port, sizeof port);
        EXPECT_EQ(portOf(entry), port);
    }
}

TEST_F(ClientTableTest, IdentifierEndsBeforeItsZeroByte) {
    const ClientEntry& entry = m_table->entries[5];
    for (const std::string identifier : {"", "x", "client 5 of host a.example", "100 %s %n"}) {
        setIdentifier(5, identifier);
        EXPECT_EQ(identifierOf(entry), identifier);
    }
    setIdentifier(5, std::string("seen\0unseen", 11));
    EXPECT_EQ(identifierOf(entry), "seen");
    setIdentifier(5, std::string("\0unseen", 7));
    EXPECT_EQ(identifierOf(entry), "");
}

TEST_F(ClientTableTest, LongestIdentifierHas116BytesAndAZeroByteAndOneWithoutThatEndsWithItsField) {
    fillUp(64);
    for (const unsigned entry : {0U, 31U, 63U}) {
        for (const std::size_t length : {116U, 117U}) {
            setIdentifier(entry, std::string(length, 'i'));
            EXPECT_EQ(identifierOf(m_table->entries[entry]), std::string(length, 'i'));
        }
    }
}

/// The count of a table whose entries are all marked but for the free ones, and the entries of the claims
/// that follow, with the counts that they leave.
struct Claims {
    const char* name;
    std::uint32_t count;
    std::vector<unsigned> free;
    std::vector<std::pair<unsigned, std::uint32_t>> claims;

    friend void PrintTo(const Claims& row, std::ostream* stream) { *stream << row.name; }
};

class ClaimedEntry : public ClientTableTest, public testing::WithParamInterface<Claims> {};

TEST_P(ClaimedEntry, IsTheLowestFreeOneOrExtendsTheCount) {
    fillUp(GetParam().count);
    release(GetParam().free);
    for (const auto& [entry, count] : GetParam().claims) {
        expectClaim(entry, count);
    }
}

const Claims claims[] = {
    {"CountThreeWithEntryTwoFree", 3, {2}, {{2, 3}}},
    {"CountThreeWithAllInUse", 3, {}, {{3, 4}}},
    {"CountTwoWithEntryZeroFree", 2, {0}, {{0, 2}}},
    {"CountOneInUse", 1, {}, {{1, 2}}},
    {"LowestOfSeveralFreeEntriesFirst", 8, {2, 5, 7}, {{2, 8}, {5, 8}, {7, 8}, {8, 9}}},
    {"FirstEntryBeyondTheCountWhateverItsMark", 0, {}, {{0, 1}}},
    {"LastEntryBeyondTheCountWhateverItsMark", 63, {}, {{63, 64}}},
    {"FreeEntryBeyondTheCountIsNotPreferred", 2, {4}, {{2, 3}}},
};

INSTANTIATE_TEST_SUITE_P(ClientTable, ClaimedEntry, testing::ValuesIn(claims), rowName);

TEST_F(ClientTableTest, TableIsGivenOutFromTheFirstEntryToTheLastAndThenNoMore) {
    for (unsigned entry = 0; entry < 64; ++entry) {
        expectClaim(entry, entry + 1);
    }
    expectRefusal();
}

TEST_F(ClientTableTest, EveryEntryIsFoundWhenItIsTheOnlyFreeOne) {
    for (unsigned entry = 0; entry < 64; ++entry) {
        fillUp(64);
        release({entry});
        expectClaim(entry, 64);
        expectRefusal();
    }
}

TEST_F(ClientTableTest, EveryFullCountIsExtendedByOne) {
    for (std::uint32_t count = 0; count < 64; ++count) {
        fillUp(count);
        expectClaim(count, count + 1);
    }
}

TEST_F(ClientTableTest, AnyMarkButZeroCountsAsInUse) {
    const std::vector<std::uint8_t> marks = {2, 0x7f, 0x80, 0xff};
    for (const std::uint8_t mark : marks) {
        fillUp(3);
        m_table->entries[0].inUse = mark;
        m_table->entries[1].inUse = mark;
        release({2});
        expectClaim(2, 3);
    }
}

TEST_F(ClientTableTest, ClaimClearsWhatTheClientBeforeLeftAndNothingElse) {
    std::memset(static_cast<void*>(&*m_table), 0xff, sizeof(SharedVariables));
    m_table->count = 64;
    release({63});
    expectClaim(63, 64);
    const ClientEntry& entry = m_table->entries[63];
    EXPECT_EQ(entry.inUse, 1);
    EXPECT_EQ(std::string(entry.identifier, identifierSize), std::string(117, '\0'));
    EXPECT_EQ(entry.reserved, 0U);
    EXPECT_EQ(entry.port, 0);
    EXPECT_EQ(entry.unused1[0], 0xff);
    EXPECT_EQ(entry.unused2[1], 0xff);
}

TEST_F(ClientTableTest, FullTableIsRefusedUntouchedAndAFreeEntryFoundUnderAHostileCountWhichStays) {
    fillUp(64);
    expectRefusal();
    for (const std::uint32_t count : hostileCounts) {
        fillUp(count);
        expectRefusal();
        for (const unsigned entry : {0U, 1U, 63U}) {
            fillUp(count);
            release({entry});
            expectClaim(entry, count);
        }
    }
}

TEST_F(ClientTableTest, ListingThatNobodyReadsNeedsNoMemory) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be counted here";
    fillUp(64);
    const AllocationWatch memory;
    listEntries(*m_table);
    EXPECT_EQ(memory.allocations(), 0);
}

class ClientTableListTest : public ClientTableTest {
protected:
    /// What the listing logs; it may change nothing.
    std::vector<std::string> list() {
        m_log.clear();
        const std::string before = m_table.image();
        listEntries(*m_table);
        EXPECT_TRUE(m_table.image() == before);
        return m_log.lines();
    }

    LogRecorder m_log;
};

TEST_F(ClientTableListTest, FreshTableLogsNothing) {
    EXPECT_THAT(list(), IsEmpty());
    EXPECT_EQ(m_log.text(), "");
}

TEST_F(ClientTableListTest, CountedEntriesAreListedWithTheirMarksAndIdentifiers) {
    struct Entry {
        std::uint8_t inUse;
        const char* identifier;
        const char* listed;
    };
    const Entry entries[] = {
        {1, "first", "Y, ID: first"}, {0, "freed", "N, ID: freed"},
        {1, "", "Y, ID: "}, // its client has not filled it in
        {2, "", "Y, ID: "},           {0x80, "", "Y, ID: "},
        {0xff, "", "Y, ID: "},        {0, "%s%n%d%%", "N, ID: %s%n%d%%"},
        {1, "100%", "Y, ID: 100%"},
    };
    std::vector<std::string> expected;
    for (const Entry& entry : entries) {
        std::uint16_t index = untouched;
        ASSERT_TRUE(claimEntry(*m_table, index));
        setIdentifier(index, entry.identifier);
        expected.push_back("Entry:  " + std::to_string(index) + ", Valid?: " + entry.listed);
    }
    for (unsigned index = 0; index < std::size(entries); ++index) {
        m_table->entries[index].inUse = entries[index].inUse;
    }
    EXPECT_EQ(list(), expected);
}

TEST_F(ClientTableListTest, EveryCountedEntryIsListedWithItsNumberInTwoColumns) {
    m_table->count = 64;
    for (unsigned entry = 0; entry < 64; ++entry) {
        setIdentifier(entry, "client " + std::to_string(entry));
        m_table->entries[entry].inUse = entry % 2 == 0 ? 0 : 1;
    }
    const std::vector<std::string> lines = list();
    ASSERT_EQ(lines.size(), 64U);
    for (unsigned entry = 0; entry < 64; ++entry) {
        const std::string number = (entry < 10 ? " " : "") + std::to_string(entry);
        EXPECT_EQ(lines[entry], "Entry: " + number + ", Valid?: " + (entry % 2 == 0 ? "N" : "Y") +
                                    ", ID: client " + std::to_string(entry));
    }
}

TEST_F(ClientTableListTest, EntriesBeyondTheCountAreNotListedAndNoneBeyondTheTable) {
    fillUp(1);
    EXPECT_EQ(list().size(), 1U);
    for (const std::uint32_t count : hostileCounts) {
        fillUp(count);
        EXPECT_EQ(list().size(), 64U) << count;
    }
}

TEST_F(ClientTableListTest, IdentifierWithoutAZeroByteIsListedUpToTheEndOfItsField) {
    fillUp(64);
    const std::vector<std::string> lines = list();
    ASSERT_EQ(lines.size(), 64U);
    EXPECT_EQ(lines[0], "Entry:  0, Valid?: Y, ID: " + std::string(117, 'x'));
    EXPECT_EQ(lines[63], "Entry: 63, Valid?: Y, ID: " + std::string(117, 'x'));
}

} // namespace
