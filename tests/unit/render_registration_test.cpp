// Notifications after an unregistration that failed.
#include "render_fixture.h"

namespace {

using namespace velto_test;

int References()
{
    return fakewin::ModuleReferences(fakewin::ThisModule());
}

class RenderRegistration : public RenderTest {
protected:
    // Stands for the end of the process: it ends the registrations, and the references that keep the module
    // mapped for them.
    void EndProcess()
    {
        audio.Reset();
        while (References() > m_earlierReferences) {
            fakewin::FreeLibrary(fakewin::ThisModule());
        }
    }

private:
    const int m_earlierReferences = References();
};

TEST_F(RenderRegistration, SurvivesNotificationAfterFailedUnregistration)
{
    const int references = References();
    EXPECT_TRUE(Open());
    audio.Fail(Method::UnregisterCallback, E_POINTER);
    Destroy();
    ASSERT_EQ(audio.RegisteredCallbacks(), 1);
    EXPECT_EQ(References(), references + 1) << "the callback's code stays mapped";
    ClearLog();
    audio.NotifyDefaultChanged(eRender, eMultimedia, L"speakers");
    ExpectLine(errorLevel, L"WasapiDeviceEvents playerWas is nullptr",
               "WasapiDeviceEvents::OnDefaultDeviceChanged");
    EndProcess();
}

TEST_F(RenderRegistration, ReopensAfterFailedUnregistration)
{
    EXPECT_TRUE(Open());
    audio.Fail(Method::UnregisterCallback, E_POINTER);
    player->Close();
    SwrContext *lost = probe.TakeResampler(); // the next Open would leak the converter
    swr_free(&lost);
    EXPECT_TRUE(Open());
    EXPECT_EQ(audio.RegisteredCallbacks(), 2);
    audio.NotifyDefaultChanged(eRender, eMultimedia, L"speakers");
    EXPECT_TRUE(probe.DeviceChanged()) << "the second registration is followed";
    Destroy();
    EXPECT_EQ(audio.RegisteredCallbacks(), 1);
    EndProcess();
}

TEST_F(RenderRegistration, SurvivesFailedUndoOfSecondRegistration)
{
    audio.Fail(Method::RegisterCallback, E_OUTOFMEMORY);
    audio.Fail(Method::UnregisterCallback, E_POINTER);
    EXPECT_FALSE(Open());
    ASSERT_EQ(audio.RegisteredCallbacks(), 1);
    Destroy();
    audio.NotifyDefaultChanged(eRender, eMultimedia, L"speakers");
    EndProcess();
}

TEST_F(RenderRegistration, ReleasesClientWhenSystemReportsNotRegistered)
{
    const int references = References();
    EXPECT_TRUE(Open());
    audio.Fail(Method::UnregisterCallback, E_NOTFOUND);
    Destroy();
    EXPECT_EQ(audio.RegisteredCallbacks(), 0);
    EXPECT_EQ(References(), references);
}

} // namespace
