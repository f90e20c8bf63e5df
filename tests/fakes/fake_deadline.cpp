#include "tests/fakes/fake_deadline.h"

#include <mutex>
#include <utility>

#include "tests/fakes/deadline_hook.h"

namespace fakes {
namespace {

using namespace std::chrono_literals;

constexpr size_t maxRecords = 10000;

struct State {
    std::mutex mutex;
    std::vector<std::chrono::milliseconds> timeouts;
    std::function<void()> before;
};

State &TheState()
{
    static auto *state = new State; // outlives the module's static objects
    return *state;
}

} // namespace

std::chrono::steady_clock::time_point DeadlineAfter(std::chrono::milliseconds timeout)
{
    State &state = TheState();
    std::unique_lock lock(state.mutex);
    if (const auto before = std::exchange(state.before, nullptr)) {
        lock.unlock();
        before();
        lock.lock();
    }
    if (state.timeouts.size() < maxRecords) {
        state.timeouts.push_back(timeout);
    }
    const auto now = std::chrono::steady_clock::now();
    if (timeout < 0ms) {
        return now + timeout;
    }
    if (timeout < 1s) {
        return now + 50us;
    }
    return now + 24h;
}

std::vector<std::chrono::milliseconds> Timeouts()
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    return state.timeouts;
}

void ResetTimeouts()
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    state.timeouts.clear();
    state.before = nullptr;
}

void BeforeNextDeadline(std::function<void()> action)
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    state.before = std::move(action);
}

} // namespace fakes
