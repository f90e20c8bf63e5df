// The machine on which checks run, for their reports.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "check/portable/results.h"

namespace velto::check {

// The processor's name and the number of logical processors: "AMD EPYC 7763, 2 processors".
std::string ProcessorText();

// The active sound endpoints; empty if Windows cannot list them. With `withNames`, they have their names,
// which may be personal. Enters and leaves COM on the calling thread.
std::vector<EndpointInfo> ListEndpoints(bool withNames);

// The commit that this log of the module names after its first `earlierBytes`; empty if there is no such file
// or line.
std::string CommitInLog(const std::filesystem::path &log, uintmax_t earlierBytes);

// Fills `system`, `processor`, `endpoints` and `checkerVersion`.
void DescribeMachine(Run &run, bool withNames);

} // namespace velto::check
