// The contract on the module's sources: each portable check passes on the fakes. The sanitizers check memory
// and races meanwhile.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "check/portable/check.h"
#include "collected_events.h"
#include "module_on_fakes.h"

namespace velto_test {
namespace {

using velto::check::Check;
using velto::check::Context;

constexpr uint64_t seed = 1;

class Contract : public ::testing::TestWithParam<const Check *> {
protected:
    // Skips the test if the check cannot run with these endpoints.
    static void Run(const Check &check, Endpoints endpoints)
    {
        CollectedEvents events;
        {
            ModuleOnFakes module(endpoints);
            Context context(ModuleOnFakes::Entry, module.Table(), module.Environment(), events,
                            velto::check::Random(seed, check.name));
            RunCheck(check, context);
        }
        EXPECT_EQ(events.failures, std::vector<std::string>{});
        EXPECT_EQ(events.warnings, std::vector<std::string>{});
        EXPECT_EQ(UndeclaredClauses(check, events), std::vector<std::string>{});
        if (!events.skipped.empty()) {
            GTEST_SKIP() << events.skipped;
        }
    }
};

TEST_P(Contract, IsKeptByModule)
{
    Run(*GetParam(), Endpoints::BOTH);
}

TEST_P(Contract, IsKeptWithoutEndpoints)
{
    Run(*GetParam(), Endpoints::NONE);
}

INSTANTIATE_TEST_SUITE_P(Checks, Contract, ::testing::ValuesIn(velto::check::PortableChecks()),
                         [](const auto &parameter) { return TestNameOf(*parameter.param); });

} // namespace
} // namespace velto_test
