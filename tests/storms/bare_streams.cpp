// velto-bare-streams SECONDS EXIT_CODE: plays on two streams, and opens, records on and closes another one
// repeatedly. Ends the process meanwhile. It does not use the module: its rate of crashes at the end is that
// of Wine alone.
#include <initguid.h> // before the others: defines the interface ids used below

#include <windows.h>

#include <audioclient.h>
#include <mmdeviceapi.h>
#include <wrl/client.h>

#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

using Microsoft::WRL::ComPtr;

constexpr REFERENCE_TIME bufferTicks = 3000000; // 300 ms
constexpr DWORD recordingMs = 200;

// Plays the samples of new buffers as they are.
void MoveSound(IAudioClient &client, EDataFlow flow, UINT32 bufferFrames)
{
    ComPtr<IAudioRenderClient> render;
    ComPtr<IAudioCaptureClient> capture;
    BYTE *samples = nullptr;
    UINT32 frames = 0;
    DWORD flags = 0;
    if (flow == eRender) {
        client.GetService(IID_PPV_ARGS(&render));
        client.GetCurrentPadding(&frames);
        if (render && SUCCEEDED(render->GetBuffer(bufferFrames - frames, &samples))) {
            render->ReleaseBuffer(bufferFrames - frames, 0);
        }
    } else {
        client.GetService(IID_PPV_ARGS(&capture));
        if (capture && capture->GetBuffer(&samples, &frames, &flags, nullptr, nullptr) == S_OK) {
            capture->ReleaseBuffer(frames);
        }
    }
}

void RunStreams(EDataFlow flow, DWORD streamMs)
{
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    for (;;) {
        ComPtr<IMMDeviceEnumerator> enumerator;
        ComPtr<IMMDevice> device;
        ComPtr<IAudioClient> client;
        WAVEFORMATEX *format = nullptr;
        UINT32 bufferFrames = 0;
        if (FAILED(
                CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_PPV_ARGS(&enumerator))) ||
            FAILED(enumerator->GetDefaultAudioEndpoint(flow, eConsole, &device)) ||
            FAILED(device->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, &client)) ||
            FAILED(client->GetMixFormat(&format)) ||
            FAILED(client->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, bufferTicks, 0, format, nullptr)) ||
            FAILED(client->GetBufferSize(&bufferFrames)) || FAILED(client->Start())) {
            std::fputs("a stream cannot be opened\n", stderr);
            ExitProcess(1);
        }
        CoTaskMemFree(format);
        for (DWORD ms = 0; ms < streamMs; ++ms) {
            MoveSound(*client.Get(), flow, bufferFrames);
            Sleep(1);
        }
        client->Stop();
    }
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        return 2;
    }
    std::fputs("starting\n", stderr);
    std::thread(RunStreams, eRender, INFINITE).detach();
    std::thread(RunStreams, eRender, INFINITE).detach();
    std::thread(RunStreams, eCapture, recordingMs).detach();
    Sleep(static_cast<DWORD>(1000 * std::atof(argv[1])));
    std::printf("the streams run\n");
    std::fflush(stdout);
    ExitProcess(static_cast<UINT>(std::atoi(argv[2])));
}
