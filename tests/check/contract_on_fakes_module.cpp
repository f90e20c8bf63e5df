// The contract on the module's sources: each portable check passes on the fakes. The sanitizers check memory
// and races meanwhile.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "check/portable/check.h"
#include "collected_events.h"
#include "module_on_fakes.h"

namespace velto_test {
namespace {

using velto::check::Check;
using velto::check::Context;

constexpr uint64_t seed = 1;

// Makes a check on the module's sources. It may only pass or be skipped.
CollectedEvents RunOnModule(const Check &check, Endpoints endpoints)
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
    return events;
}

class Contract : public ::testing::TestWithParam<const Check *> {
protected:
    // Skips the test if the check cannot run with these endpoints.
    static void Run(const Check &check, Endpoints endpoints)
    {
        const CollectedEvents events = RunOnModule(check, endpoints);
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

// The checks of the microphone, where there is one from which a module delivers no units.
class MicrophoneContract : public ::testing::TestWithParam<const Check *> {
protected:
    static void ExpectSkipped(const Check &check, Endpoints endpoints, std::string_view problem)
    {
        static const std::map<std::string_view, std::string_view> withoutUnits{
            {"microphone.without-recording", ""},
            {"microphone.without-buffer", ""},
            {"microphone.close-during-read", ""},
            {"microphone.without-microphone", "this system has a microphone"},
        };
        const auto found = withoutUnits.find(check.name);
        EXPECT_EQ(RunOnModule(check, endpoints).skipped,
                  found != withoutUnits.end() ? found->second : problem);
    }
};

TEST_P(MicrophoneContract, SkipsChecksThatNeedUnitsOfMutedMicrophone)
{
    ExpectSkipped(*GetParam(), Endpoints::MICROPHONE_MUTED, "the default microphone is muted");
}

TEST_P(MicrophoneContract, SkipsChecksThatNeedUnitsOfMicrophoneWithoutSound)
{
    ExpectSkipped(*GetParam(), Endpoints::MICROPHONE_WITHOUT_SOUND,
                  "the default microphone delivers no sound");
}

std::vector<const Check *> MicrophoneCheckList()
{
    std::vector<const Check *> checks;
    for (const Check &check : velto::check::MicrophoneChecks()) {
        checks.push_back(&check);
    }
    return checks;
}

INSTANTIATE_TEST_SUITE_P(Checks, MicrophoneContract, ::testing::ValuesIn(MicrophoneCheckList()),
                         [](const auto &parameter) { return TestNameOf(*parameter.param); });

} // namespace
} // namespace velto_test
