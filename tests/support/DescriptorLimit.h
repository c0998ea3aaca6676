#pragma once

#include <sys/resource.h>

namespace ZNORBTEST {

/// The lowest descriptor that is free: the next one that this process will get.
int lowestFreeDescriptor();

/// While it lives, this process gets no descriptor of the given number or above. Those that are open stay.
/// With 0 it gets none.
///
/// The undefined-behaviour sanitizer needs a descriptor whenever it meets a polymorphic class for the first
/// time, and takes its absence for a broken object: let it meet them before.
class DescriptorLimit {
public:
    explicit DescriptorLimit(int lowestForbidden);
    ~DescriptorLimit();
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

private:
    rlimit m_before = {};
};

} // namespace ZNORBTEST
