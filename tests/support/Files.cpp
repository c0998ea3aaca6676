#include "tests/support/Files.h"

#include "tests/support/Descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace ZNORBTEST {
namespace {

std::string failureOn(const std::string& path) {
    return path + ": " + std::strerror(errno);
}

void makeParent(const std::string& path) {
    std::error_code error;
    (void)std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    EXPECT_FALSE(error) << path << ": " << error.message();
}

} // namespace

std::string readFile(const std::string& path) {
    std::string content;
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.isOpen()) {
        ADD_FAILURE() << failureOn(path);
        return content;
    }
    char buffer[65536];
    for (;;) {
        const ssize_t length = read(file.get(), buffer, sizeof buffer);
        if (length <= 0) {
            EXPECT_EQ(length, 0) << failureOn(path);
            break;
        }
        content.append(buffer, static_cast<std::size_t>(length));
    }
    return content;
}

std::string readFileIfAny(const std::string& path) {
    return contentOf(Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)).get());
}

std::string contentOf(int file, std::size_t from) {
    std::string content;
    char buffer[65536];
    for (;;) {
        const ssize_t length = pread(file, buffer, sizeof buffer, static_cast<off_t>(from + content.size()));
        if (length <= 0) {
            return content;
        }
        content.append(buffer, static_cast<std::size_t>(length));
    }
}

void writeFile(const std::string& path, const std::string& content, mode_t mode) {
    makeParent(path);
    const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!file.isOpen()) {
        ADD_FAILURE() << failureOn(path);
        return;
    }
    EXPECT_EQ(write(file.get(), content.data(), content.size()), static_cast<ssize_t>(content.size()))
        << failureOn(path);
    EXPECT_EQ(fchmod(file.get(), mode), 0) << failureOn(path); // whatever the umask is
}

void copyProgram(const std::string& from, const std::string& to) {
    makeParent(to);
    std::error_code error;
    (void)std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing, error);
    EXPECT_FALSE(error) << from << " to " << to << ": " << error.message();
    EXPECT_EQ(chmod(to.c_str(), 0755), 0) << failureOn(to);
}

bool exists(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

mode_t modeOf(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

std::vector<std::string> namesIn(const std::string& directory) {
    std::vector<std::string> names;
    std::error_code error;
    for (const std::filesystem::directory_entry& entry :
         std::filesystem::directory_iterator(directory, error)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace ZNORBTEST
