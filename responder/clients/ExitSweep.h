#pragma once

#include "responder/table/SharedVariables.h"

namespace ZNORBRESPONDER {

/// Asks every client in the table to exit: a "POST" of "/ExitApplication.json" to the port of each entry
/// in use, in index order, one after the other. A client that cannot be reached is passed over silently,
/// and what the others answer is ignored; the entries are not modified.
///
/// Nothing happens when `holder` holds null. Runs on the unified responder's thread and holds it up for as
/// long as a client that was reached takes to answer, up to 1800 seconds per wait.
void exitAllClients(SharedVariables* const& holder);

} // namespace ZNORBRESPONDER
