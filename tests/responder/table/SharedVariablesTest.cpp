#include "responder/table/SharedVariables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <vector>

namespace {

using namespace ZNORBRESPONDER;

constexpr std::size_t objectSize = 8196;
constexpr std::size_t entrySize = 128;
constexpr std::size_t firstEntry = 4;

using Bytes = std::array<unsigned char, objectSize>;

Bytes bytesOf(const SharedVariables& table) {
    Bytes bytes;
    std::memcpy(bytes.data(), &table, bytes.size());
    return bytes;
}

/// The bytes of a table that was empty but for one change: where it became visible.
template <typename Change>
std::vector<std::size_t> changedOffsets(const Change& change) {
    SharedVariables table;
    change(table);
    const Bytes bytes = bytesOf(table);
    std::vector<std::size_t> offsets;
    for (std::size_t offset = 0; offset < bytes.size(); ++offset) {
        if (bytes[offset] != 0) {
            offsets.push_back(offset);
        }
    }
    return offsets;
}

std::vector<std::size_t> range(std::size_t first, std::size_t count) {
    std::vector<std::size_t> offsets;
    for (std::size_t i = 0; i < count; ++i) {
        offsets.push_back(first + i);
    }
    return offsets;
}

TEST(SharedVariables, HasTheSizeOfTheSharedObject) {
    EXPECT_EQ(sizeof(SharedVariables), objectSize);
    EXPECT_EQ(sizeof(ClientEntry), entrySize);
    EXPECT_EQ(clientCapacity, 64U);
    EXPECT_EQ(identifierSize, 117U);
}

TEST(SharedVariables, ConstructionInPlaceZeroesEveryByte) {
    alignas(SharedVariables) Bytes memory;
    memory.fill(0xaa);
    const auto* table = new (memory.data()) SharedVariables;
    EXPECT_EQ(table->count, 0U);
    EXPECT_EQ(static_cast<const void*>(table), static_cast<const void*>(memory.data()));
    EXPECT_TRUE(std::all_of(memory.begin(), memory.end(), [](unsigned char byte) { return byte == 0; }));
}

TEST(SharedVariables, ConstructionTouchesNothingBehindTheObject) {
    struct {
        alignas(SharedVariables) Bytes object;
        std::array<unsigned char, 64> behind;
    } memory;
    memory.behind.fill(0xaa);
    (void)new (memory.object.data()) SharedVariables;
    for (const unsigned char byte : memory.behind) {
        EXPECT_EQ(byte, 0xaa);
    }
}

TEST(SharedVariables, CountIsTheFirstFourBytesInHostOrder) {
    SharedVariables table;
    table.count = 0x01020304;
    std::uint32_t count = 0;
    std::memcpy(&count, bytesOf(table).data(), sizeof count);
    EXPECT_EQ(count, 0x01020304U);
    EXPECT_EQ(changedOffsets([](SharedVariables& changed) { changed.count = 0xffffffff; }), range(0, 4));
}

TEST(SharedVariables, EntryFieldsLieAtTheirOffsetsInEveryEntry) {
    /// A field filled with ones, its offset in the entry, and its size.
    struct Field {
        const char* name;
        void (*fill)(ClientEntry&);
        std::size_t offset;
        std::size_t size;
    };
    const Field fields[] = {
        {"in use", [](ClientEntry& it) { it.inUse = 0xff; }, 0, 1},
        {"identifier", [](ClientEntry& it) { std::memset(it.identifier, 'x', sizeof it.identifier); }, 1,
         117},
        {"unused", [](ClientEntry& it) { std::memset(it.unused1, 'x', sizeof it.unused1); }, 118, 2},
        {"reserved", [](ClientEntry& it) { it.reserved = 0xffffffff; }, 120, 4},
        {"port", [](ClientEntry& it) { it.port = 0xffff; }, 124, 2},
        {"unused at the end", [](ClientEntry& it) { std::memset(it.unused2, 'x', sizeof it.unused2); }, 126,
         2},
    };
    for (unsigned i = 0; i < clientCapacity; ++i) {
        for (const Field& field : fields) {
            EXPECT_EQ(changedOffsets([&](SharedVariables& table) { field.fill(table.entries[i]); }),
                      range(firstEntry + i * entrySize + field.offset, field.size))
                << field.name << " of entry " << i;
        }
    }
}

TEST(SharedVariables, PortIsInHostOrder) {
    SharedVariables table;
    table.entries[63].port = 0x1234;
    std::uint16_t port = 0;
    std::memcpy(&port, bytesOf(table).data() + firstEntry + 63 * entrySize + 124, sizeof port);
    EXPECT_EQ(port, 0x1234);
}

// What a client writes through the header for client authors is what the daemon reads.
TEST(SharedVariables, IsTheRecordOfTheHeaderForClientAuthors) {
    znorb_shared_table written;
    std::memset(&written, 0, sizeof written);
    written.count = 2;
    written.entries[1].in_use = 7;
    std::strcpy(written.entries[1].identifier, "client one");
    written.entries[1].reserved = 0xdeadbeef;
    written.entries[1].port = 8080;

    SharedVariables read;
    static_assert(sizeof read == sizeof written);
    std::memcpy(static_cast<void*>(&read), &written, sizeof written);
    EXPECT_EQ(read.count, 2U);
    EXPECT_EQ(read.entries[0].inUse, 0);
    EXPECT_EQ(read.entries[1].inUse, 7);
    EXPECT_STREQ(read.entries[1].identifier, "client one");
    EXPECT_EQ(read.entries[1].reserved, 0xdeadbeef);
    EXPECT_EQ(read.entries[1].port, 8080);
}

TEST(SharedVariables, HeaderForClientAuthorsHasTheNameAndTheSizes) {
    EXPECT_STREQ(ZNORB_TABLE_NAME, "/znorb.shvars");
    EXPECT_EQ(ZNORB_TABLE_SIZE, 8196);
    EXPECT_EQ(ZNORB_TABLE_CAPACITY, 64);
    EXPECT_EQ(ZNORB_IDENTIFIER_SIZE, 117);
}

} // namespace
