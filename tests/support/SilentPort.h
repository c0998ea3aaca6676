#pragma once

#include <cstdint>

namespace ZNORBTEST {

/// A port of 127.0.0.1 behind which nobody accepts a connection: connecting is refused or, when it listens,
/// succeeds without anybody there. Nobody else gets the port while it lives.
class SilentPort {
public:
    explicit SilentPort(bool listens);
    ~SilentPort();
    SilentPort(const SilentPort&) = delete;
    SilentPort& operator=(const SilentPort&) = delete;

    std::uint16_t number() const { return m_number; }

private:
    int m_descriptor;
    std::uint16_t m_number = 0;
};

} // namespace ZNORBTEST
