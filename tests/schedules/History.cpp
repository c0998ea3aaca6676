#include "tests/schedules/History.h"

namespace ZNORBSCHEDULES {
namespace {

std::uint64_t mixed(std::uint64_t one, std::uint64_t other) {
    std::uint64_t mix = one * 0x9e3779b97f4a7c15ULL + other;
    mix = (mix ^ (mix >> 30U)) * 0xbf58476d1ce4e5b9ULL;
    return mix ^ (mix >> 27U);
}

/// The same in every run, unlike std::hash perhaps.
std::uint64_t numberOf(const std::string& text) {
    std::uint64_t number = 0xcbf29ce484222325ULL;
    for (const char character : text) {
        number = (number ^ static_cast<unsigned char>(character)) * 0x100000001b3ULL;
    }
    return number;
}

} // namespace

void History::add(const std::string& family, const std::string& step, const Access& access) {
    std::uint64_t& past = m_families[family];
    past = mixed(past, numberOf(family + ": " + step));
    for (unsigned object = 0; object < objectCount; ++object) {
        if (((access.reads | access.writes) >> object & 1U) != 0) {
            past = mixed(past, m_objects[object].written);
        }
        if ((access.writes >> object & 1U) != 0) {
            past = mixed(past, m_objects[object].readers);
        }
    }
    for (unsigned object = 0; object < objectCount; ++object) {
        if ((access.writes >> object & 1U) != 0) {
            m_objects[object] = {past, 0};
        } else if ((access.reads >> object & 1U) != 0) {
            m_objects[object].readers += past;
        }
    }
}

std::uint64_t History::state(const std::string& current) const {
    std::uint64_t state = numberOf(current);
    for (const auto& [family, past] : m_families) {
        state = mixed(state, past);
    }
    return state;
}

} // namespace ZNORBSCHEDULES
