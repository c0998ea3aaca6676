#include "tests/support/DescriptorLimit.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace ZNORBTEST {

int lowestFreeDescriptor() {
    const int descriptor = dup(STDERR_FILENO);
    (void)close(descriptor);
    return descriptor;
}

DescriptorLimit::DescriptorLimit(int lowestForbidden) {
    EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &m_before), 0);
    const rlimit limit = {static_cast<rlim_t>(lowestForbidden), m_before.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

DescriptorLimit::~DescriptorLimit() {
    (void)setrlimit(RLIMIT_NOFILE, &m_before);
}

} // namespace ZNORBTEST
