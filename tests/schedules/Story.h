#pragma once

#include "tests/schedules/Access.h"

#include <string>
#include <vector>

namespace ZNORBSCHEDULES {

/// What there is when a story begins.
enum class Setting {
    Nobody,     ///< no daemon, and nothing of one
    Serving,    ///< a daemon, "old"
    Launched,   ///< the same, and it has launched a client, in whose stead a story acts
    Clientless, ///< the same, but the client program is missing
    Stale       ///< what a daemon leaves behind that was killed
};

/// Whoever adds one: a row of `stories` in Story.cpp, and what may come of it in Outcomes.cpp.
struct Story {
    const char* name;
    const char* description;
    Setting setting;
    /// "-d" and "-stop", "znorb-clean", a requester's "QUIT" and "GET", "SIGTERM" to the old daemon,
    /// "client".
    std::vector<std::string> actors;

    /// The objects that make no difference: nobody looks at the processes but znorb-clean, for one.
    Objects ignored() const;
    /// Its actors do the same: which of them goes first makes no difference.
    bool isSymmetric() const;
};

const std::vector<Story>& stories();

} // namespace ZNORBSCHEDULES
