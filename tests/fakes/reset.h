// The start of a test on the fakes.
#pragma once

namespace fakes {

// Forgets endpoints, scripted faults, counted calls and log lines; driven time starts anew.
void ResetAll();

} // namespace fakes
