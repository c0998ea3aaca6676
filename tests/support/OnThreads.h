#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <thread>
#include <vector>

namespace ZNORBTEST {

/// Runs one function on several threads, which begin together, to their ends; each gets its number.
inline void onThreads(int count, const std::function<void(int)>& body) {
    std::atomic<int> missing = count;
    std::vector<std::thread> threads;
    threads.reserve(static_cast<std::size_t>(count));
    for (int number = 0; number < count; ++number) {
        threads.emplace_back([&missing, &body, number] {
            --missing;
            while (missing > 0) {
                std::this_thread::yield();
            }
            body(number);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

} // namespace ZNORBTEST
