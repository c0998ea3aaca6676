#pragma once

#include "tests/support/StoppedCall.h"
#include "tests/tracing/SystemCalls.h"

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>

namespace ZNORBFAULTS {

using ZNORBTEST::StoppedCall;

/// Words for what the calls of one process work on, the same in every life: paths without
/// random parts, descriptors and mappings by what they were made of.
class ObjectNames {
public:
    /// The object of a call that is about to be made.
    std::string nameOf(pid_t thread, const ZNORBTRACING::SystemCall& call, const StoppedCall& start) const;

    /// Learns from a call that has been made on the object of that name.
    void learn(const ZNORBTRACING::SystemCall& call, const StoppedCall& start, const std::string& name,
               long result);

private:
    std::string descriptor(std::uint64_t number) const;
    std::string mapping(const StoppedCall& start) const;

    std::map<int, std::string> m_descriptors = {
        {0, "standard input"}, {1, "standard output"}, {2, "standard error"}};
    std::map<std::uint64_t, std::string> m_mappings;
};

} // namespace ZNORBFAULTS
