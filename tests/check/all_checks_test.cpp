// The checks of velto-host are those that the contract's page names: the portable ones, and the list of
// process checks.
#include "check/all_checks.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "check/portable/process_check_list.h"

namespace velto::check {
namespace {

const Check *Find(const std::vector<const Check *> &checks, std::string_view name)
{
    const auto found = std::ranges::find(checks, name, &Check::name);
    return found == checks.end() ? nullptr : *found;
}

std::vector<const Check *> ListedChecks()
{
    std::vector<const Check *> listed = PortableChecks();
    for (const Check &check : ProcessCheckList()) {
        listed.push_back(&check);
    }
    return listed;
}

TEST(AllChecks, AreThoseOfLists)
{
    const std::vector<const Check *> all = AllChecks();
    const std::vector<const Check *> listed = ListedChecks();
    EXPECT_EQ(all.size(), listed.size());
    for (const Check *check : listed) {
        const Check *const made = Find(all, check->name);
        ASSERT_NE(made, nullptr) << check->name << " is listed, and velto-host does not make it";
        EXPECT_EQ(made->level, check->level) << check->name;
        EXPECT_EQ(made->clauses, check->clauses) << check->name;
        EXPECT_EQ(made->timeLimit, check->timeLimit) << check->name;
    }
    for (const Check *check : all) {
        EXPECT_NE(Find(listed, check->name), nullptr) << check->name << " is made, and no list names it";
    }
    EXPECT_NE(Find(all, "storm.load-cycles"), nullptr);
}

TEST(AllChecks, HaveFunctionsAndUniqueNames)
{
    std::set<std::string_view> names;
    for (const Check *check : AllChecks()) {
        EXPECT_NE(check->run, nullptr) << check->name;
        EXPECT_TRUE(names.insert(check->name).second) << check->name;
    }
}

TEST(AllChecks, AreInOrderOfLevels)
{
    EXPECT_TRUE(std::ranges::is_sorted(AllChecks(), {}, &Check::level));
}

} // namespace
} // namespace velto::check
