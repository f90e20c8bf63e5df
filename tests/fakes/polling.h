// Waiting for another thread in tests.
#pragma once

#include <functional>

namespace fakes {

// Polls until the condition is true. False after ten seconds.
bool Eventually(const std::function<bool()> &condition);

} // namespace fakes
