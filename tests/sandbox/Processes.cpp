#include "tests/sandbox/Processes.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

namespace ZNORBTEST {
namespace {

std::vector<pid_t> allProcesses() {
    std::vector<pid_t> result;
    DIR* directory = opendir("/proc");
    while (directory != nullptr) {
        const dirent* entry = readdir(directory);
        if (entry == nullptr) {
            break;
        }
        const long number = std::strtol(entry->d_name, nullptr, 10);
        if (number > 0) {
            result.push_back(static_cast<pid_t>(number));
        }
    }
    if (directory != nullptr) {
        (void)closedir(directory);
    }
    return result;
}

/// What a file in the process' folder holds, as far as one read gets it.
std::string fileOf(pid_t pid, const std::string& name) {
    const std::string path = "/proc/" + std::to_string(pid) + "/" + name;
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file == -1) {
        return "";
    }
    char buffer[4096];
    const ssize_t length = read(file, buffer, sizeof buffer);
    (void)close(file);
    return {buffer, length > 0 ? static_cast<std::size_t>(length) : 0};
}

/// "/proc/<pid>/stat", one line: pid (name) state parent ... The name may hold anything, ")" included.
std::string statLine(pid_t pid) {
    return fileOf(pid, "stat");
}

/// The program that valgrind or an emulator runs in the process; empty when there is none. Their command line
/// stays as it was given: its own name and options, then the program.
std::string programRunIn(pid_t pid) {
    const std::string words = fileOf(pid, "cmdline");
    std::size_t start = words.find('\0') + 1; // 0 when there is none
    while (start != 0 && start < words.size() && words[start] == '-') {
        start = words.find('\0', start) + 1;
    }
    return start == 0 || start >= words.size() ? "" : words.c_str() + start;
}

/// The number in the field of "/proc/<pid>/stat" behind name and state, counted from 0; -1 when there is no
/// such process.
long statField(pid_t pid, unsigned field) {
    const std::string line = statLine(pid);
    const std::size_t end = line.rfind(')');
    if (end == std::string::npos || line.size() < end + 5) {
        return -1;
    }
    const char* text = line.c_str() + end + 4; // behind ") S "
    char* rest = nullptr;
    long number = std::strtol(text, &rest, 10);
    for (; field > 0; --field) {
        number = std::strtol(rest, &rest, 10);
    }
    return number;
}

pid_t parentOf(pid_t pid) {
    return static_cast<pid_t>(statField(pid, 0));
}

} // namespace

std::vector<pid_t> childrenOf(pid_t parent) {
    std::vector<pid_t> result;
    for (const pid_t pid : allProcesses()) {
        if (parentOf(pid) == parent) {
            result.push_back(pid);
        }
    }
    return result;
}

std::string linkOf(pid_t pid, const std::string& name) {
    char target[PATH_MAX];
    const std::string link = "/proc/" + std::to_string(pid) + "/" + name;
    const ssize_t length = readlink(link.c_str(), target, sizeof target);
    return {target, length > 0 ? static_cast<std::size_t>(length) : 0};
}

std::string programOf(pid_t pid) {
    const std::string program = linkOf(pid, "exe");
    const bool runsAnother =
        program.find("/valgrind/") != std::string::npos || program.find("/qemu-") != std::string::npos;
    return runsAnother ? programRunIn(pid) : program;
}

char stateOf(pid_t pid) {
    const std::string line = statLine(pid);
    const std::size_t end = line.rfind(')');
    return end == std::string::npos || line.size() < end + 3 ? ' ' : line[end + 2];
}

std::optional<std::string> statusField(pid_t pid, const std::string& field) {
    const std::string text = fileOf(pid, "status");
    const std::size_t start = text.find("\n" + field + ":\t");
    if (start == std::string::npos) {
        return std::nullopt;
    }
    const std::size_t value = start + field.size() + 3;
    return text.substr(value, text.find('\n', value) - value);
}

std::string nameOf(pid_t pid) {
    const std::string line = statLine(pid);
    const std::size_t begin = line.find('(');
    const std::size_t end = line.rfind(')');
    return begin == std::string::npos || end == std::string::npos ? ""
                                                                  : line.substr(begin + 1, end - begin - 1);
}

std::vector<pid_t> processesRunning(const std::string& program) {
    std::vector<pid_t> result;
    for (const pid_t pid : allProcesses()) {
        if (programOf(pid) == program) {
            result.push_back(pid);
        }
    }
    return result;
}

} // namespace ZNORBTEST
