#pragma once

#include <unistd.h>

#include <utility>

namespace ZNORBTEST {

/// A descriptor of the test's own, closed at the end; -1 is none.
class Descriptor {
public:
    explicit Descriptor(int descriptor = -1) : m_descriptor(descriptor) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept : m_descriptor(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        reset(other.release());
        return *this;
    }

    [[nodiscard]] int get() const { return m_descriptor; }
    [[nodiscard]] bool isOpen() const { return m_descriptor != -1; }

    void reset(int descriptor = -1) {
        const int before = std::exchange(m_descriptor, descriptor);
        if (before != -1) {
            (void)close(before);
        }
    }

    int release() { return std::exchange(m_descriptor, -1); }

private:
    int m_descriptor;
};

} // namespace ZNORBTEST
