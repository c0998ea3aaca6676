#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <ostream>

namespace ZNORBTEST {

/// What may stand in a file's place.
struct Obstacle {
    const char* name;
    int (*put)(const char* path); ///< 0 when it has been put there

    friend void PrintTo(const Obstacle& obstacle, std::ostream* stream) { *stream << obstacle.name; }
};

inline constexpr Obstacle nothing = {"nothing", [](const char*) { return 0; }};
inline constexpr Obstacle aDirectory = {"a directory", [](const char* path) { return mkdir(path, 0755); }};
inline constexpr Obstacle aFifo = {"a fifo", [](const char* path) { return mkfifo(path, 0600); }};
inline constexpr Obstacle aLinkToItself = {"a link to itself",
                                           [](const char* path) { return symlink(path, path); }};
inline constexpr Obstacle aLinkToNothing = {
    "a link to nothing", [](const char* path) { return symlink("/opt/zn/absent/file", path); }};

} // namespace ZNORBTEST
