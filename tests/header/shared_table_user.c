/* What a client's author may write around the header: compiled as C and as C++, of old and new standards,
 * by the tests. Nothing runs it. */
#include "znorb/shared_table.h"
#include "znorb/shared_table.h" /* a second time does no harm: NOLINT(readability-duplicate-include) */

const char* tableName(void);
unsigned portOf(const struct znorb_shared_table* table, unsigned index);

const char* tableName(void) {
    return ZNORB_TABLE_NAME;
}

unsigned portOf(const struct znorb_shared_table* table, unsigned index) {
    const struct znorb_client_entry* entry = &table->entries[index];
    char identifier[ZNORB_IDENTIFIER_SIZE];
    static_assert(sizeof identifier == sizeof entry->identifier, "a whole identifier fits");
    if (index >= ZNORB_TABLE_CAPACITY || index >= table->count || entry->in_use == 0) {
        return 0;
    }
    return entry->reserved == 0 ? entry->port : 0;
}
