// The clauses of the contract between host and module. docs/contract.md is generated from this list.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace velto::check {

enum class ClauseGroup { ENT, IDS, CAP, REL, OWN, PAR, LSN, SPK, MIC, THR, LIF, HYG, RES, LOG };

// Whom a clause obliges.
enum class Party { MODULE, HOST };

// How far checks cover a clause.
enum class Coverage {
    CHECK, // one check or more of `velto-host check` cites the clause
    TESTS, // a DLL does not show it from outside: `coverage` names the tests of this repository that cover it
    HOST,  // obliges the host; `coverage` is empty
};

struct Clause {
    std::string_view id; // group and number, for example "ENT-2"
    ClauseGroup group;
    Party party;
    Coverage coverage;
    std::string_view text;  // one sentence or a few, in Markdown
    std::string_view tests; // for Coverage::TESTS: the names of tests; otherwise empty
};

struct ClauseGroupInfo {
    ClauseGroup group;
    std::string_view name;  // "ENT"
    std::string_view title; // "entry and table"
};

// In the order of the page.
std::span<const ClauseGroupInfo> AllClauseGroups();
std::span<const Clause> AllClauses();

// Null for an unknown id.
const Clause *FindClause(std::string_view id);

} // namespace velto::check
