#include "check/portable/contract_page.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

#include <fmt/format.h>

#include "check/portable/clause.h"

namespace velto::check {
namespace {

constexpr size_t mostNames = 15; // in a cell of the table

void AddToList(std::string &list, std::string_view entry)
{
    if (!list.empty()) {
        list += ", ";
    }
    list.append("`").append(entry).append("`");
}

std::string NamesOfChecks(const Clause &clause, std::span<const Check *const> checks)
{
    std::string names;
    size_t count = 0;
    for (const Check *check : checks) {
        if (std::ranges::find(check->clauses, clause.id) != check->clauses.end()) {
            AddToList(names, check->name);
            ++count;
        }
    }
    if (count <= mostNames) {
        return names;
    }
    const std::string command = fmt::format("velto-host check --list --only {}", clause.id);
    return fmt::format("{} checks: `{}` names them", count, command);
}

std::string NamesOfTests(const Clause &clause)
{
    std::string names;
    for (std::string_view rest = clause.tests; !rest.empty();) {
        const size_t comma = std::min(rest.find(", "), rest.size());
        AddToList(names, rest.substr(0, comma));
        rest.remove_prefix(std::min(comma + 2, rest.size()));
    }
    return names;
}

std::string CheckedBy(const Clause &clause, std::span<const Check *const> checks)
{
    switch (clause.coverage) {
    case Coverage::CHECK:
        return NamesOfChecks(clause, checks);
    case Coverage::TESTS:
        return "tests: " + NamesOfTests(clause);
    case Coverage::HOST:
        break;
    }
    return "";
}

std::string Row(const Clause &clause, std::span<const Check *const> checks)
{
    std::string row;
    row.append("| ").append(clause.id);
    row.append(clause.party == Party::MODULE ? " | module | " : " | host | ").append(clause.text);
    const std::string checkedBy = CheckedBy(clause, checks);
    row.append(checkedBy.empty() ? " | |\n" : " | " + checkedBy + " |\n");
    return row;
}

} // namespace

std::string ContractTables(std::span<const Check *const> checks)
{
    std::string tables;
    for (const ClauseGroupInfo &group : AllClauseGroups()) {
        tables.append("\n## ").append(group.name).append(": ").append(group.title);
        tables += "\n\n| Id | Binds | Clause | Checked by |\n|---|---|---|---|\n";
        for (const Clause &clause : AllClauses()) {
            if (clause.group == group.group) {
                tables += Row(clause, checks);
            }
        }
    }
    tables += "\n";
    return tables;
}

std::string PageWithTables(const std::string &page, const std::string &tables)
{
    const size_t begin = page.find(tablesBegin);
    const size_t end = page.find(tablesEnd);
    if (begin == std::string::npos || end == std::string::npos || end < begin) {
        throw std::runtime_error("the page does not have both lines that enclose the tables");
    }
    return page.substr(0, begin) + tablesBegin + tables + page.substr(end);
}

} // namespace velto::check
