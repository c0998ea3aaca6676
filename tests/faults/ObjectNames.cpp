#include "tests/faults/ObjectNames.h"

#include <sched.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include <cstring>

namespace ZNORBFAULTS {
namespace {

using namespace ZNORBTRACING;

using namespace ZNORBTEST;

/// "/dev/shm/sem.aB3xYz" and "/proc/4711/exe" are others in every life.
std::string withoutChance(std::string path) {
    const std::string processes = "/proc/";
    const std::size_t number = path.compare(0, processes.size(), processes) == 0 ? processes.size() : 0;
    const std::size_t end = path.find_first_not_of("0123456789", number);
    if (number != 0 && end != std::string::npos && path.substr(end) == "/exe") {
        path.replace(number, end - number, "PID");
    }
    const std::string unnamed = "/dev/shm/sem.";
    if (path.compare(0, unnamed.size(), unnamed) == 0 && path.size() == unnamed.size() + 6 &&
        path.find("znorb") == std::string::npos) {
        path.replace(unnamed.size(), 6, "XXXXXX");
    }
    return path;
}

std::string signalName(std::uint64_t number) {
    const char* name = number < 32 ? sigabbrev_np(static_cast<int>(number)) : nullptr;
    return name != nullptr ? std::string("SIG") + name : "real-time signal";
}

std::string familyName(std::uint64_t family) {
    return family == AF_UNIX ? "command socket" : "client's port";
}

std::string processName(std::uint64_t flags) {
    return (flags & CLONE_THREAD) != 0 ? "thread" : "process";
}

} // namespace

std::string ObjectNames::descriptor(std::uint64_t number) const {
    const auto found = m_descriptors.find(static_cast<int>(number));
    return found == m_descriptors.end() ? "nothing" : found->second;
}

std::string ObjectNames::mapping(const StoppedCall& start) const {
    const std::uint64_t flags = start.arguments[3];
    if ((flags & MAP_ANONYMOUS) == 0) {
        return descriptor(start.arguments[4]);
    }
    if ((flags & MAP_SHARED) != 0) {
        return "shared event";
    }
    return (flags & MAP_STACK) != 0 ? "thread's stack" : "heap";
}

std::string ObjectNames::nameOf(pid_t thread, const SystemCall& call, const StoppedCall& start) const {
    switch (call.object) {
    case Object::PathInFirst:
        return withoutChance(readText(thread, start.arguments[0]));
    case Object::PathInSecond: {
        const std::string path = withoutChance(readText(thread, start.arguments[1]));
        return path.empty() ? descriptor(start.arguments[0]) : path;
    }
    case Object::Link:
        return withoutChance(readText(thread, start.arguments[1]));
    case Object::Descriptor:
        return descriptor(start.arguments[0]);
    case Object::Range:
        return "from " + std::to_string(start.arguments[0]);
    case Object::Copy:
        return descriptor(start.arguments[1]);
    case Object::Highest:
        return descriptor(start.arguments[0] - 1);
    case Object::Memory: {
        const auto found = m_mappings.find(start.arguments[0]);
        return found == m_mappings.end() ? "memory" : found->second;
    }
    case Object::Mapping:
        return mapping(start);
    case Object::Break:
        return "heap";
    case Object::Signal:
        return signalName(start.arguments[0]);
    case Object::Process:
        return processName(start.arguments[0]);
    case Object::ProcessByRecord:
        return processName(readWord(thread, start.arguments[0]));
    case Object::Family:
        return familyName(start.arguments[0]);
    case Object::None:
        break;
    }
    return "";
}

void ObjectNames::learn(const SystemCall& call, const StoppedCall& start, const std::string& name,
                        long result) {
    if (result < 0) {
        return;
    }
    const std::string made = call.name;
    if (made == "openat" || made == "open" || made == "socket") {
        m_descriptors[static_cast<int>(result)] = name;
    } else if (made == "accept4" || made == "accept") {
        m_descriptors[static_cast<int>(result)] = "connection";
    } else if (made == "close") {
        m_descriptors.erase(static_cast<int>(start.arguments[0]));
    } else if (made == "mmap") {
        m_mappings[static_cast<std::uint64_t>(result)] = name;
    } else if (made == "munmap") {
        m_mappings.erase(start.arguments[0]);
    }
}

} // namespace ZNORBFAULTS
