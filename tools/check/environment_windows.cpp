#include "check/environment_windows.h"

#include <windows.h>

#include <audioclient.h>
#include <endpointvolume.h>
#include <mmdeviceapi.h>
#include <objbase.h>
#include <wrl/client.h>

#include <chrono>
#include <new>
#include <thread>

#include "check/default_endpoint.h"
#include "check/caller_state_windows.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;
using Microsoft::WRL::ComPtr;

constexpr REFERENCE_TIME probeBuffer = 2'000'000; // 200 ms in units of 100 ns
constexpr auto longestWaitForSound = 5s;          // a headset that wakes up needs up to three
constexpr auto poll = 3ms;

size_t PageBytes()
{
    SYSTEM_INFO system{};
    GetSystemInfo(&system);
    return system.dwPageSize;
}

// Pages between two inaccessible ones. The memory ends at the end of the last page, because modules read too
// much behind a record rather than before it.
class GuardedPages final : public GuardedMemory {
public:
    explicit GuardedPages(size_t bytes)
        : m_pageBytes(PageBytes()), m_accessibleBytes((bytes + m_pageBytes - 1) / m_pageBytes * m_pageBytes)
    {
        void *reserved =
            VirtualAlloc(nullptr, m_accessibleBytes + 2 * m_pageBytes, MEM_RESERVE, PAGE_NOACCESS);
        if (reserved == nullptr) {
            throw std::bad_alloc();
        }
        m_reserved = static_cast<uint8_t *>(reserved);
        if (VirtualAlloc(FirstPage(), m_accessibleBytes, MEM_COMMIT, PAGE_READWRITE) == nullptr) {
            VirtualFree(m_reserved, 0, MEM_RELEASE);
            throw std::bad_alloc();
        }
        m_data = FirstPage() + m_accessibleBytes - bytes;
    }
    ~GuardedPages() override { VirtualFree(m_reserved, 0, MEM_RELEASE); }
    GuardedPages(const GuardedPages &) = delete;
    GuardedPages &operator=(const GuardedPages &) = delete;

    uint8_t *Data() override { return m_data; }

    void AllowWriting(bool allow) override
    {
        m_writing = allow;
        Protect();
    }

    void AllowAccess(bool allow) override
    {
        m_access = allow;
        Protect();
    }

private:
    uint8_t *FirstPage() const { return m_reserved + m_pageBytes; }

    void Protect()
    {
        const DWORD readable = m_writing ? PAGE_READWRITE : PAGE_READONLY;
        DWORD previous = 0;
        VirtualProtect(FirstPage(), m_accessibleBytes, m_access ? readable : PAGE_NOACCESS, &previous);
    }

    const size_t m_pageBytes;
    const size_t m_accessibleBytes;
    uint8_t *m_reserved = nullptr;
    uint8_t *m_data = nullptr;
    bool m_writing = true;
    bool m_access = true;
};

// An initialised client of the endpoint; null if the endpoint cannot be opened.
ComPtr<IAudioClient> OpenInSharedMode(IMMDevice &device)
{
    ComPtr<IAudioClient> client;
    WAVEFORMATEX *format = nullptr;
    if (FAILED(device.Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, &client)) ||
        FAILED(client->GetMixFormat(&format)) || format == nullptr) {
        return nullptr;
    }
    const HRESULT result = client->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, probeBuffer, 0, format, nullptr);
    CoTaskMemFree(format);
    return SUCCEEDED(result) ? client : nullptr;
}

bool IsMuted(IMMDevice &device)
{
    ComPtr<IAudioEndpointVolume> volume;
    BOOL mute = FALSE;
    return SUCCEEDED(device.Activate(__uuidof(IAudioEndpointVolume), CLSCTX_ALL, nullptr, &volume)) &&
           SUCCEEDED(volume->GetMute(&mute)) && mute != FALSE;
}

