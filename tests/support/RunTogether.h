#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <thread>
#include <vector>

/// Runs each body on a thread of its own and comes back when all have ended. None begins before all
/// are there, so that short ones overlap as well.
inline void runTogether(const std::vector<std::function<void()>> &bodies)
{
    std::atomic<std::size_t> arrived{0};
    std::vector<std::thread> threads;
    threads.reserve(bodies.size());
    for (const auto &body : bodies) {
        threads.emplace_back([&arrived, &body, count = bodies.size()] {
            arrived.fetch_add(1, std::memory_order_relaxed);
            while (arrived.load(std::memory_order_relaxed) < count) {
                std::this_thread::yield();
            }
            body();
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}
