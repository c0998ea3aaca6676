#include "packaging/tools/ProcFiles.h"

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace ZNORBTOOLS {
namespace {

/// For a process that may not be looked into: false when it has another name, or has ended and runs nothing.
bool mayRun(const std::string& folder, const std::string& name) {
    if (linkTarget(folder + "exe").empty() && errno == ENOENT) {
        return false;
    }
    std::FILE* file = std::fopen((folder + "comm").c_str(), "re");
    if (file == nullptr) {
        return true;
    }
    char line[64] = {};
    const bool isKnown = std::fgets(line, sizeof line, file) != nullptr;
    (void)std::fclose(file);
    return !isKnown || name + "\n" == line;
}

} // namespace

Doubt::Doubt(const std::string& executable)
    : m_name(nameOf(executable).substr(0, 15)) {} // the kernel cuts it there

void Doubt::add(const std::string& text) {
    if (m_text.empty()) {
        m_text = text;
    }
}

void Doubt::note(const std::string& path, int error) {
    const std::string processes = "/proc/";
    const std::size_t number = processes.size();
    if (path.starts_with(processes) && path.find_first_of("0123456789") == number) {
        const std::string folder = path.substr(0, path.find('/', number) + 1);
        const bool hasGone = error == ENOENT || error == ESRCH;
        const bool isForbidden = error == EACCES || error == EPERM;
        if (hasGone || (isForbidden && !mayRun(folder, m_name))) {
            return;
        }
    }
    add("cannot read " + path + ": " + std::strerror(error));
}

std::string inProc(pid_t process, const std::string& name) {
    return "/proc/" + std::to_string(process) + "/" + name;
}

std::string nameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

std::string linkTarget(const std::string& link) {
    char target[PATH_MAX];
    const ssize_t length = readlink(link.c_str(), target, sizeof target);
    return length > 0 ? std::string(target, static_cast<std::size_t>(length)) : std::string();
}

std::string linkTarget(const std::string& link, Doubt& doubt) {
    std::string target = linkTarget(link);
    if (target.empty() && errno != ENAMETOOLONG) {
        doubt.note(link, errno);
    }
    return target;
}

void forEachName(const std::string& path, Doubt& doubt, const std::function<bool(const char*)>& function) {
    DIR* directory = opendir(path.c_str());
    if (directory == nullptr) {
        doubt.note(path, errno);
        return;
    }
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(directory);
        if (entry == nullptr && errno != 0) {
            doubt.note(path, errno);
        }
        if (entry == nullptr || !function(entry->d_name)) {
            break;
        }
    }
    (void)closedir(directory);
}

void forEachLine(const std::string& path, Doubt& doubt, const std::function<bool(const char*)>& function) {
    std::FILE* file = std::fopen(path.c_str(), "re");
    if (file == nullptr) {
        doubt.note(path, errno);
        return;
    }
    char* line = nullptr;
    std::size_t capacity = 0;
    for (;;) {
        const ssize_t length = getline(&line, &capacity, file);
        if (length <= 0 && std::feof(file) == 0) {
            doubt.note(path, errno);
        }
        if (length > 0 && line[length - 1] == '\n') {
            line[length - 1] = '\0';
        }
        if (length <= 0 || !function(line)) {
            break;
        }
    }
    std::free(line); // getline() allocates it
    (void)std::fclose(file);
}

std::vector<std::string> splitLine(const std::string& line, std::size_t fields) {
    std::vector<std::string> result;
    std::size_t position = line.find_first_not_of(' ');
    while (position != std::string::npos && result.size() < fields) {
        const std::size_t end = line.find(' ', position);
        result.push_back(line.substr(position, end - position));
        position = line.find_first_not_of(' ', end);
    }
    if (position != std::string::npos) {
        result.push_back(line.substr(position));
    }
    return result;
}

} // namespace ZNORBTOOLS
