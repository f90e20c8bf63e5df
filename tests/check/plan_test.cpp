// The choice and the order of checks.
#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <string>
#include <vector>

#include "check/portable/plan.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

const std::array<Check, 8> checks{{
    {"speaker.order", 5, {"SPK-4", "SPK-5"}, 10s, nullptr},
    {"entry.fills", 1, {"ENT-3"}, 10s, nullptr},
    {"entry.fills-twice", 1, {"ENT-6"}, 10s, nullptr},
    {"arguments.ids", 3, {"IDS-1"}, 10s, nullptr},
    {"listen.watermark", 7, {"SPK-16"}, 10s, nullptr},
    {"speak.watermark", 7, {"MIC-17"}, 10s, nullptr},
    {"lifecycle.stream-type", 5, {"SPK-9"}, 10s, nullptr},
    {"fuzz.calls", 10, {"IDS-1"}, 10s, nullptr},
}};

std::vector<std::string> NamesIn(const PlanOptions &options)
{
    std::vector<const Check *> all;
    for (const Check &check : checks) {
        all.push_back(&check);
    }
    std::vector<std::string> names;
    for (const Check *check : PlanOf(options, all)) {
        names.emplace_back(check->name);
    }
    return names;
}

using Names = std::vector<std::string>;

TEST(Plan, HasAllChecksUpToLevelInOrderOfLevels)
{
    EXPECT_EQ(NamesIn({.level = 5}), (Names{"entry.fills", "entry.fills-twice", "arguments.ids",
                                            "speaker.order", "lifecycle.stream-type"}));
    EXPECT_EQ(NamesIn({.level = 1}), (Names{"entry.fills", "entry.fills-twice"}));
}

TEST(Plan, ListensFromLevelSevenOrWhenAskedTo)
{
    EXPECT_EQ(NamesIn({.level = 1, .listen = true}),
              (Names{"entry.fills", "entry.fills-twice", "listen.watermark"}));
    EXPECT_EQ(NamesIn({.level = 7}).back(), "listen.watermark");
}

TEST(Plan, SpeaksOnlyWhenAskedTo)
{
    EXPECT_EQ(NamesIn({.level = 1, .speak = true}),
              (Names{"entry.fills", "entry.fills-twice", "speak.watermark"}));
    EXPECT_THROW(NamesIn({.only = "MIC-17"}), std::invalid_argument);
    EXPECT_EQ(NamesIn({.only = "MIC-17", .speak = true}), Names{"speak.watermark"});
    EXPECT_EQ(NamesIn({.only = "speak.watermark"}), Names{"speak.watermark"});
}

TEST(Plan, SelectsChecksOfClauseAtAnyLevel)
{
    EXPECT_EQ(NamesIn({.level = 1, .only = "IDS-1"}), (Names{"arguments.ids", "fuzz.calls"}));
}

TEST(Plan, SelectsCheckByWholeName)
{
    EXPECT_EQ(NamesIn({.only = "entry.fills"}), Names{"entry.fills"});
}

TEST(Plan, SelectsGroupWithAndWithoutDot)
{
    EXPECT_EQ(NamesIn({.only = "entry."}), (Names{"entry.fills", "entry.fills-twice"}));
    EXPECT_EQ(NamesIn({.only = "entry"}), (Names{"entry.fills", "entry.fills-twice"}));
}

TEST(Plan, RefusesUnknownSelection)
{
    for (const char *only : {"entr", "entry.fill", "ENT-", "XYZ-1", "."}) {
        EXPECT_THROW(NamesIn({.only = only}), std::invalid_argument) << only;
    }
}

TEST(Plan, ExplainsClauseWithoutCheck)
{
    try {
        NamesIn({.only = "SPK-13"});
        FAIL() << "the clause is for hosts, so no check covers it";
    } catch (const std::invalid_argument &error) {
        EXPECT_NE(std::string(error.what()).find("SPK-13"), std::string::npos);
    }
}

} // namespace
} // namespace velto::check