// Takes the packets that wait. Returns whether one of them was not flagged as silent; zeros without the flag
// are sound, for a module too.
bool TakesSound(IAudioCaptureClient &capture)
{
    BYTE *data = nullptr;
    UINT32 frames = 0;
    DWORD flags = 0;
    while (capture.GetBuffer(&data, &frames, &flags, nullptr, nullptr) == S_OK && frames != 0) {
        capture.ReleaseBuffer(frames);
        if ((flags & AUDCLNT_BUFFERFLAGS_SILENT) == 0) {
            return true;
        }
    }
    return false;
}

bool TakesSoundInTime(IAudioCaptureClient &capture)
{
    const auto end = std::chrono::steady_clock::now() + longestWaitForSound;
    while (std::chrono::steady_clock::now() < end) {
        if (TakesSound(capture)) {
            return true;
        }
        std::this_thread::sleep_for(poll);
    }
    return false;
}

MicrophoneState Record(IAudioClient &client)
{
    ComPtr<IAudioCaptureClient> capture;
    if (FAILED(client.GetService(__uuidof(IAudioCaptureClient), &capture)) || FAILED(client.Start())) {
        return MicrophoneState::CANNOT_OPEN;
    }
    const bool hasSound = TakesSoundInTime(*capture.Get());
    client.Stop();
    return hasSound ? MicrophoneState::WORKS : MicrophoneState::NO_SOUND;
}

// Examines mute first, because a muted endpoint opens and delivers packets. This function and the next one
// need a thread in a COM apartment.
MicrophoneState ProbeMicrophone()
{
    ComPtr<IMMDevice> device;
    if (FAILED(FindDefaultEndpoint(eCapture, &device))) {
        return MicrophoneState::MISSING;
    }
    if (IsMuted(*device.Get())) {
        return MicrophoneState::MUTED;
    }
    const ComPtr<IAudioClient> client = OpenInSharedMode(*device.Get());
    return client != nullptr ? Record(*client.Get()) : MicrophoneState::CANNOT_OPEN;
}

bool OpensLoudspeaker()
{
    ComPtr<IMMDevice> device;
    return SUCCEEDED(FindDefaultEndpoint(eRender, &device)) && OpenInSharedMode(*device.Get()) != nullptr;
}

// Calls `probe` on a new thread in the multi-threaded apartment. Returns `otherwise` if the thread cannot
// enter the apartment.
template <typename Result>
Result InApartment(Result (*probe)(), Result otherwise)
{
    Result result = otherwise;
    std::thread thread([&result, probe] {
        if (SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {
            result = probe();
            CoUninitialize();
        }
    });
    thread.join();
    return result;
}

} // namespace

std::unique_ptr<GuardedMemory> WindowsEnvironment::Guarded(size_t bytes)
{
    return std::make_unique<GuardedPages>(bytes);
}

std::unique_ptr<CallerState> WindowsEnvironment::MakeCallerState()
{
    return MakeWindowsCallerState();
}

void WindowsEnvironment::Sleep(std::chrono::milliseconds time)
{
    std::this_thread::sleep_for(time);
}

std::chrono::steady_clock::time_point WindowsEnvironment::Now() const
{
    return std::chrono::steady_clock::now();
}

bool WindowsEnvironment::HasLoudspeaker() const
{
    return InApartment(OpensLoudspeaker, false);
}

MicrophoneState WindowsEnvironment::Microphone() const
{
    std::call_once(m_microphoneProbed,
                   [this] { m_microphone = InApartment(ProbeMicrophone, MicrophoneState::MISSING); });
    return m_microphone;
}

bool WindowsEnvironment::Enter(ComApartment apartment)
{
    const DWORD model =
        apartment == ComApartment::SINGLE_THREADED ? COINIT_APARTMENTTHREADED : COINIT_MULTITHREADED;
    return SUCCEEDED(CoInitializeEx(nullptr, model));
}

void WindowsEnvironment::Leave()
{
    CoUninitialize();
}

} // namespace velto::check
