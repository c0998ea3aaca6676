#pragma once

#include "tests/soak/Soak.h"

#include <string>

/// Requests and requesters by chance, good and bad ones.
namespace ZNORBSOAK {

/// A requester's manners.
enum class Manner {
    Waits,         ///< sends, waits for the reply
    HalfCloses,    ///< sends, says that nothing more comes, waits for the reply
    Vanishes,      ///< sends and goes without looking
    SaysNothing,   ///< connects and goes
    ClosesUnasked, ///< says that nothing comes, waits for the end
    SendsInPieces, ///< in two sends, of which the daemon may see one or both
    LeavesMuch     ///< sends, and more while the reply is on its way
};
inline constexpr unsigned mannerCount = 7;

/// A request of any kind but "QUIT", and what is known about its answer.
struct RandomRequest {
    std::string bytes;
    bool launches; ///< a client, if there is a free entry
};
RandomRequest randomRequest(std::mt19937& random);

/// One connection from its begin to its end. Returns the reply, or an empty text where there is none to
/// expect or none came. `isOver` tells whether the daemon closed the connection, or was not asked to.
std::string sendLikeThat(Manner manner, const std::string& request, bool& isOver);

} // namespace ZNORBSOAK
