#include "responder/paths/PathHelpers.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

namespace ZNORBRESPONDER {

namespace {

constexpr const char* separators = "/\\";

std::string::size_type lastSlashElseBackslash(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash != std::string::npos ? slash : path.rfind('\\');
}

std::string::size_type lastBackslashElseSlash(const std::string& path) {
    const auto backslash = path.rfind('\\');
    return backslash != std::string::npos ? backslash : path.rfind('/');
}

} // namespace

bool isRegularFile(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool isDirectory(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isReadableFile(const std::string& path) {
    if (!isRegularFile(path)) {
        return false;
    }
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        return false;
    }
    (void)std::fclose(file);
    return true;
}

bool createDirectory(const std::string& path) {
    return mkdir(path.c_str(), 0755) == 0 || errno == EEXIST;
}

std::string getFileName(const std::string& path) {
    const auto separator = lastSlashElseBackslash(path);
    return separator == std::string::npos ? std::string() : path.substr(separator + 1);
}

std::string getExtension(const std::string& path) {
    const auto dot = path.rfind('.');
    return dot == std::string::npos ? std::string() : path.substr(dot);
}

std::string getBaseName(const std::string& path) {
    const std::string extension = getExtension(path);
    const std::string name = getFileName(path);
    // An extension longer than the name comes from a dot in a directory's name: it is none of the file's.
    return extension.size() > name.size() ? name : name.substr(0, name.size() - extension.size());
}

std::string getDirectoryPart(const std::string& path) {
    return path.substr(0, lastSlashElseBackslash(path) + 1); // without one: npos + 1, which is 0
}

std::string removeLastComponent(const std::string& path) {
    return path.substr(0, lastBackslashElseSlash(path));
}

std::string removeTrailingSeparators(const std::string& path) {
    return path.substr(0, path.find_last_not_of(separators) + 1);
}

void replaceFirst(std::string& text, const std::string& find, const std::string& replacement) {
    const auto position = text.find(find);
    if (position != std::string::npos) {
        text.replace(position, find.size(), replacement);
    }
}

std::string escapeBackslashes(const std::string& text) {
    std::string escaped;
    for (const char character : text) {
        if (character == '\\') {
            escaped += '\\';
        }
        escaped += character;
    }
    return escaped;
}

} // namespace ZNORBRESPONDER
