#pragma once

#include <string>

namespace Common {

/// Polymorphic root of the library's value types.
class Convertible {
public:
    Convertible() = default;
    Convertible(const Convertible&) = default;
    Convertible(Convertible&&) = default;
    Convertible& operator=(const Convertible&) = default;
    Convertible& operator=(Convertible&&) = default;
    virtual ~Convertible() = default;

    /// A text for the object; empty unless a derived class has one.
    [[nodiscard]] virtual std::string toString() const { return {}; }
};

} // namespace Common
