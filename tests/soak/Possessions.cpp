#include "tests/soak/Possessions.h"

#include "tests/sandbox/Processes.h"
#include "tests/soak/Soak.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Waiting.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace ZNORBSOAK {

using namespace ZNORBTEST;

namespace {

constexpr std::size_t threadsOfADaemon = 2;
constexpr unsigned long mostGrowth = 64; // KiB

/// In KiB; 0 without such a line.
unsigned long sizeIn(const std::string& text, const std::string& label) {
    const std::size_t place = text.find("\n" + label);
    return place == std::string::npos ? 0
                                      : std::strtoul(text.c_str() + place + 1 + label.size(), nullptr, 10);
}

/// What belongs to no file: pages of files, and of the executable in a file system in memory, come and go.
unsigned long writtenMemoryOf(pid_t process) {
    return sizeIn(readFile("/proc/" + std::to_string(process) + "/smaps_rollup"), "Anonymous:");
}

std::size_t socketsAmong(const std::string& folder, const std::vector<std::string>& descriptors) {
    return static_cast<std::size_t>(
        std::count_if(descriptors.begin(), descriptors.end(), [&folder](const std::string& name) {
            std::error_code isGone;
            return std::filesystem::read_symlink(folder + "/" + name, isGone).string().starts_with("socket:");
        }));
}

Possessions possessionsOf(pid_t daemon) {
    const std::string process = "/proc/" + std::to_string(daemon);
    const std::string folder = process + "/fd";
    const std::vector<std::string> descriptors = namesIn(folder);
    return {descriptors, socketsAmong(folder, descriptors), namesIn(process + "/task").size(),
            childrenOf(daemon).size(), writtenMemoryOf(daemon)};
}

} // namespace

// The requester sees the end of a connection before the daemon has closed it.
Possessions possessionsAtRest(Part& part, pid_t daemon) {
    (void)askDaemon("PRINT"); // every request before it has been served
    Possessions found;
    const bool isAtRest = waitUntil([&found, daemon]() {
        found = possessionsOf(daemon);
        return found.sockets == 1 && found.children == 0;
    });
    part.expect(isAtRest, std::to_string(found.sockets) + " sockets and " + std::to_string(found.children) +
                              " children were left");
    return found;
}

void expectNothingMore(Part& part, const Possessions& before, const Possessions& after) {
    part.expect(after.descriptors == before.descriptors, "a descriptor was left open");
    part.expect(after.threads == before.threads && after.threads == threadsOfADaemon,
                "there were other threads");
    part.expect(before.written > 0, "the memory could not be looked at");
    part.expect(after.written <= before.written + mostGrowth, "written memory grew from " +
                                                                  std::to_string(before.written) + " to " +
                                                                  std::to_string(after.written) + " KiB");
    part.note("descriptors more", after.descriptors.size() - before.descriptors.size());
    part.note("threads more", after.threads - before.threads);
    part.note("zombies", after.children);
    part.note("KiB written before", before.written);
    part.note("KiB written after", after.written);
}

} // namespace ZNORBSOAK
