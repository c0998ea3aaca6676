#include "tests/support/SharedTable.h"

#include "tests/support/Descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace ZNORBTEST {

std::optional<znorb_shared_table> readSharedTable() {
    const Descriptor descriptor(shm_open(ZNORB_TABLE_NAME, O_RDONLY, 0));
    struct stat status {};
    void* memory = MAP_FAILED;
    if (fstat(descriptor.get(), &status) == 0 && status.st_size >= ZNORB_TABLE_SIZE) {
        memory = mmap(nullptr, ZNORB_TABLE_SIZE, PROT_READ, MAP_SHARED, descriptor.get(), 0);
    }
    if (memory == MAP_FAILED) {
        return std::nullopt;
    }
    znorb_shared_table copy;
    std::memcpy(&copy, memory, sizeof copy);
    (void)munmap(memory, ZNORB_TABLE_SIZE);
    return copy;
}

znorb_shared_table sharedTable() {
    const std::optional<znorb_shared_table> table = readSharedTable();
    EXPECT_TRUE(table.has_value());
    return table.value_or(znorb_shared_table{});
}

bool writeSharedTable(std::int64_t offset, const std::string& bytes) {
    const Descriptor descriptor(shm_open(ZNORB_TABLE_NAME, O_RDWR, 0));
    return pwrite(descriptor.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset)) ==
           static_cast<ssize_t>(bytes.size());
}

std::string countOf(std::uint32_t number) {
    return {reinterpret_cast<const char*>(&number), sizeof number};
}

bool resizeSharedTable(std::int64_t size) {
    const Descriptor descriptor(shm_open(ZNORB_TABLE_NAME, O_RDWR, 0));
    return ftruncate(descriptor.get(), static_cast<off_t>(size)) == 0;
}

bool enterClient(unsigned index, std::uint16_t port) {
    std::optional<znorb_shared_table> table = readSharedTable();
    if (!table.has_value()) {
        return false;
    }
    table->count = std::max(table->count, index + 1);
    table->entries[index] = {};
    table->entries[index].in_use = 1;
    table->entries[index].port = port;
    return writeSharedTable(0, std::string(reinterpret_cast<const char*>(&*table), sizeof *table));
}

std::string identifierOf(const znorb_client_entry& entry) {
    return std::string(entry.identifier, strnlen(entry.identifier, sizeof entry.identifier));
}

OwnSharedTable::OwnSharedTable() {
    const Descriptor descriptor(shm_open(ZNORB_TABLE_NAME, O_RDWR | O_CREAT | O_EXCL, 0666));
    m_isOurs = ftruncate(descriptor.get(), ZNORB_TABLE_SIZE) == 0;
    EXPECT_TRUE(m_isOurs) << ZNORB_TABLE_NAME << ": " << std::strerror(errno);
    // Without the object the test, which has failed, gets memory of its own to go on with.
    void* memory =
        mmap(nullptr, ZNORB_TABLE_SIZE, PROT_READ | PROT_WRITE,
             m_isOurs ? MAP_SHARED : MAP_SHARED | MAP_ANONYMOUS, m_isOurs ? descriptor.get() : -1, 0);
    if (memory == MAP_FAILED) {
        throw std::bad_alloc();
    }
    m_table = static_cast<znorb_shared_table*>(memory);
}

OwnSharedTable::~OwnSharedTable() {
    (void)munmap(m_table, ZNORB_TABLE_SIZE);
    if (m_isOurs) {
        (void)shm_unlink(ZNORB_TABLE_NAME);
    }
}

void OwnSharedTable::claim(unsigned index) const {
    znorb_client_entry& entry = m_table->entries[index];
    entry = {};
    __atomic_store_n(&entry.in_use, std::uint8_t{1}, __ATOMIC_RELEASE);
    if (m_table->count <= index) {
        m_table->count = index + 1;
    }
}

std::uint16_t OwnSharedTable::portOf(unsigned index) const {
    return __atomic_load_n(&m_table->entries[index].port, __ATOMIC_ACQUIRE);
}

bool OwnSharedTable::isInUse(unsigned index) const {
    return __atomic_load_n(&m_table->entries[index].in_use, __ATOMIC_ACQUIRE) != 0;
}

} // namespace ZNORBTEST
