#include "responder/table/SharedObject.h"

#include "responder/RuntimeNames.h"
#include "responder/table/TruncationGuard.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <new>

namespace ZNORBRESPONDER {

SharedObject::~SharedObject() {
    if (m_table != nullptr) {
        endTruncationGuard();
    }
    if (m_address != nullptr) {
        (void)munmap(m_address, sizeof(SharedVariables));
    }
    (void)shm_unlink(sharedVariablesName);
}

void SharedObject::create() {
    const int descriptor = shm_open(sharedVariablesName, O_RDWR | O_CREAT | O_EXCL, 0777);
    if (descriptor == -1) {
        return;
    }
    // Neither result is checked, on purpose. Without the mode only root's clients get at the table; without
    // the size, or memory for it, the table is lost as if it had been shortened.
    (void)fchmod(descriptor, 0666);
    [[maybe_unused]] const int sized = ftruncate(descriptor, sizeof(SharedVariables));
    m_address = mmap(nullptr, sizeof(SharedVariables), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    (void)close(descriptor);
    // Only null counts as a failed mapping, on purpose: any other failure ends the process below.
    if (m_address != nullptr) {
        guardAgainstTruncation(m_address, sizeof(SharedVariables)); // others may shorten it already
        m_table = new (m_address) SharedVariables;
    }
}

} // namespace ZNORBRESPONDER
