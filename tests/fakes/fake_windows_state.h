// Shared by the source files of the fake Windows. Not for tests.
#pragma once

#include "tests/fakes/fake_windows.h"

namespace fakewin {

fakes::FaultScript<Call> &Script();

// Counts a call and reports a violation if it is made inside a notification. Returns the scripted result, if
// any.
std::optional<int64_t> Enter(Call call);

void ResetCom();
void ResetRegistry();

} // namespace fakewin
