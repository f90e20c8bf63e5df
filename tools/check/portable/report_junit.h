// The report of a run as JUnit XML, for build servers.
#pragma once

#include <string>

#include "check/portable/results.h"

namespace velto::check {

// A test suite for each level, a test case for each check. A check that found clauses broken is a failure; a
// crash, a hang and a failed checker are errors. Warnings are in the output of their test case.
std::string JunitReport(const Run &run);

} // namespace velto::check
