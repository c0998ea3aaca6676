#include "responder/table/ClientTable.h"

#include "common/log/Logger.h"
#include "responder/table/TruncationGuard.h"

#include <algorithm>
#include <cstring>

namespace ZNORBRESPONDER {

namespace {

/// Reads a field once: another process may change it at any moment, and what was checked must be what is
/// used.
template <typename Field>
Field readOnce(const Field& field) {
    return *static_cast<const volatile Field*>(&field);
}

/// The lowest free entry among the first `count`, or `count` when all are in use.
unsigned lowestFree(const SharedVariables& table, unsigned count) {
    unsigned index = 0;
    while (index < count && isInUse(table.entries[index])) {
        ++index;
    }
    return index;
}

} // namespace

unsigned boundedCount(const SharedVariables& table) {
    // Whoever shortens the object takes its last page first: so its last byte is looked at.
    (void)readOnce(table.entries[clientCapacity - 1].unused2[1]);
    const std::uint32_t count = readOnce(table.count);
    return isTruncated() ? 0 : std::min<std::uint32_t>(count, clientCapacity);
}

bool isInUse(const ClientEntry& entry) {
    return readOnce(entry.inUse) != 0;
}

std::uint16_t portOf(const ClientEntry& entry) {
    return readOnce(entry.port);
}

std::string identifierOf(const ClientEntry& entry) {
    char text[identifierSize];
    std::memcpy(text, entry.identifier, sizeof text);
    return {text, strnlen(text, sizeof text)};
}

bool claimEntry(SharedVariables& table, std::uint16_t& index) {
    const unsigned count = boundedCount(table);
    const unsigned chosen = lowestFree(table, count);
    if (chosen == clientCapacity) {
        return false;
    }
    if (chosen == count) {
        table.count = count + 1;
    }
    ClientEntry& entry = table.entries[chosen];
    entry.inUse = 1;
    entry.port = 0;
    entry.reserved = 0;
    std::memset(entry.identifier, 0, sizeof entry.identifier);
    if (isTruncated()) {
        return false;
    }
    index = static_cast<std::uint16_t>(chosen);
    return true;
}

void listEntries(const SharedVariables& table) {
    if (ORBCOMMON::Logger::isSilent()) {
        return;
    }
    const unsigned count = boundedCount(table);
    for (unsigned index = 0; index < count; ++index) {
        const ClientEntry& entry = table.entries[index];
        ORBCOMMON::Logger::log("Entry: %2d, Valid?: %s, ID: %s", static_cast<int>(index),
                               isInUse(entry) ? "Y" : "N", identifierOf(entry).c_str());
    }
}

} // namespace ZNORBRESPONDER
