#include "support/process_state.h"

#include <atomic>

namespace velto {
namespace {

std::atomic<bool> processIsEnding{false};

} // namespace

bool ProcessIsEnding()
{
    return processIsEnding;
}

void SetProcessIsEnding()
{
    processIsEnding = true;
}

} // namespace velto
