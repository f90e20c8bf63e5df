// Runs a function on several threads.
#pragma once

#include <cstddef>
#include <thread>
#include <vector>

// Calls `body(index)` on `count` threads, with an index from 0, and waits for all of them.
template <typename Body>
void RunOnThreads(int count, const Body &body)
{
    std::vector<std::thread> threads;
    threads.reserve(static_cast<std::size_t>(count));
    for (int index = 0; index < count; ++index) {
        threads.emplace_back([&body, index] { body(index); });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}
