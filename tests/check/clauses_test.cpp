// The list of clauses, the checks that cite them, and the page that is generated from both.
#include "check/portable/clause.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "check/portable/contract_page.h"
#include "check/portable/process_check_list.h"

namespace velto::check {
namespace {

const std::filesystem::path sources = VELTO_SOURCE_FOLDER;

std::string TextOf(const std::filesystem::path &file)
{
    std::ifstream stream(file, std::ios::binary);
    EXPECT_TRUE(stream) << file;
    return {std::istreambuf_iterator<char>(stream), {}};
}

// Those of every system first.
std::vector<const Check *> AllChecks()
{
    std::vector<const Check *> checks = PortableChecks();
    for (const Check &check : ProcessCheckList()) {
        checks.push_back(&check);
    }
    return checks;
}

std::set<std::string_view> CitedClauses()
{
    std::set<std::string_view> cited;
    for (const Check *check : AllChecks()) {
        cited.insert(check->clauses.begin(), check->clauses.end());
    }
    return cited;
}

// "Suite.Name" of the C++ tests, "test_name" of the Python tests.
bool IsTestIn(const std::string &text, const std::string &name)
{
    const size_t dot = name.find('.');
    return dot == std::string::npos
               ? text.find(fmt::format("def {}(", name)) != std::string::npos
               : text.find(fmt::format("({}, {})", name.substr(0, dot), name.substr(dot + 1))) !=
                     std::string::npos;
}

std::string TextOfAllTests()
{
    std::string text;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(sources / "tests")) {
        if (entry.path().extension() == ".cpp" || entry.path().extension() == ".py") {
            text += TextOf(entry.path());
        }
    }
    return text;
}

std::vector<std::string> Names(std::string_view list)
{
    std::vector<std::string> names;
    while (!list.empty()) {
        const size_t comma = std::min(list.find(", "), list.size());
        names.emplace_back(list.substr(0, comma));
        list.remove_prefix(std::min(comma + 2, list.size()));
    }
    return names;
}

TEST(Clauses, AreNumberedInOrderOfTheirGroups)
{
    size_t next = 0;
    const std::span<const Clause> all = AllClauses();
    for (const ClauseGroupInfo &group : AllClauseGroups()) {
        int last = 0;
        for (; next < all.size() && all[next].group == group.group; ++next) {
            const std::string_view id = all[next].id;
            ASSERT_TRUE(id.starts_with(fmt::format("{}-", group.name))) << id;
            const int number = std::atoi(id.data() + group.name.size() + 1);
            EXPECT_EQ(id, fmt::format("{}-{}", group.name, number));
            EXPECT_GT(number, last) << id;
            last = number;
        }
        EXPECT_GT(last, 0) << group.name << " has no clause";
    }
    EXPECT_EQ(next, all.size()) << "clauses outside of their group";
}

TEST(Clauses, AreFoundById)
{
    for (const Clause &clause : AllClauses()) {
        EXPECT_EQ(FindClause(clause.id), &clause);
    }
    EXPECT_EQ(FindClause("ENT-0"), nullptr);
    EXPECT_EQ(FindClause(""), nullptr);
}

TEST(Clauses, AreSentencesThatFitInTableCell)
{
    for (const Clause &clause : AllClauses()) {
        EXPECT_TRUE(clause.text.ends_with('.')) << clause.id;
        EXPECT_EQ(clause.text.find_first_of("|\n"), std::string_view::npos) << clause.id;
        EXPECT_EQ(clause.coverage == Coverage::HOST, clause.party == Party::HOST) << clause.id;
    }
}

TEST(Clauses, AreCitedByChecksExactlyWhenObservable)
{
    const std::set<std::string_view> cited = CitedClauses();
    for (const Clause &clause : AllClauses()) {
        EXPECT_EQ(cited.contains(clause.id), clause.coverage == Coverage::CHECK) << clause.id;
    }
}

TEST(Clauses, NameTestsThatExist)
{
    const std::string tests = TextOfAllTests();
    for (const Clause &clause : AllClauses()) {
        EXPECT_EQ(clause.tests.empty(), clause.coverage != Coverage::TESTS) << clause.id;
        for (const std::string &name : Names(clause.tests)) {
            EXPECT_TRUE(IsTestIn(tests, name)) << clause.id << ": " << name;
        }
    }
    EXPECT_FALSE(IsTestIn(tests, fmt::format("Clauses.{}", "DoNotExist")));
    EXPECT_FALSE(IsTestIn(tests, fmt::format("test_{}", "that_does_not_exist")));
}

TEST(CheckList, CitesClausesOfModuleOnceEach)
{
    for (const Check *check : AllChecks()) {
        EXPECT_FALSE(check->clauses.empty()) << check->name;
        EXPECT_EQ(std::set(check->clauses.begin(), check->clauses.end()).size(), check->clauses.size())
            << check->name;
        for (const std::string_view id : check->clauses) {
            const Clause *clause = FindClause(id);
            ASSERT_NE(clause, nullptr) << check->name << ": " << id;
            EXPECT_EQ(clause->party, Party::MODULE) << check->name << ": " << id;
        }
    }
}

TEST(CheckList, HasUniqueNamesLevelsAndTimeLimits)
{
    std::set<std::string_view> names;
    for (const Check *check : AllChecks()) {
        EXPECT_TRUE(names.insert(check->name).second) << check->name;
        EXPECT_NE(check->name.find('.'), std::string_view::npos) << check->name;
        EXPECT_TRUE(check->level >= 1 && check->level <= 10) << check->name;
        EXPECT_GT(check->timeLimit.count(), 0) << check->name;
    }
}

TEST(CheckList, GivesFunctionsToChecksOfProcesses)
{
    const auto run = [](Context &) {};
    for (const Check &listed : ProcessCheckList()) {
        EXPECT_EQ(listed.run, nullptr) << listed.name;
        const Check check = ProcessCheck(listed.name, run);
        EXPECT_EQ(check.name, listed.name);
        EXPECT_EQ(check.clauses, listed.clauses);
        EXPECT_EQ(check.run, static_cast<void (*)(Context &)>(run));
    }
    EXPECT_THROW(ProcessCheck("no.such-check", run), std::logic_error);
}

// The functions of these checks exist in the Windows build only.
TEST(CheckList, HasFunctionForEachCheckOfProcesses)
{
    std::string text;
    for (const auto &entry : std::filesystem::directory_iterator(sources / "tools" / "check")) {
        if (entry.path().extension() == ".cpp") {
            text += TextOf(entry.path());
        }
    }
    for (const Check &check : ProcessCheckList()) {
        const std::string use = fmt::format("ProcessCheck(\"{}\", ", check.name);
        EXPECT_NE(text.find(use), std::string::npos) << check.name;
    }
}

TEST(ContractPage, NamesChecksOfClauseInTheirOrder)
{
    const Check first{"b.first", 1, {"ENT-2", "ENT-3"}, std::chrono::seconds{1}, nullptr};
    const Check second{"a.second", 2, {"ENT-3"}, std::chrono::seconds{1}, nullptr};
    const std::vector<const Check *> checks{&first, &second};
    const std::string tables = ContractTables(checks);
    EXPECT_NE(tables.find(fmt::format("| ENT-2 | module | {} | `b.first` |\n", FindClause("ENT-2")->text)),
              std::string::npos);
    EXPECT_NE(tables.find(fmt::format("| ENT-3 | module | {} | `b.first`, `a.second` |\n",
                                      FindClause("ENT-3")->text)),
              std::string::npos);
    EXPECT_NE(tables.find(fmt::format("| ENT-7 | host | {} | |\n", FindClause("ENT-7")->text)),
              std::string::npos);
    EXPECT_NE(tables.find("tests: `HostRecords.ReleaseWithCountZeroFreesOnlyBlock` |\n"), std::string::npos);
}

TEST(ContractPage, CountsChecksThatAreTooManyToName)
{
    std::vector<Check> many;
    for (int number = 0; number < 16; ++number) {
        many.push_back({"a.check", 1, {"ENT-2"}, std::chrono::seconds{1}, nullptr});
    }
    std::vector<const Check *> checks;
    for (const Check &check : many) {
        checks.push_back(&check);
    }
    EXPECT_NE(
        ContractTables(checks).find("| 16 checks: `velto-host check --list --only ENT-2` names them |\n"),
        std::string::npos);
    checks.pop_back();
    EXPECT_EQ(ContractTables(checks).find(" names them |"), std::string::npos);
}

TEST(ContractPage, KeepsTextAroundTables)
{
    const std::string page = std::string("before\n") + tablesBegin + "old\n" + tablesEnd + "after\n";
    EXPECT_EQ(PageWithTables(page, "new\n"),
              std::string("before\n") + tablesBegin + "new\n" + tablesEnd + "after\n");
    EXPECT_THROW(PageWithTables("no lines", ""), std::runtime_error);
    EXPECT_THROW(PageWithTables(std::string(tablesEnd) + tablesBegin, ""), std::runtime_error);
}

// The first line of `text` that is not in `expected`, at the same place. Empty if there is none.
std::string FirstDifference(const std::string &text, const std::string &expected)
{
    const auto [difference, other] = std::ranges::mismatch(text, expected);
    if (difference == text.end() && other == expected.end()) {
        return "";
    }
    const size_t place = difference - text.begin();
    const size_t begin = place == 0 ? 0 : text.rfind('\n', place - 1) + 1;
    return fmt::format("line {}: {}", std::count(text.begin(), difference, '\n') + 1,
                       text.substr(begin, text.find('\n', place) - begin));
}

// VELTO_WRITE_PAGES=1 writes the page instead of comparing it.
TEST(ContractPage, IsThatOfTheClauses)
{
    const std::filesystem::path file = sources / "docs" / "contract.md";
    const std::string page = TextOf(file);
    const std::vector<const Check *> checks = AllChecks();
    const std::string expected = PageWithTables(page, ContractTables(checks));
    if (std::getenv("VELTO_WRITE_PAGES") != nullptr) {
        std::ofstream(file, std::ios::binary) << expected;
        return;
    }
    EXPECT_EQ(FirstDifference(page, expected), "")
        << "VELTO_WRITE_PAGES=1 velto-check-tests --gtest_filter=ContractPage.* writes the page";
}

} // namespace
} // namespace velto::check
