#include "tests/fakes/failing_calloc.h"

#include <atomic>
#include <cstdlib>

namespace fakes {
namespace {

std::atomic<int> callsUntilFailure{0}; // 0: none fails

} // namespace

void *Calloc(std::size_t count, std::size_t bytes)
{
    if (callsUntilFailure > 0 && --callsUntilFailure == 0) {
        return nullptr;
    }
    return std::calloc(count, bytes);
}

FailingCalloc::FailingCalloc(int nth)
{
    callsUntilFailure = nth;
}

FailingCalloc::~FailingCalloc()
{
    callsUntilFailure = 0;
}

} // namespace fakes
