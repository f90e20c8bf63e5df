// The order in which the renderer stops, unregisters and releases.
#include <map>

#include "render_fixture.h"
#include "tests/fakes/journal.h"

namespace {

using namespace velto_test;
using fakewin::Call;

using Steps = std::vector<std::string>;

class RenderReleaseOrder : public RenderTest {
protected:
    RenderReleaseOrder()
    {
        for (const auto &[method, name] :
             {std::pair{Method::Stop, "Stop"}, std::pair{Method::UnregisterCallback, "Unregister"},
              std::pair{Method::Activate, "Activate"}}) {
            for (const int nth : {1, 2}) {
                audio.Before(
                    method, [name = name] { fakes::Note(name); }, nth);
            }
        }
    }

    // Opens the renderer, names its resources, and clears the journal.
    void OpenAndName()
    {
        ASSERT_TRUE(Open());
        NameSubjects();
        fakes::ClearJournal();
    }

    // Gives names to the blocks and events that the renderer has now.
    void NameSubjects()
    {
        m_names = {{probe.MixFormat(), " mix format"},
                   {probe.DeviceId(), " device id"},
                   {probe.BufferEvent(), " buffer event"},
                   {probe.WaitEvent(), " wait event"}};
        m_names.erase(nullptr);
    }

    Steps Journal() const
    {
        Steps steps;
        for (const fakes::JournalEntry &entry : fakes::Journal()) {
            const auto found = m_names.find(entry.subject);
            steps.push_back(std::string(entry.call) + (found == m_names.end() ? "" : found->second));
        }
        return steps;
    }

private:
    std::map<const void *, std::string> m_names;
};

TEST_F(RenderReleaseOrder, CloseStopsUnregistersReleasesClientsAndLeavesCom)
{
    OpenAndName();
    player->Close();
    EXPECT_EQ(Journal(), (Steps{"Stop", "Unregister", "Release IAudioClient", "Release IAudioRenderClient",
                                "CoUninitialize"}));
}

TEST_F(RenderReleaseOrder, DestructionFreesResourcesBeforeEndpointObjects)
{
    OpenAndName();
    IAudioRenderClient *client = probe.RenderClient();
    player.reset();
    EXPECT_EQ(Journal(), (Steps{"Unregister", "CoTaskMemFree mix format", "CloseHandle buffer event",
                                "CoTaskMemFree device id", "CloseHandle wait event", "Release IMMDevice",
                                "Release IMMDeviceEnumerator", "Release IAudioClient"}));
    client->Release(); // the destructor does not release it
    fakewin::CoUninitialize();
}

TEST_F(RenderReleaseOrder, DestructionAfterCloseReleasesRest)
{
    OpenAndName();
    player->Close();
    fakes::ClearJournal();
    player.reset();
    EXPECT_EQ(Journal(),
              (Steps{"CoTaskMemFree mix format", "CloseHandle buffer event", "CoTaskMemFree device id",
                     "CloseHandle wait event", "Release IMMDevice", "Release IMMDeviceEnumerator"}));
}

TEST_F(RenderReleaseOrder, ReopeningReleasesEarlierOpeningFirst)
{
    OpenAndName();
    player->Close();
    SwrContext *lost = probe.TakeResampler(); // the next Open would leak the converter
    swr_free(&lost);
    fakes::ClearJournal();
    ASSERT_TRUE(Open());
    EXPECT_EQ(Journal(), (Steps{"CloseHandle buffer event", "Release IMMDevice",
                                "Release IMMDeviceEnumerator", "CoTaskMemFree device id",
                                "CoTaskMemFree mix format", "CloseHandle wait event", "Activate"}));
}

TEST_F(RenderReleaseOrder, FailedRegistrationReleasesEnumeratorThenResourcesAndLeavesCom)
{
    audio.Fail(Method::RegisterCallback, E_FAIL, 1, 2);
    HANDLE event = nullptr;
    fakewin::Before(Call::CoInitializeEx, [&] {
        event = probe.BufferEvent();
        NameSubjects();
    });
    EXPECT_FALSE(Open());
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(Journal(),
              (Steps{"Release IMMDeviceEnumerator", "CloseHandle buffer event", "CoUninitialize"}));
}

// The wait event is created last, when all three objects exist.
TEST_F(RenderReleaseOrder, FailedDeviceSetupReleasesDeviceBeforeClients)
{
    fakewin::Fail(Call::CreateEventW, ERROR_NOT_ENOUGH_MEMORY, 2);
    EXPECT_TRUE(Open());
    EXPECT_EQ(Journal(),
              (Steps{"Activate", "Release IMMDevice", "Release IAudioClient", "Release IAudioRenderClient"}));
}

TEST_F(RenderReleaseOrder, FailedReactivationReleasesClient)
{
    OpenAndName();
    InvalidateSpeakers();
    audio.Fail(Method::GetService, E_FAIL, 1, 2);
    EXPECT_EQ(probe.CheckDeviceChanged(), 1);
    EXPECT_EQ(Journal(), (Steps{"Stop", "Release IAudioClient", "Release IAudioRenderClient",
                                "CoTaskMemFree mix format", "Activate", "Release IAudioClient"}));
}

TEST_F(RenderReleaseOrder, SwitchFreesIdStopsReleasesClientsAndDeviceBeforeActivation)
{
    OpenAndName();
    audio.Add(L"headset");
    audio.ChangeDefaultSpeaker(L"headset");
    EXPECT_EQ(probe.CheckDeviceChanged(), 0);
    EXPECT_EQ(Journal(),
              (Steps{"CoTaskMemFree device id", "Stop", "Release IAudioClient", "Release IAudioRenderClient",
                     "CoTaskMemFree mix format", "Release IMMDevice", "Activate"}));
}

TEST_F(RenderReleaseOrder, NewFormatStopsReleasesClientsAndFormatBeforeActivation)
{
    OpenAndName();
    InvalidateSpeakers();
    EXPECT_EQ(probe.CheckDeviceChanged(), 0);
    EXPECT_EQ(Journal(), (Steps{"Stop", "Release IAudioClient", "Release IAudioRenderClient",
                                "CoTaskMemFree mix format", "Activate"}));
}

} // namespace
