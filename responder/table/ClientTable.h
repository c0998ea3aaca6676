#pragma once

#include "responder/table/SharedVariables.h"

#include <cstdint>
#include <string>

/// What the daemon does with the shared table. Every operation runs on the unified responder's thread,
/// without a lock, while clients write their own entries; whatever they wrote, nothing beyond the record
/// is read or written.
namespace ZNORBRESPONDER {

/// The number of entries to look at: the table's count as it stands now, at most the capacity; 0 when the
/// table has been lost (TruncationGuard.h).
unsigned boundedCount(const SharedVariables& table);

bool isInUse(const ClientEntry& entry);

/// The client's port in host byte order, 0 while the client has not filled it in.
std::uint16_t portOf(const ClientEntry& entry);

/// The identifier up to its zero byte, at most the field's 117 bytes.
std::string identifierOf(const ClientEntry& entry);

/// Claims the lowest free entry, extending the count when all counted entries are in use: the entry
/// becomes in use with its other fields zero, and `index` its number. False, with `index` untouched, when the
/// table is full, which is then untouched too, or has been lost.
bool claimEntry(SharedVariables& table, std::uint16_t& index);

/// Logs one line per counted entry: its number, whether it is in use, and its identifier.
void listEntries(const SharedVariables& table);

} // namespace ZNORBRESPONDER
