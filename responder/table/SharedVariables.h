#pragma once

#include "responder/RuntimeNames.h"
#include "znorb/shared_table.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

namespace ZNORBRESPONDER {

inline constexpr unsigned clientCapacity = 64;
inline constexpr unsigned identifierSize = 117;

/// The shared table of client instances, as it lies in shared memory in host byte order.
///
/// The life of an entry: free (inUse 0) → claimed by the daemon (inUse 1, the other fields zero) → filled
/// in by the launched client (identifier, then port) → freed by the client (inUse 0) → claimed again,
/// lowest number first. The daemon never clears inUse.
///
/// The object is writable by everybody and guarded by no lock: the daemon accepts torn reads, and reads
/// and writes it only through ClientTable.h, which bounds whatever it finds, even an object that somebody has
/// shortened: to the daemon that table is empty and admits no claim.
struct ClientEntry {
    std::uint8_t inUse; ///< 0 = free; any other value = in use
    char identifier[identifierSize];
    std::uint8_t unused1[2];
    std::uint32_t reserved; ///< zeroed by a claim, otherwise left alone by the daemon
    std::uint16_t port;     ///< the client's HTTP port on 127.0.0.1; 0 until the client fills it in
    std::uint8_t unused2[2];
};

struct SharedVariables {
    /// All zero. Applied in place to the freshly mapped object.
    SharedVariables() = default;

    std::uint32_t count = 0; ///< entries that have ever been claimed; it only grows
    ClientEntry entries[clientCapacity] = {};
};

static_assert(std::is_standard_layout_v<SharedVariables>);

static_assert(sizeof(ClientEntry) == 128);
static_assert(offsetof(ClientEntry, inUse) == 0);
static_assert(offsetof(ClientEntry, identifier) == 1);
static_assert(offsetof(ClientEntry, unused1) == 118);
static_assert(offsetof(ClientEntry, reserved) == 120);
static_assert(offsetof(ClientEntry, port) == 124);
static_assert(offsetof(ClientEntry, unused2) == 126);

static_assert(sizeof(SharedVariables) == 8196);
static_assert(offsetof(SharedVariables, count) == 0);
static_assert(offsetof(SharedVariables, entries) == 4);

// What client authors compile against is the same record under the same name.
static_assert(std::string_view(sharedVariablesName) == ZNORB_TABLE_NAME);
static_assert(sizeof(SharedVariables) == ZNORB_TABLE_SIZE);
static_assert(sizeof(SharedVariables) == sizeof(znorb_shared_table));
static_assert(offsetof(SharedVariables, count) == offsetof(znorb_shared_table, count));
static_assert(offsetof(SharedVariables, entries) == offsetof(znorb_shared_table, entries));
static_assert(clientCapacity == ZNORB_TABLE_CAPACITY && identifierSize == ZNORB_IDENTIFIER_SIZE);
static_assert(sizeof(ClientEntry) == sizeof(znorb_client_entry));
static_assert(offsetof(ClientEntry, inUse) == offsetof(znorb_client_entry, in_use));
static_assert(offsetof(ClientEntry, identifier) == offsetof(znorb_client_entry, identifier));
static_assert(offsetof(ClientEntry, reserved) == offsetof(znorb_client_entry, reserved));
static_assert(offsetof(ClientEntry, port) == offsetof(znorb_client_entry, port));

} // namespace ZNORBRESPONDER
