#pragma once

#include "common/threads/Threadable.h"

namespace ZNORBRESPONDER {

/// Serves the web console from a thread of its own: one pass that makes the shared table if nobody has,
/// publishes into the console, and ends. The daemon holds one instance, `gResponderMonitor`, and starts no
/// thread on it, because the unified responder does the same work.
class WBXResponderMonitor : public ORBCOMMON::Threadable {
public:
    WBXResponderMonitor() = default;

    /// The single pass. Unlinks the shared table's name at its end even when another monitor made it:
    /// kept so, although openers that come later then no longer find that table.
    void run() override;
};

} // namespace ZNORBRESPONDER
