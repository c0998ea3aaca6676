#include "common/processes/GlobalLock.h"
#include "foundation/synchronization/LockFileKey.h"
#include "foundation/synchronization/NamedSemaphore.h"
#include "fuzz/support/Fuzzer.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/Require.h"

#include <semaphore.h>
#include <sys/ipc.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <string>
#include <vector>

using namespace ZNORBFUZZ;

namespace {

constexpr std::size_t longestName = 251; // a file's name less "sem."

/// What the C library was asked for. Nothing of it reaches the system.
std::vector<std::string> s_opened;
std::vector<std::string> s_unlinked;
std::vector<std::string> s_keyed;
std::vector<std::string> s_removedFiles;
bool s_isWatching = false;
sem_t s_semaphore;

/// Watches while it lives.
class Watch {
public:
    Watch() {
        s_opened.clear();
        s_unlinked.clear();
        s_keyed.clear();
        s_removedFiles.clear();
        s_isWatching = true;
    }
    ~Watch() { s_isWatching = false; }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
};

/// A signal handler removes the file of the name, and only of one that the C library would have taken.
void checkAbandon(const std::string& name) {
    std::string bare = name;
    while (!bare.empty() && bare.front() == '/') {
        bare.erase(0, 1);
    }
    const bool isName = !bare.empty() && bare.size() <= longestName && bare.find('/') == std::string::npos;
    const Watch watch;
    const ORBCOMMON::GlobalLock lock(name);
    lock.abandon();
    requireEqual(s_removedFiles,
                 isName ? std::vector<std::string>{"/dev/shm/sem." + bare} : std::vector<std::string>(),
                 "the files that abandon removes");
}

void checkLock(const std::string& name) {
    const Watch watch;
    {
        ORBCOMMON::GlobalLock lock(name);
        require(lock.create(true) && lock.isHeld(), "a lock that was created is held");
    }
    requireEqual(s_opened, std::vector<std::string>{name}, "the names that a lock opens");
    requireEqual(s_unlinked, std::vector<std::string>{name}, "the names that a lock removes");
}

void checkSemaphore(const std::string& name) {
    const Watch watch;
    const std::string absolute = !name.empty() && name.front() == '/' ? name : '/' + name;
    require(Common::Synchronization::postSemaphore(name), "a semaphore is posted");
    for (const std::string& opened : s_opened) {
        // A name that is cut is still longer than any that the system takes.
        requireEqual(opened, absolute.substr(0, 256), "a semaphore's name");
    }
    require(!s_opened.empty(), "a semaphore is opened");
    require(Common::Synchronization::removeSemaphore(name), "removing counts as success");
    requireEqual(s_unlinked, std::vector<std::string>{name}, "the name that is removed, as it was given");
}

void checkKey(const std::string& name) {
    const Watch watch;
    requireEqual(Common::Synchronization::lockFileKey(name), 4711, "the key");
    requireEqual(s_keyed, std::vector<std::string>{"/locks/" + name}, "the path of a lock file");
}

} // namespace

int LLVMFuzzerInitialize(int* /*argumentCount*/, char*** /*arguments*/) {
    return setenv("MOLTE_LOCK_FILES_DIR", "/locks/", 1);
}

// The names of locks, semaphores and lock files. The input: a name.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::string all = input.rest();
    const std::string name = all.substr(0, all.find('\0'));
    checkAbandon(name);
    checkLock(name);
    checkSemaphore(name);
    checkKey(name);
    return 0;
}

extern "C" sem_t* sem_open(const char* name, int /*oflag*/, ...) noexcept {
    s_opened.emplace_back(name);
    return &s_semaphore;
}

extern "C" int sem_close(sem_t* /*sem*/) noexcept {
    return 0;
}

extern "C" int sem_post(sem_t* sem) noexcept {
    require(sem == &s_semaphore, "a post of an open semaphore");
    return 0;
}

extern "C" int sem_unlink(const char* name) noexcept {
    s_unlinked.emplace_back(name);
    return 0;
}

extern "C" key_t ftok(const char* pathname, int proj_id) noexcept {
    require(proj_id == 0, "project number 0");
    s_keyed.emplace_back(pathname);
    return 4711;
}

extern "C" int unlink(const char* name) noexcept {
    if (s_isWatching) {
        s_removedFiles.emplace_back(name);
        return 0;
    }
    return static_cast<int>(syscall(SYS_unlink, name));
}
