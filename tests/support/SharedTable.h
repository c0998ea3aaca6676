#pragma once

#include "tests/support/Names.h"
#include "znorb/shared_table.h"

#include <cstdint>
#include <optional>
#include <string>

namespace ZNORBTEST {

/// A copy of the shared table as it is now, taken through a read-only mapping; nullopt when there is no
/// such object, or one too small.
std::optional<znorb_shared_table> readSharedTable();

/// The same where there must be one: none is a failure of the test, and reads as zeros.
znorb_shared_table sharedTable();

/// Writes into the shared table as any process of the machine may; false when there is none to write to.
/// Behind the object's end it makes it longer.
bool writeSharedTable(std::int64_t offset, const std::string& bytes);

/// A count as it lies at the table's beginning, in this machine's byte order.
std::string countOf(std::uint32_t number);

/// Gives the shared table another size, as any process of the machine may; false when there is none.
bool resizeSharedTable(std::int64_t size);

/// Makes the daemon believe that entry `index` belongs to a client with this port, and counts it.
bool enterClient(unsigned index, std::uint16_t port);

/// The entry's identifier, up to its zero byte or the end of the field.
std::string identifierOf(const znorb_client_entry& entry);

/// A shared table that a test makes and fills, for programs that expect the daemon's. It is made anew, all
/// zero; an object of this name that exists already is a failure. Removed at the end.
class OwnSharedTable {
public:
    OwnSharedTable();
    ~OwnSharedTable();
    OwnSharedTable(const OwnSharedTable&) = delete;
    OwnSharedTable& operator=(const OwnSharedTable&) = delete;

    /// What it shares with other processes.
    znorb_shared_table& operator*() const { return *m_table; }
    znorb_shared_table* operator->() const { return m_table; }

    /// As the daemon does: all zero, and in use.
    void claim(unsigned index) const;

    /// Of an entry that another process may be writing; with the port its identifier is there, too.
    std::uint16_t portOf(unsigned index) const;
    bool isInUse(unsigned index) const;

private:
    bool m_isOurs = false; ///< the object's name
    znorb_shared_table* m_table;
};

} // namespace ZNORBTEST
