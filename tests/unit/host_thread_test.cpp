// Host threads that are in a COM apartment: every slot works and leaves the apartment and the last error as
// they were.
#include <array>

#include "aac_units.h"
#include "capture_fixture.h"
#include "handler/speaker_track.h"
#include "host_calls.h"
#include "reset.h"

namespace {

using namespace velto_test;

constexpr DWORD hostsLastError = 1168;

class HostThread : public ::testing::TestWithParam<DWORD> {
protected:
    HostThread()
    {
        fakes::ResetAll();
        m_audio.Get(L"speakers").drainFrames = 4800;
        m_audio.Get(L"microphone").source = [] { return QuietPacket(1024); };
        EXPECT_EQ(fakewin::CoInitializeEx(nullptr, GetParam()), S_OK);
        fakewin::SetLastError(hostsLastError);
        EXPECT_EQ(VELTOGetAudioHandler(&m_table), VELTO_OK);
        ExpectSameThreadState("the entry");
    }
    ~HostThread() override
    {
        EXPECT_TRUE(Eventually([] {
            fakewin::AdvanceClock(idleMs);
            return velto::DeviceState == velto::DEVICE_NOT_INITIALISED && fakewin::LiveThreads() == 0;
        }));
        fakewin::CoUninitialize();
        EXPECT_EQ(fakewin::OpenApartments(), 0);
        EXPECT_EQ(m_audio.RegisteredCallbacks(), 0);
        EXPECT_EQ(fakewin::Violations(), std::vector<std::string>{});
    }

    // Expects that the calling thread is in its apartment, once, and has the host's last error.
    static void ExpectSameThreadState(const char *call)
    {
        EXPECT_EQ(fakewin::GetLastError(), hostsLastError) << call;
        EXPECT_EQ(fakewin::ApartmentDepth(), 1) << call;
        EXPECT_EQ(fakewin::CoInitializeEx(nullptr, GetParam()), S_FALSE) << call;
        fakewin::CoUninitialize();
        fakewin::SetLastError(hostsLastError);
    }

    void Write(const char *id, AacUnit unit)
    {
        HostFrame record(unit);
        EXPECT_EQ(m_table.WriteStreamBuffer(id, Length(id), nullptr, &record.frame), VELTO_OK);
        ExpectSameThreadState("WriteStreamBuffer");
    }

    bool ReadUnit()
    {
        std::array<uint8_t, VELTO_MAX_PACKET_BYTES> buffer;
        HostFrame record(buffer.data(), VELTO_READ_SIZE);
        EXPECT_EQ(m_table.ReadStreamBuffer("mic1", 4, nullptr, &record.frame), VELTO_OK);
        ExpectSameThreadState("ReadStreamBuffer");
        return record.header.size != 0 && record.header.size != VELTO_READ_SIZE;
    }

    fakes::AudioSystem &m_audio = fakes::AudioSystem::Instance();
    AudioHandlerTable m_table{};
};

TEST_P(HostThread, SpeakerSlotsPlayAndKeepThreadState)
{
    const AudioProfileEntry rate{VELTO_KEY_SAMPLE_RATE, 10, 48000};
    const AudioProfileList list{1, 0, &rate};
    EXPECT_EQ(m_table.SetAudioParameter("speaker1", 8, nullptr, nullptr, &list), VELTO_OK);
    ExpectSameThreadState("SetAudioParameter");
    for (const AacUnit &unit : EncodeTone(8)) {
        Write("speaker1", unit);
        Write("ModemSpeaker1", unit);
    }
    EXPECT_TRUE(Eventually([this] { return !m_audio.Written(L"speakers").empty(); }));
    EXPECT_EQ(m_table.CloseAudioTrack("speaker1", 8), VELTO_OK);
    ExpectSameThreadState("CloseAudioTrack");
}

TEST_P(HostThread, MicrophoneSlotsRecordAndKeepThreadState)
{
    const AudioProfileList none{};
    EXPECT_EQ(m_table.OpenAudioRecord("mic1", 4, nullptr, nullptr, &none), VELTO_OK);
    ExpectSameThreadState("OpenAudioRecord");
    EXPECT_EQ(m_audio.RegisteredCallbacks(), 1) << "default microphones are followed";
    EXPECT_TRUE(Eventually([this] { return ReadUnit(); }));
    EXPECT_EQ(m_table.CloseAudioRecord("mic1", 4), VELTO_OK);
    ExpectSameThreadState("CloseAudioRecord");
}

TEST_P(HostThread, OtherSlotsKeepThreadState)
{
    AudioCapabilityItem *items = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(m_table.GetAudioCapability(&items, &count), VELTO_OK);
    ExpectSameThreadState("GetAudioCapability");
    m_table.Release(VELTO_RELEASE_CAPABILITIES, items, count);
    ExpectSameThreadState("Release");
    const AudioListener none{nullptr, nullptr};
    EXPECT_EQ(m_table.RegisterListener(&none), VELTO_OK);
    ExpectSameThreadState("RegisterListener");
    EXPECT_EQ(m_table.NoOperation1(), VELTO_OK);
    EXPECT_EQ(m_table.NoOperation10(), VELTO_OK);
    ExpectSameThreadState("the no-operation slots");
}

INSTANTIATE_TEST_SUITE_P(, HostThread,
                         ::testing::Values(DWORD{COINIT_APARTMENTTHREADED}, DWORD{COINIT_MULTITHREADED}),
                         [](const auto &model) {
                             return model.param == COINIT_APARTMENTTHREADED ? "SingleThreaded"
                                                                            : "MultiThreaded";
                         });

} // namespace
