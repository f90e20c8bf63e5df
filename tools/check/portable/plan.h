// Which checks a run makes, and in which order.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "check/portable/check.h"

namespace velto::check {

struct PlanOptions {
    int level = 5; // 1 to 10: all checks up to this level
    // A clause's id, a check's name, or a group such as "arguments."; empty: no restriction.
    std::string only{};
    bool listen = false; // also the checks that record the loudspeaker, at any level
    bool speak = false;  // also the checks that play through the loudspeaker for the microphone, at any level
};

// Checks that listen are part of level 7 without `listen`, too. Checks that speak are left out unless they
// are asked for, with `speak` or by name: they need a quiet room.
bool IsListening(const Check &check);
bool IsSpeaking(const Check &check);

// By level, and within a level in the order of `all`. With `only`, the level does not matter: the plan has
// each check that covers the clause, has the name or is in the group. Throws std::invalid_argument with a
// text for people if there is none.
std::vector<const Check *> PlanOf(const PlanOptions &options, std::span<const Check *const> all);

} // namespace velto::check
