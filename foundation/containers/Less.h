#pragma once

namespace Common {

/// The ascending order of the sorted containers: that of the key's own `<`. Strings are compared byte by
/// byte as unsigned characters over the shorter length; if they are equal there, the shorter one is less.
template <typename Key>
struct less {
    bool operator()(const Key& left, const Key& right) const { return left < right; }
};

} // namespace Common
