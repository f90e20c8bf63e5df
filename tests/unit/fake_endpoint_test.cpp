// The fake endpoint must refuse the formats that an audio engine refuses. Otherwise tests with such formats
// would check nothing.
#include <gtest/gtest.h>

#include "reset.h"
#include "tests/fakes/fake_endpoint.h"
#include "tests/fakes/fake_windows.h"

namespace {

class FakeEndpointFormat : public ::testing::Test {
protected:
    FakeEndpointFormat()
    {
        fakes::ResetAll();
        EXPECT_EQ(fakewin::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    }
    ~FakeEndpointFormat() override { fakewin::CoUninitialize(); }

    // Returns the result of Initialize for a new client.
    static HRESULT Initialize(const WAVEFORMATEX *format)
    {
        IMMDeviceEnumerator *enumerator = nullptr;
        IMMDevice *device = nullptr;
        IAudioClient *client = nullptr;
        fakewin::CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                                  reinterpret_cast<void **>(&enumerator));
        enumerator->GetDefaultAudioEndpoint(eRender, eConsole, &device);
        device->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, reinterpret_cast<void **>(&client));
        const HRESULT result = client->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, 3000000, 0, format, nullptr);
        client->Release();
        device->Release();
        enumerator->Release();
        return result;
    }

    static WAVEFORMATEX Pcm(WORD channels, WORD bits, DWORD rateHz)
    {
        WAVEFORMATEX format{};
        format.wFormatTag = WAVE_FORMAT_PCM;
        format.nChannels = channels;
        format.wBitsPerSample = bits;
        format.nSamplesPerSec = rateHz;
        format.nBlockAlign = static_cast<WORD>(channels * bits / 8);
        format.nAvgBytesPerSec = rateHz * format.nBlockAlign;
        return format;
    }

    // Initializes a client with 16-bit stereo at 48000 Hz after `change`.
    template <typename Change>
    static HRESULT InitializeWith(Change change)
    {
        WAVEFORMATEX format = Pcm(2, 16, 48000);
        change(format);
        return Initialize(&format);
    }
};

TEST_F(FakeEndpointFormat, InitializeAcceptsConsistentFormats)
{
    for (const WORD channels : {1, 2, 3, 6, 8}) {
        for (const WORD bits : {8, 16, 24, 32}) {
            const WAVEFORMATEX format = Pcm(channels, bits, 44100);
            EXPECT_EQ(Initialize(&format), S_OK) << channels << " channels, " << bits << " bits";
        }
    }
}

TEST_F(FakeEndpointFormat, InitializeRefusesInvalidFormats)
{
    EXPECT_EQ(Initialize(nullptr), E_POINTER);
    EXPECT_EQ(InitializeWith([](WAVEFORMATEX &format) { format.nBlockAlign = 0; }), E_INVALIDARG);
    EXPECT_EQ(InitializeWith([](WAVEFORMATEX &format) { format.nBlockAlign = 8; }), E_INVALIDARG);
    EXPECT_EQ(InitializeWith([](WAVEFORMATEX &format) { format.nAvgBytesPerSec = 0; }), E_INVALIDARG);
    EXPECT_EQ(InitializeWith([](WAVEFORMATEX &format) { ++format.nAvgBytesPerSec; }), E_INVALIDARG);
    EXPECT_EQ(InitializeWith([](WAVEFORMATEX &format) { format.nChannels = 0; }), E_INVALIDARG);
    EXPECT_EQ(InitializeWith([](WAVEFORMATEX &format) { format.wBitsPerSample = 0; }), E_INVALIDARG);
    EXPECT_EQ(InitializeWith([](WAVEFORMATEX &format) { format.nSamplesPerSec = 0; }), E_INVALIDARG);
    EXPECT_EQ(InitializeWith([](WAVEFORMATEX &format) { format.wFormatTag = WAVE_FORMAT_EXTENSIBLE; }),
              E_INVALIDARG)
        << "the extension is missing";
    const WAVEFORMATEX zeros{};
    EXPECT_EQ(Initialize(&zeros), E_INVALIDARG);
}

TEST_F(FakeEndpointFormat, InitializeRefusesFormatsThatEngineCannotMix)
{
    EXPECT_EQ(InitializeWith([](WAVEFORMATEX &format) { format.wFormatTag = 0x55; }),
              AUDCLNT_E_UNSUPPORTED_FORMAT)
        << "an MP3 stream";
    for (const WORD bits : {12, 40, 64}) {
        const WAVEFORMATEX format = Pcm(2, bits, 48000);
        EXPECT_EQ(Initialize(&format), AUDCLNT_E_UNSUPPORTED_FORMAT) << bits << " bits";
    }
}

TEST_F(FakeEndpointFormat, InitializeAcceptsAnyFormatButNullOnRequest)
{
    fakes::AudioSystem::Instance().Get(L"speakers").acceptsAnyFormat = true;
    EXPECT_EQ(InitializeWith([](WAVEFORMATEX &format) { format.nBlockAlign = 0; }), S_OK);
    const WAVEFORMATEX zeros{};
    EXPECT_EQ(Initialize(&zeros), S_OK);
    EXPECT_EQ(Initialize(nullptr), E_POINTER);
}

} // namespace
