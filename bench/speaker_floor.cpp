#include "bench/speaker_floor.h"

#include <audioclient.h>
#include <ks.h>
#include <ksmedia.h>
#include <mmdeviceapi.h>
#include <objbase.h>

#include <cstdio>
#include <exception>
#include <memory>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

#include "bench/ffmpeg_library.h"

namespace velto::bench {
namespace {

constexpr REFERENCE_TIME buffer100ns = 3000000; // 300 ms
constexpr int rateHz = 48000;
constexpr size_t blockFrameBytes = 2 * sizeof(int16_t);
constexpr DWORD roomWaitMs = 10;
constexpr int maxRetries = 8;

struct ReleaseObject {
    void operator()(IUnknown *object) const { object->Release(); }
};
template <typename Object>
using Owned = std::unique_ptr<Object, ReleaseObject>;

template <typename Object, typename Call>
Owned<Object> Obtain(const char *what, Call call)
{
    Object *object = nullptr;
    Require(SUCCEEDED(call(reinterpret_cast<void **>(&object))), what);
    return Owned<Object>(object);
}

// A running stream on the default endpoint, and the converter to its format.
class Stream {
public:
    Stream() : m_roomEvent(CreateEventW(nullptr, FALSE, FALSE, nullptr))
    {
        Activate();
        Initialize();
        OpenConverter();
        Require(SUCCEEDED(m_client->SetEventHandle(m_roomEvent)) &&
                    SUCCEEDED(m_client->GetBufferSize(&m_bufferFrames)),
                "setting up the buffer");
        m_render = Obtain<IAudioRenderClient>("getting the render client", [this](void **object) {
            return m_client->GetService(__uuidof(IAudioRenderClient), object);
        });
        Require(SUCCEEDED(m_client->Start()), "starting the stream");
    }
    ~Stream()
    {
        m_client->Stop();
        swr_free(&m_converter);
        CloseHandle(m_roomEvent);
    }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    // False if the buffer stayed full, and the block was dropped.
    bool Play(const Block &block)
    {
        const auto frames = static_cast<UINT32>(block.size / blockFrameBytes);
        for (int retry = 0; retry <= maxRetries; ++retry) {
            UINT32 padding = 0;
            Require(SUCCEEDED(m_client->GetCurrentPadding(&padding)), "querying the padding");
            if (m_bufferFrames - padding >= frames) {
                Write(block, frames);
                return true;
            }
            Sleep(1);
            WaitForSingleObject(m_roomEvent, roomWaitMs);
        }
        return false;
    }

private:
    void Activate()
    {
        const auto devices = Obtain<IMMDeviceEnumerator>("creating the enumerator", [](void **object) {
            return CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL,
                                    __uuidof(IMMDeviceEnumerator), object);
        });
        const auto device = Obtain<IMMDevice>("finding the default endpoint", [&](void **object) {
            return devices->GetDefaultAudioEndpoint(eRender, eConsole,
                                                    reinterpret_cast<IMMDevice **>(object));
        });
        m_client = Obtain<IAudioClient>("activating a client", [&](void **object) {
            return device->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, object);
        });
    }

    // As the renderer does, relabels the endpoint's floats as integers.
    void Initialize()
    {
        WAVEFORMATEX *format = nullptr;
        Require(SUCCEEDED(m_client->GetMixFormat(&format)), "querying the mix format");
        Require(format->nSamplesPerSec == rateHz && format->nChannels == 2 && format->wBitsPerSample == 32 &&
                    format->wFormatTag == WAVE_FORMAT_EXTENSIBLE,
                "finding an endpoint with 48000 Hz, 2 channels and 32 bits");
        reinterpret_cast<WAVEFORMATEXTENSIBLE *>(format)->SubFormat = KSDATAFORMAT_SUBTYPE_PCM;
        Require(SUCCEEDED(m_client->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_EVENTCALLBACK,
                                               buffer100ns, 0, format, nullptr)),
                "initialising a client");
        CoTaskMemFree(format);
    }

    void OpenConverter()
    {
        AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
        Require(swr_alloc_set_opts2(&m_converter, &stereo, AV_SAMPLE_FMT_S32, rateHz, &stereo,
                                    AV_SAMPLE_FMT_S16, rateHz, 0, nullptr) == 0 &&
                    swr_init(m_converter) == 0,
                "opening the converter");
    }

    void Write(const Block &block, UINT32 frames)
    {
        BYTE *buffer = nullptr;
        Require(SUCCEEDED(m_render->GetBuffer(frames, &buffer)), "getting the buffer");
        const uint8_t *source = block.bytes.get();
        const int count = static_cast<int>(frames);
        Require(swr_convert(m_converter, &buffer, count, &source, count) == count, "converting");
        Require(SUCCEEDED(m_render->ReleaseBuffer(frames, 0)), "releasing the buffer");
    }

    HANDLE m_roomEvent;
    SwrContext *m_converter = nullptr;
    Owned<IAudioClient> m_client;
    Owned<IAudioRenderClient> m_render;
    UINT32 m_bufferFrames = 0;
};

} // namespace

SpeakerFloor::SpeakerFloor(BlockQueue &queue) : m_queue(queue), m_thread(&SpeakerFloor::Run, this) {}

SpeakerFloor::~SpeakerFloor()
{
    m_stop = true;
    m_thread.join();
}

void SpeakerFloor::Run()
{
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_SPEED_OVER_MEMORY);
    try {
        Play();
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "speaker floor: %s\n", problem.what());
        m_played = -1;
    }
    CoUninitialize();
}

void SpeakerFloor::Play()
{
    Stream stream;
    while (!m_stop) {
        if (const std::unique_ptr<Block> block = m_queue.Pop()) {
            m_played += stream.Play(*block) ? 1 : 0;
        }
        Sleep(1);
    }
}

} // namespace velto::bench
