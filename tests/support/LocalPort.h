#pragma once

#include "tests/support/Descriptor.h"

#include <cstdint>

namespace ZNORBTEST {

/// A port of 127.0.0.1 that nobody else gets while it lives. Connecting is refused or, when it listens,
/// succeeds without anybody there.
class LocalPort {
public:
    explicit LocalPort(bool listens);

    [[nodiscard]] std::uint16_t number() const { return m_number; }

    /// The next connection, which goes to the caller and waits for bytes for a bounded time, or -1 when
    /// nobody is queued.
    [[nodiscard]] int acceptOne() const;

    /// From here on connections are refused.
    void stopListening() { m_descriptor.reset(); }

private:
    Descriptor m_descriptor;
    std::uint16_t m_number = 0;
};

/// Binds a socket to a port of 127.0.0.1 of the kernel's choice, which is returned, or 0.
std::uint16_t bindToLocalPort(int descriptor);

} // namespace ZNORBTEST
