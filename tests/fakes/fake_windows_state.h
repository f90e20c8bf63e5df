// What the parts of the fake Windows share. Not for tests.
#pragma once

#include "tests/fakes/fake_windows.h"

namespace fakewin {

fakes::FaultScript<Call> &Script();

// Counts a call; reports one made inside a notification. The result to return, if scripted.
std::optional<int64_t> Enter(Call call);

void ResetCom();
void ResetRegistry();

} // namespace fakewin
