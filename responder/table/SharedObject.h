#pragma once

#include "responder/table/SharedVariables.h"

namespace ZNORBRESPONDER {

/// Owner of the shared-memory object "/znorb.shvars" for one run of a monitor, on that monitor's thread.
///
/// The name is unlinked at the end of the owner's life whatever happened, even when `create` failed
/// because the name was taken: a stale object makes one start fail and is removed by it, so that the next
/// start succeeds.
///
/// While there is a table, it is guarded: whoever shortens the object takes the table away from the daemon,
/// but does not end it (TruncationGuard.h).
class SharedObject {
public:
    SharedObject() = default;
    SharedObject(const SharedObject&) = delete;
    SharedObject& operator=(const SharedObject&) = delete;

    /// Unmaps what was mapped and unlinks the name; both results are ignored.
    ~SharedObject();

    /// Makes the object, which must not exist yet, maps it and constructs the empty table in it. After a
    /// failure `table` is null. REQUIRES: called once.
    void create();

    /// The table, or null when there is none. Valid until the owner is destroyed.
    [[nodiscard]] SharedVariables* table() const { return m_table; }

private:
    void* m_address = nullptr;
    SharedVariables* m_table = nullptr;
};

} // namespace ZNORBRESPONDER
