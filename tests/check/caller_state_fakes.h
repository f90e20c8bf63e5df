// The state of the calling thread and of the process in the native build, where fakes replace Windows.
#pragma once

#include <memory>

#include "check/portable/caller_state.h"

namespace velto_test {

std::unique_ptr<velto::check::CallerState> MakeCallerStateOnFakes();

} // namespace velto_test
