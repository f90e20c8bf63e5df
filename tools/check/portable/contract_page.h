// The generated part of docs/contract.md.
#pragma once

#include <span>
#include <string>

#include "check/portable/check.h"

namespace velto::check {

// The lines of the page that enclose the tables.
inline constexpr char tablesBegin[] =
    "<!-- Generated from tools/check/portable/clauses.cpp; do not edit by hand. -->\n";
inline constexpr char tablesEnd[] = "<!-- End of the generated clauses. -->\n";

// A table of clauses for each group, in Markdown, with the checks and tests that cover each clause: what
// belongs between the two lines. `checks` are in the order in which the table names them.
std::string ContractTables(std::span<const Check *const> checks);

// `page` with `tables` between the two lines, which stay. Throws std::runtime_error if the page does not have
// both lines in this order.
std::string PageWithTables(const std::string &page, const std::string &tables);

} // namespace velto::check
