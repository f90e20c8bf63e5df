#include "tests/fakes/failing_calloc.h"

#include <atomic>
#include <cstdlib>
#include <utility>

namespace fakes {
namespace {

std::atomic<int> callsUntilFailure{0}; // 0: no call fails
std::function<void()> beforeFailure;   // set while no other thread allocates

} // namespace

void *Calloc(std::size_t count, std::size_t bytes)
{
    if (callsUntilFailure > 0 && --callsUntilFailure == 0) {
        if (beforeFailure) {
            beforeFailure();
        }
        return nullptr;
    }
    return std::calloc(count, bytes);
}

FailingCalloc::FailingCalloc(int nth, std::function<void()> before)
{
    beforeFailure = std::move(before);
    callsUntilFailure = nth;
}

FailingCalloc::~FailingCalloc()
{
    callsUntilFailure = 0;
    beforeFailure = nullptr;
}

} // namespace fakes
