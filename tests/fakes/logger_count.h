// Counts the channel loggers that the module constructs.
#pragma once

#include <string>

namespace fakes {

// How many loggers with this name were constructed in this process.
int ConstructedLoggers(const std::string &channel);

} // namespace fakes
