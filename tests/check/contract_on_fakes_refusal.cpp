// The checks themselves, with a module that refuses every call: they report failures only under clauses that
// they declare, and none of them crashes or waits forever.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "check/portable/check.h"
#include "collected_events.h"
#include "environment_fakes.h"

namespace velto_test {
namespace {

using velto::check::Check;
using velto::check::Context;

constexpr int32_t undocumented = 77;

template <typename Function>
struct Refusing;

template <typename... Arguments>
struct Refusing<int32_t (*)(Arguments...)> {
    static int32_t Call(Arguments...) { return undocumented; }
};

template <typename... Arguments>
struct Refusing<void (*)(Arguments...)> {
    static void Call(Arguments...) {}
};

template <typename Function>
void Refuse(Function &slot)
{
    slot = Refusing<Function>::Call;
}

int32_t RefusingEntry(AudioHandlerTable *table)
{
    if (table != nullptr) {
        Refuse(table->GetAudioCapability);
        Refuse(table->NoOperation1);
        Refuse(table->SetAudioParameter);
        Refuse(table->WriteStreamBuffer);
        Refuse(table->CloseAudioTrack);
        Refuse(table->OpenAudioRecord);
        Refuse(table->ReadStreamBuffer);
        Refuse(table->CloseAudioRecord);
        Refuse(table->Release);
        Refuse(table->RegisterListener);
        Refuse(table->NoOperation10);
    }
    return undocumented;
}

class RefusedCalls : public ::testing::TestWithParam<const Check *> {};

TEST_P(RefusedCalls, BreakOnlyDeclaredClauses)
{
    const Check &check = *GetParam();
    CollectedEvents events;
    FakesEnvironment environment(Endpoints::BOTH);
    AudioHandlerTable table{};
    RefusingEntry(&table);
    Context context(RefusingEntry, table, environment, events, velto::check::Random(1, check.name));
    RunCheck(check, context);
    EXPECT_EQ(UndeclaredClauses(check, events), std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Checks, RefusedCalls, ::testing::ValuesIn(velto::check::PortableChecks()),
                         [](const auto &parameter) { return TestNameOf(*parameter.param); });

} // namespace
} // namespace velto_test
