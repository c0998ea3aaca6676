/*
 * The table of client instances, as the responder and its clients share it.
 *
 * For authors of clients, in C11 or C++11 and later. The responder makes one POSIX shared-memory object
 * at every start, ZNORB_TABLE_NAME, readable and writable by everybody, and removes its name when it
 * stops. Each client that it launches is told the number of its own entry ("-index N") and touches that
 * entry only. Everything is in host byte order: both sides run on the same machine. Nothing is locked:
 * each field has one writer at a time, as follows.
 *
 * The life of an entry
 *   1. The responder claims the lowest free entry: in_use becomes 1, then port, reserved and identifier
 *      become 0. Then it launches the client.
 *   2. The client listens on a TCP port of 127.0.0.1, writes its identifier, and only then its port (a
 *      release store), so that whoever sees the port sees the whole identifier. A port of 0 says "not
 *      filled in yet": the client cannot be reached before that, not even to be asked to exit.
 *   3. When the responder is told to quit it asks every entry in use to exit: it connects to the port and
 *      sends "POST /ExitApplication.json HTTP/1.0". It changes nothing in the entry.
 *   4. The client, whatever it ends for, stores 0 into in_use as its very last access to the table. The
 *      responder never does this for it: the entry of a client that forgets, or that was killed, stays
 *      taken until the responder is started again. From that store on the entry may be somebody else's.
 *
 * A client's mapping outlives the name. After a responder has been stopped and started anew there is a
 * new object under the old name; an old client that still maps the old object disturbs nobody.
 *
 * The responder trusts nothing that it reads here: it bounds the count by ZNORB_TABLE_CAPACITY, an
 * identifier by its size whether or not it has an end, and refuses to launch when all entries are taken.
 * A client should be as careful: any process of the machine can write into this object.
 */
#pragma once

/* NOLINTBEGIN(modernize-deprecated-headers): this header is C as well */
#include <assert.h>
#include <stddef.h>
#include <stdint.h>
/* NOLINTEND(modernize-deprecated-headers) */

/* The name for shm_open(). Open it for reading and writing, never create it. */
#define ZNORB_TABLE_NAME "/znorb.shvars"

enum {
    /* The object's size in bytes. Check it with fstat() before the first access: to read a mapping
     * beyond the end of its object ends a process without a handler of SIGBUS. */
    ZNORB_TABLE_SIZE = 8196,
    /* The number of entries; they are numbered from 0. */
    ZNORB_TABLE_CAPACITY = 64,
    /* The bytes of an identifier, its terminating zero byte included. */
    ZNORB_IDENTIFIER_SIZE = 117
};

/* One launched client, 128 bytes. */
struct znorb_client_entry {
    /* 0: free; anything else: taken. Set by the responder, set to 0 by the client at its end. */
    uint8_t in_use;
    /* Who the client is, for people to read: text ended by a zero byte, written by the client. The
     * responder lists it on request. All zero when the entry is claimed. */
    char identifier[ZNORB_IDENTIFIER_SIZE];
    /* Nobody's. */
    uint8_t unused_118[2];
    /* Zero when the entry is claimed; leave it alone. */
    uint32_t reserved;
    /* The port on 127.0.0.1 at which the client answers HTTP, written by the client after the
     * identifier; 0 until then. */
    uint16_t port;
    /* Nobody's. */
    uint8_t unused_126[2];
};

/* The whole object, 8196 bytes. */
struct znorb_shared_table {
    /* How many entries were ever claimed: entries 0 to count - 1 mean something. Only the responder
     * writes it, and it only grows. */
    uint32_t count;
    struct znorb_client_entry entries[ZNORB_TABLE_CAPACITY];
};

static_assert(sizeof(struct znorb_client_entry) == 128, "an entry is 128 bytes");
static_assert(offsetof(struct znorb_client_entry, in_use) == 0, "in_use is at 0");
static_assert(offsetof(struct znorb_client_entry, identifier) == 1, "identifier is at 1");
static_assert(offsetof(struct znorb_client_entry, unused_118) == 118, "118 and 119 are unused");
static_assert(offsetof(struct znorb_client_entry, reserved) == 120, "reserved is at 120");
static_assert(offsetof(struct znorb_client_entry, port) == 124, "port is at 124");
static_assert(offsetof(struct znorb_client_entry, unused_126) == 126, "126 and 127 are unused");
static_assert(offsetof(struct znorb_shared_table, count) == 0, "count is at 0");
static_assert(offsetof(struct znorb_shared_table, entries) == 4, "the entries begin at 4");
static_assert(sizeof(struct znorb_shared_table) == ZNORB_TABLE_SIZE, "the table is 8196 bytes");
