#include "polling.h"

#include <chrono>
#include <thread>

namespace fakes {

bool Eventually(const std::function<bool()> &condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(pollTime);
    }
    return true;
}

} // namespace fakes
