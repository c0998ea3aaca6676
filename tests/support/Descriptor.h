#pragma once

#include <unistd.h>

#include <utility>

namespace ZNORBTEST {

/// A descriptor of the test's own, closed at the end; -1 is none.
class Descriptor {
public:
    explicit Descriptor(int descriptor) : m_descriptor(descriptor) {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] int get() const { return m_descriptor; }

    void reset() {
        if (m_descriptor != -1) {
            (void)close(release());
        }
    }

    int release() { return std::exchange(m_descriptor, -1); }

private:
    int m_descriptor;
};

} // namespace ZNORBTEST
