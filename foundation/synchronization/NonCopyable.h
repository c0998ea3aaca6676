#pragma once

namespace Common {

/// Private base of everything that must not be copied or moved: locks, guards and other owners of one
/// resource. Its destructor is its only virtual operation.
class NonCopyable {
public:
    NonCopyable(const NonCopyable&) = delete;
    NonCopyable& operator=(const NonCopyable&) = delete;
    virtual ~NonCopyable() = default;

protected:
    NonCopyable() = default;
};

} // namespace Common
