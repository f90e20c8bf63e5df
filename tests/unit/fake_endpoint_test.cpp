// The fake endpoint must refuse what an audio engine refuses. Otherwise tests with such formats, streams or
// calls would check nothing.
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

    // Runs `use` with a new client of the default endpoint and returns its result.
    template <typename Use>
    static HRESULT WithClient(EDataFlow flow, Use use)
    {
        IMMDeviceEnumerator *enumerator = nullptr;
        IMMDevice *device = nullptr;
        IAudioClient *client = nullptr;
        fakewin::CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                                  reinterpret_cast<void **>(&enumerator));
        enumerator->GetDefaultAudioEndpoint(flow, eConsole, &device);
        device->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, reinterpret_cast<void **>(&client));
        const HRESULT result = use(*client);
        client->Release();
        device->Release();
        enumerator->Release();
        return result;
    }

    // Returns the result of Initialize for a new client.
    static HRESULT Initialize(const WAVEFORMATEX *format)
    {
        return WithClient(eRender, [&](IAudioClient &client) {
            return client.Initialize(AUDCLNT_SHAREMODE_SHARED, 0, 3000000, 0, format, nullptr);
        });
    }

    // Returns the result of Initialize with the mix format and these arguments.
    static HRESULT InitializeStream(EDataFlow flow, AUDCLNT_SHAREMODE mode, DWORD flags,
                                    REFERENCE_TIME duration, REFERENCE_TIME periodicity)
    {
        const WAVEFORMATEX format = Pcm(2, 16, 48000);
        return WithClient(flow, [&](IAudioClient &client) {
            return client.Initialize(mode, flags, duration, periodicity, &format, nullptr);
        });
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
            fakes::AudioSystem::Instance().Get(L"speakers").mixFormat = {channels, 32, 44100};
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

TEST_F(FakeEndpointFormat, InitializeRefusesOtherRateOrChannelsThanMixFormat)
{
    const WAVEFORMATEX rate = Pcm(2, 16, 44100);
    EXPECT_EQ(Initialize(&rate), AUDCLNT_E_UNSUPPORTED_FORMAT);
    const WAVEFORMATEX channels = Pcm(6, 16, 48000);
    EXPECT_EQ(Initialize(&channels), AUDCLNT_E_UNSUPPORTED_FORMAT);
}

TEST_F(FakeEndpointFormat, InitializeRefusesSampleTypesThatEngineCannotMix)
{
    const auto initialize = [](WORD bits, WORD validBits, uint32_t subFormat) {
        WAVEFORMATEXTENSIBLE format{};
        format.Format = Pcm(2, bits, 48000);
        format.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
        format.Format.cbSize = sizeof format - sizeof format.Format;
        format.Samples.wValidBitsPerSample = validBits;
        format.SubFormat = {subFormat, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
        return Initialize(&format.Format);
    };
    constexpr uint32_t pcm = 1;
    constexpr uint32_t ieeeFloat = 3;
    constexpr uint32_t mp3 = 0x55;
    EXPECT_EQ(initialize(32, 32, pcm), S_OK);
    EXPECT_EQ(initialize(32, 24, pcm), S_OK);
    EXPECT_EQ(initialize(32, 32, ieeeFloat), S_OK);
    EXPECT_EQ(initialize(32, 24, ieeeFloat), AUDCLNT_E_UNSUPPORTED_FORMAT);
    EXPECT_EQ(initialize(16, 16, ieeeFloat), AUDCLNT_E_UNSUPPORTED_FORMAT);
    EXPECT_EQ(initialize(16, 24, pcm), AUDCLNT_E_UNSUPPORTED_FORMAT);
    EXPECT_EQ(initialize(16, 0, pcm), AUDCLNT_E_UNSUPPORTED_FORMAT);
    EXPECT_EQ(initialize(16, 16, mp3), AUDCLNT_E_UNSUPPORTED_FORMAT);
}

TEST_F(FakeEndpointFormat, InitializeRefusesStreamsThatSharedModeDoesNotHave)
{
    constexpr auto shared = AUDCLNT_SHAREMODE_SHARED;
    EXPECT_EQ(InitializeStream(eRender, shared, AUDCLNT_STREAMFLAGS_EVENTCALLBACK, 3000000, 0), S_OK);
    EXPECT_EQ(InitializeStream(eRender, shared, AUDCLNT_STREAMFLAGS_LOOPBACK, 3000000, 0), S_OK);
    EXPECT_EQ(InitializeStream(eRender, AUDCLNT_SHAREMODE_EXCLUSIVE, 0, 3000000, 0),
              static_cast<HRESULT>(0x8889000E)); // AUDCLNT_E_EXCLUSIVE_MODE_NOT_ALLOWED
    EXPECT_EQ(InitializeStream(eRender, shared, 1, 3000000, 0), E_INVALIDARG) << "an unknown flag";
    EXPECT_EQ(InitializeStream(eRender, shared, 0, 3000000, 100000), E_INVALIDARG) << "a period";
    EXPECT_EQ(InitializeStream(eRender, shared, 0, -1, 0), E_INVALIDARG) << "a negative duration";
    EXPECT_EQ(InitializeStream(eCapture, shared, AUDCLNT_STREAMFLAGS_LOOPBACK, 3000000, 0),
              static_cast<HRESULT>(0x88890003)); // AUDCLNT_E_WRONG_ENDPOINT_TYPE
}

TEST_F(FakeEndpointFormat, ClientRefusesCallsBeforeInitialize)
{
    const auto use = [](auto call) { return WithClient(eRender, call); };
    UINT32 frames = 0;
    void *service = nullptr;
    const HANDLE event = reinterpret_cast<HANDLE>(uintptr_t{4});
    EXPECT_EQ(use([&](IAudioClient &client) { return client.Start(); }), AUDCLNT_E_NOT_INITIALIZED);
    EXPECT_EQ(use([&](IAudioClient &client) { return client.SetEventHandle(event); }),
              AUDCLNT_E_NOT_INITIALIZED);
    EXPECT_EQ(use([&](IAudioClient &client) { return client.GetBufferSize(&frames); }),
              AUDCLNT_E_NOT_INITIALIZED);
    EXPECT_EQ(use([&](IAudioClient &client) { return client.GetCurrentPadding(&frames); }),
              AUDCLNT_E_NOT_INITIALIZED);
    EXPECT_EQ(
        use([&](IAudioClient &client) { return client.GetService(__uuidof(IAudioRenderClient), &service); }),
        AUDCLNT_E_NOT_INITIALIZED);
}

TEST_F(FakeEndpointFormat, ClientRefusesEventWithoutFlagAndSecondStart)
{
    EXPECT_EQ(WithClient(eRender,
                         [](IAudioClient &client) {
                             const WAVEFORMATEX format = Pcm(2, 16, 48000);
                             EXPECT_EQ(
                                 client.Initialize(AUDCLNT_SHAREMODE_SHARED, 0, 3000000, 0, &format, nullptr),
                                 S_OK);
                             EXPECT_EQ(client.SetEventHandle(reinterpret_cast<HANDLE>(uintptr_t{4})),
                                       AUDCLNT_E_EVENTHANDLE_NOT_EXPECTED);
                             EXPECT_EQ(client.Start(), S_OK);
                             return client.Start();
                         }),
              AUDCLNT_E_NOT_STOPPED);
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
