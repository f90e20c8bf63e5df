// Resets the fakes at the start of a test.
#pragma once

namespace fakes {

// Clears the endpoints, scripted faults, call counts, violations and log lines. The simulated clock
// continues.
void ResetAll();

} // namespace fakes
