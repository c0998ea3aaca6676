#pragma once

#include "tests/foundation/synchronization/SemaphoreName.h"

#include <semaphore.h>
#include <sys/stat.h>

#include <fstream>
#include <string>

namespace ZNORBTEST {

inline ino_t inodeOf(const SemaphoreName& name) {
    struct stat status = {};
    return stat(("/dev/shm/sem." + name.plain()).c_str(), &status) == 0 ? status.st_ino : 0;
}

/// Whether the process has the file mapped, by whatever name.
inline bool isMapped(ino_t inode) {
    std::ifstream file("/proc/self/maps");
    std::string line;
    while (std::getline(file, line)) {
        const std::string mappedInode = " " + std::to_string(inode) + " ";
        if (line.find(mappedInode) != std::string::npos && line.find("/dev/shm/") != std::string::npos) {
            return true;
        }
    }
    return false;
}

/// Gives up all handles that the process has on a semaphore; how many they were.
inline int closeAll(sem_t* semaphore, ino_t inode) {
    int handles = 0;
    while (handles < 10 && isMapped(inode)) {
        (void)sem_close(semaphore);
        ++handles;
    }
    return handles;
}

} // namespace ZNORBTEST
