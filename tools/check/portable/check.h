// A check: one test of a module, which cites the clauses that it covers.
#pragma once

#include <chrono>
#include <span>
#include <string_view>
#include <vector>

#include "check/portable/context.h"

namespace velto::check {

struct Check {
    std::string_view name;                 // "arguments.wrong-ids": the group and what is checked
    int level;                             // 1 to 10; see PlanOf for the checks of a run
    std::vector<std::string_view> clauses; // all that it may report as broken
    // Of its process, without the minutes that --minutes adds at level 10. A hang beyond it breaks the
    // clauses of the last step.
    std::chrono::seconds timeLimit;
    void (*run)(Context &);
};

// The checks of the portable part, by group; each group is a file.
std::span<const Check> EntryChecks();      // level 1
std::span<const Check> CapabilityChecks(); // level 2
std::span<const Check> ArgumentChecks();   // level 3
std::span<const Check> ParameterChecks();  // level 4
std::span<const Check> ListenerChecks();   // level 4
std::span<const Check> OwnershipChecks();  // level 4
std::span<const Check> HygieneChecks();    // level 4
std::span<const Check> SpeakerChecks();    // level 5
std::span<const Check> MicrophoneChecks(); // level 6
std::span<const Check> StormChecks();      // level 8

// All of them, in the order of their levels.
std::vector<const Check *> PortableChecks();

} // namespace velto::check
