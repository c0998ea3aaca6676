#include "responder/table/SharedVariables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
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
    for (unsigned i = 0; i < clientCapacity; ++i) {
        const std::size_t start = firstEntry + i * entrySize;
        EXPECT_EQ(changedOffsets([i](SharedVariables& table) { table.entries[i].inUse = 0xff; }),
                  range(start, 1));
        EXPECT_EQ(changedOffsets([i](SharedVariables& table) {
                      std::memset(table.entries[i].identifier, 'x', sizeof table.entries[i].identifier);
                  }),
                  range(start + 1, 117));
        EXPECT_EQ(changedOffsets([i](SharedVariables& table) {
                      std::memset(table.entries[i].unused1, 'x', sizeof table.entries[i].unused1);
                  }),
                  range(start + 118, 2));
        EXPECT_EQ(changedOffsets([i](SharedVariables& table) { table.entries[i].reserved = 0xffffffff; }),
                  range(start + 120, 4));
        EXPECT_EQ(changedOffsets([i](SharedVariables& table) { table.entries[i].port = 0xffff; }),
                  range(start + 124, 2));
        EXPECT_EQ(changedOffsets([i](SharedVariables& table) {
                      std::memset(table.entries[i].unused2, 'x', sizeof table.entries[i].unused2);
                  }),
                  range(start + 126, 2));
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
