#include "tests/schedules/History.h"

namespace ZNORBSCHEDULES {

std::uint64_t mixed(std::uint64_t one, std::uint64_t other) {
    std::uint64_t mix = one * 0x9e3779b97f4a7c15ULL + other;
    mix = (mix ^ (mix >> 30U)) * 0xbf58476d1ce4e5b9ULL;
    return mix ^ (mix >> 27U);
}

std::uint64_t numberOf(const std::string& text) {
    std::uint64_t number = 0xcbf29ce484222325ULL;
    for (const char character : text) {
        number = (number ^ static_cast<unsigned char>(character)) * 0x100000001b3ULL;
    }
    return number;
}

void History::begin(const std::string& thread, const std::string& parent) {
    (void)m_threads.emplace(thread, mixed(numberOf(thread), m_threads[parent]));
}

void History::add(const std::string& thread, const std::string& place, const Access& access) {
    std::uint64_t& past = m_threads[thread];
    past = mixed(past, numberOf(thread + ": " + place));
    for (const std::string& object : access.reads) {
        past = mixed(past, m_objects[object].written);
    }
    for (const std::string& object : access.writes) {
        past = mixed(mixed(past, m_objects[object].written), m_objects[object].readers);
    }
    for (const std::string& object : access.reads) {
        m_objects[object].readers += past;
    }
    for (const std::string& object : access.writes) {
        m_objects[object] = {past, 0};
    }
}

std::uint64_t History::state() const {
    std::uint64_t state = 0;
    for (const auto& [thread, past] : m_threads) {
        state = mixed(state, past);
    }
    return state;
}

} // namespace ZNORBSCHEDULES
