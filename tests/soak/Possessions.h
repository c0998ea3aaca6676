#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

/// What a daemon has of the system, and that serving leaves it with no more.
namespace ZNORBSOAK {

class Part;

struct Possessions {
    std::vector<std::string> descriptors;
    std::size_t sockets = 0; ///< the one that listens, and those of the connections that are not closed yet
    std::size_t threads = 0;
    std::size_t children = 0;  ///< running or zombies
    unsigned long written = 0; ///< KiB of pages that were written, counted page by page
};

/// What the daemon has when everything asked of it is over. Asks it once itself, and waits.
Possessions possessionsAtRest(Part& part, pid_t daemon);

/// Notes what it has, and expects no descriptor and no thread more, and hardly more memory.
void expectNothingMore(Part& part, const Possessions& before, const Possessions& after);

} // namespace ZNORBSOAK
