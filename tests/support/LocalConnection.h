#pragma once

#include "tests/support/Descriptor.h"
#include "tests/support/Names.h"
#include "tests/support/Waiting.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace ZNORBTEST {

/// The connecting side of a socket on this machine, every wait bounded.
class LocalConnection {
public:
    static LocalConnection toPort(std::uint16_t port);
    static LocalConnection toPath(const std::string& path);

    bool isConnected() const { return m_descriptor.isOpen(); }
    int descriptor() const { return m_descriptor.get(); }

    /// One send; whether all of it was taken.
    bool send(const std::string& bytes) const;

    /// Tells the other side that nothing more comes.
    void finishSending() const;

    /// All that arrives until the other side closes, for at most `bound`.
    std::string receiveUntilClosed(Milliseconds bound = usualBound);

    /// After receiveUntilClosed(): whether the other side did close, rather than the bound pass.
    bool wasClosed() const { return m_closed; }

private:
    explicit LocalConnection(Descriptor descriptor) : m_descriptor(std::move(descriptor)) {}

    Descriptor m_descriptor;
    bool m_closed = false;
};

/// One request to the daemon's socket, as one send, and its whole reply; nullopt when there is none, or
/// nobody to connect to.
std::optional<std::string> askDaemon(const std::string& request, Milliseconds bound = usualBound);

} // namespace ZNORBTEST
