// Unloading and the end of the process: the module's static objects, and what still works after them.
#include <gtest/gtest.h>

#if GTEST_HAS_DEATH_TEST && !defined(_WIN32)

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "registry/registry.h"
#include "reset.h"
#include "speaker_track_fixture.h"
#include "support/process_state.h"
#include "tests/fakes/fake_registry.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved);

namespace {

using namespace velto_test;

// Ends the process with the result of `exitCode`, after the destructors of all other static objects.
class ExitsLast {
public:
    ~ExitsLast()
    {
        if (exitCode != nullptr) {
            _exit(exitCode());
        }
    }
    static inline int (*exitCode)() = nullptr;
};
__attribute__((init_priority(101))) ExitsLast exitsLast; // constructed first, destroyed last

// The new process of the "threadsafe" style runs only one test.
class ProcessExitDeathTest : public ::testing::Test {
protected:
    ProcessExitDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    ~ProcessExitDeathTest() override { GTEST_FLAG_SET(death_test_style, m_style); }

    [[noreturn]] static void ExitWith(int (*exitCode)())
    {
        ExitsLast::exitCode = exitCode;
        std::exit(99);
    }

private:
    const std::string m_style = GTEST_FLAG_GET(death_test_style);
};

int RunningClients()
{
    const std::vector<fakes::ClientRecord> clients = fakes::AudioSystem::Instance().Clients();
    return static_cast<int>(
        std::count_if(clients.begin(), clients.end(),
                      [](const fakes::ClientRecord &client) { return client.starts > client.stops; }));
}

// Writes one unit, which starts both speakers. Their endpoints' clients play silence then.
void StartSpeakers()
{
    fakes::ResetAll();
    AudioHandlerTable table;
    VELTOGetAudioHandler(&table);
    AacUnit unit{0};
    HostFrame record(unit, 1);
    table.WriteStreamBuffer("mic1", 4, nullptr, &record.frame);
    Eventually([] { return RunningClients() == 2; });
}

int TellsEndOfProcess(DWORD reason, void *reserved)
{
    const bool isTrue = DllMain(nullptr, reason, reserved) == TRUE;
    return isTrue && velto::ProcessIsEnding() ? 1 : isTrue ? 0 : 2;
}

TEST_F(ProcessExitDeathTest, DllMainRecordsOnlyEndOfProcess)
{
    static int byte = 0;
    EXPECT_EXIT(_exit(TellsEndOfProcess(DLL_PROCESS_DETACH, &byte)), ::testing::ExitedWithCode(1), "");
    EXPECT_EXIT(_exit(TellsEndOfProcess(DLL_PROCESS_DETACH, nullptr)), ::testing::ExitedWithCode(0), "")
        << "unloading";
    constexpr DWORD processAttach = 1;
    EXPECT_EXIT(_exit(TellsEndOfProcess(processAttach, &byte)), ::testing::ExitedWithCode(0), "")
        << "loading together with the process";
}

TEST_F(ProcessExitDeathTest, UnloadingStopsSpeakers)
{
    EXPECT_EXIT(
        {
            StartSpeakers();
            ExitWith(RunningClients);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(ProcessExitDeathTest, EndOfProcessLeavesSpeakersAlone)
{
    EXPECT_EXIT(
        {
            StartSpeakers();
            velto::SetProcessIsEnding();
            ExitWith(RunningClients);
        },
        ::testing::ExitedWithCode(2), "");
}

// As another static object's destructor would.
int StreamTypeAfterDestruction()
{
    DWORD value = 5;
    const bool isWritten =
        DE::Registry::SetValue(HKEY_CURRENT_USER, L"\\SOFTWARE\\Last", L"Value", value, 0xF003F);
    DWORD stored = 0;
    const bool isRead =
        DE::Registry::GetValue(HKEY_CURRENT_USER, L"\\SOFTWARE\\Last", L"Value", stored, 0xF003F);
    const bool isMissed =
        !DE::Registry::GetValue(HKEY_CURRENT_USER, L"\\SOFTWARE\\Missing", L"Value", stored, 0xF003F);
    return isWritten && isRead && isMissed && fakewin::LiveRegistryKeys() == 0 ? static_cast<int>(stored) : 0;
}

TEST_F(ProcessExitDeathTest, RegistryWorksAndKeepsNoKeyAfterStaticDestruction)
{
    EXPECT_EXIT(ExitWith(StreamTypeAfterDestruction), ::testing::ExitedWithCode(5), "");
}

} // namespace

#endif
