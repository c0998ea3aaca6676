#include "foundation/synchronization/LockFileKey.h"

#include <sys/ipc.h>

#include <cstdlib>
#include <new>

namespace Common::Synchronization {

namespace {

std::string lockFilesDirectory() {
    const char* const directory = std::getenv("MOLTE_LOCK_FILES_DIR");
    return directory == nullptr ? "(null)" : directory; // the text that printf has for a missing string
}

} // namespace

key_t lockFileKey(const std::string& name) {
    try {
        static const std::string directory = lockFilesDirectory();
        return ftok((directory + name).c_str(), 0);
    } catch (const std::bad_alloc&) {
        return -1;
    }
}

} // namespace Common::Synchronization
