#pragma once

#include <string>
#include <utility>

namespace ZNORBTEST {

/// A key that counts how often two keys are compared for equality.
class CountedKey {
public:
    CountedKey() = default;
    explicit CountedKey(std::string text) : m_text(std::move(text)) {}

    bool operator==(const CountedKey& other) const {
        ++s_comparisons;
        return m_text == other.m_text;
    }
    bool operator<(const CountedKey& other) const { return m_text < other.m_text; }

    /// The comparisons for equality since the last call.
    static int takeComparisons() { return std::exchange(s_comparisons, 0); }

private:
    static inline int s_comparisons = 0;

    std::string m_text;
};

} // namespace ZNORBTEST
