#include "tests/support/Scarcity.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cstddef>
#include <limits>
#include <new>

namespace ZNORBTEST {

bool forbidForks() noexcept {
    constexpr uid_t ordinaryUser = 65534;
    const rlimit none = {0, 0};
    return (geteuid() != 0 || setresuid(ordinaryUser, ordinaryUser, ordinaryUser) == 0) &&
           setrlimit(RLIMIT_NPROC, &none) == 0;
}

void useUpMemory() {
    const rlimit none{0, 0};
    (void)setrlimit(RLIMIT_AS, &none);
    for (std::size_t size = std::size_t{1} << 20; size > 0; size = size > 2048 ? size / 2 : size - 8) {
        while (operator new(size, std::nothrow) != nullptr) {
        }
    }
}

NoThreads::NoThreads() {
    (void)pthread_getattr_default_np(&m_before);
    pthread_attr_t attributes;
    (void)pthread_attr_init(&attributes);
    (void)pthread_attr_setstacksize(&attributes, std::numeric_limits<std::size_t>::max() / 16 * 15);
    (void)pthread_setattr_default_np(&attributes);
    (void)pthread_attr_destroy(&attributes);
}

NoThreads::~NoThreads() {
    (void)pthread_setattr_default_np(&m_before);
    (void)pthread_attr_destroy(&m_before);
}

} // namespace ZNORBTEST
