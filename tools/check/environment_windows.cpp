#include "check/environment_windows.h"

#include <windows.h>

#include <audioclient.h>
#include <mmdeviceapi.h>
#include <objbase.h>
#include <wrl/client.h>

#include <new>
#include <thread>

#include "check/caller_state_windows.h"

namespace velto::check {
namespace {

using Microsoft::WRL::ComPtr;

constexpr REFERENCE_TIME probeBuffer = 2'000'000; // 200 ms in units of 100 ns

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

bool OpensInSharedMode(IAudioClient &client)
{
    WAVEFORMATEX *format = nullptr;
    if (FAILED(client.GetMixFormat(&format)) || format == nullptr) {
        return false;
    }
    const HRESULT result = client.Initialize(AUDCLNT_SHAREMODE_SHARED, 0, probeBuffer, 0, format, nullptr);
    CoTaskMemFree(format);
    return SUCCEEDED(result);
}

// On a thread in an apartment.
bool OpensDefaultEndpoint(EDataFlow flow)
{
    ComPtr<IMMDeviceEnumerator> enumerator;
    ComPtr<IMMDevice> device;
    ComPtr<IAudioClient> client;
    return SUCCEEDED(CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL,
                                      __uuidof(IMMDeviceEnumerator), &enumerator)) &&
           SUCCEEDED(enumerator->GetDefaultAudioEndpoint(flow, eConsole, &device)) &&
           SUCCEEDED(device->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, &client)) &&
           OpensInSharedMode(*client.Get());
}

bool HasEndpoint(EDataFlow flow)
{
    bool opens = false;
    std::thread probe([&opens, flow] {
        if (SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {
            opens = OpensDefaultEndpoint(flow);
            CoUninitialize();
        }
    });
    probe.join();
    return opens;
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
    return HasEndpoint(eRender);
}

bool WindowsEnvironment::HasMicrophone() const
{
    return HasEndpoint(eCapture);
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
