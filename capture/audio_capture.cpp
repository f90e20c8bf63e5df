// Threads and life cycle.
#include "capture/audio_capture.h"

#include <new>

#include "handler/log.h"
#include "support/com.h"
#include "support/module_reference.h"

extern "C" {
#include <libswresample/swresample.h>
}

namespace velto {
namespace {

constexpr char createTag[] = "AudioCapture::Create";
constexpr char prepareTag[] = "AudioCapture::Prepare";
constexpr char initializeTag[] = "AudioCapture::Initialize";
constexpr DWORD stopPollMs = 50;

} // namespace

// The members that belong to the platform's codec library may allocate in their constructors and throw.
AudioCapture *AudioCapture::Create()
{
    try {
        auto *capture = new (std::nothrow) AudioCapture;
        if (capture != nullptr) {
            return capture;
        }
    } catch (const std::bad_alloc &) {
        // reported below
    }
    LogError(createTag, "Alloc screen record object failed!No memory?");
    return nullptr;
}

AudioCapture::~AudioCapture()
{
    EndRestarts();
    WaitInitThread();
    SafeCloseHandle(m_initThread);
    ReplaceNotifier(nullptr); // there is one only if Start was called after Stop
}

void AudioCapture::SetTarget(uint32_t sampleRateHz, uint32_t channels, int32_t sampleFormat)
{
    m_targetSampleRateHz = sampleRateHz;
    m_targetChannels = channels;
    m_targetSampleFormat = sampleFormat;
}

int32_t AudioCapture::Prepare()
{
    const std::lock_guard lock(m_stateMutex);
    if (m_state != CAPTURE_NOT_PREPARED) {
        return m_state;
    }
    const HANDLE ready = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (ready == nullptr) {
        LogError(prepareTag, "Create windows event failed! err=", GetLastError());
        return CAPTURE_SYSTEM_FAILED;
    }
    {
        const std::lock_guard readyLock(m_readyMutex);
        m_readyEvent = ready;
    }
    m_stop = false;
    m_state = CAPTURE_OK;
    m_readyCounter = 0;
    SafeCloseHandle(m_initThread); // of an earlier start, which has ended
    m_initThread = StartModuleThread(InitThread, this);
    if (m_initThread == nullptr) {
        LogError(prepareTag, "Create init thread failed!err=", GetLastError());
        m_stop = true;
        m_state = CAPTURE_NOT_PREPARED;
        CloseReadyEvent();
        return CAPTURE_SYSTEM_FAILED;
    }
    AwaitSignal(ready);
    CloseReadyEvent();
    return m_state;
}

int32_t AudioCapture::Start()
{
    auto *notifier = new (std::nothrow) AudioDeviceNotify;
    if (notifier != nullptr) {
        notifier->AddRef();
        notifier->Initialize();
        notifier->AddListener(this);
    }
    ReplaceNotifier(notifier);
    if (m_state != CAPTURE_OK) {
        return m_state;
    }
    if (m_started.exchange(true)) {
        return CAPTURE_STARTED_TWICE;
    }
    return m_state;
}

void AudioCapture::Stop()
{
    if (!m_stop.exchange(true)) {
        m_packets.Stop();
    }
    {
        const std::lock_guard lock(m_dataMutex);
        m_dataCondition.notify_all();
    }
    ReplaceNotifier(nullptr);
}

// Start, Stop and a failing capture thread may meet here: each notifier that leaves the member is
// detached once, by the thread that took it out.
void AudioCapture::ReplaceNotifier(AudioDeviceNotify *notifier)
{
    AudioDeviceNotify *previous = m_deviceNotifier.exchange(notifier);
    if (previous != nullptr) {
        previous->RemoveListener(this);
        previous->UnInitialize();
        previous->Release();
    }
}

bool AudioCapture::WaitInitThread()
{
    HANDLE thread = nullptr;
    {
        const std::lock_guard lock(m_stateMutex);
        thread = m_initThread;
    }
    if (thread == nullptr) {
        return false;
    }
    AwaitSignal(thread);
    return true;
}

DWORD WINAPI AudioCapture::InitThread(void *capture)
{
    if (capture == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    static_cast<AudioCapture *>(capture)->Initialize();
    return 0;
}

DWORD WINAPI AudioCapture::CaptureThread(void *capture)
{
    if (capture == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    static_cast<AudioCapture *>(capture)->AudioCaptureAndEncodeThreadProc();
    return 0;
}

void AudioCapture::Initialize()
{
    int32_t result = InitAudioEncoder();
    if (result == CAPTURE_OK) {
        m_captureThread = StartModuleThread(CaptureThread, this);
        if (m_captureThread == nullptr) {
            LogError(initializeTag, "Create audio capture and encoder thread failed, err=", GetLastError());
            result = CAPTURE_SYSTEM_FAILED;
        }
    }
    if (result == CAPTURE_OK) {
        SignalReady();
        while (!m_stop) {
            Sleep(stopPollMs);
        }
    } else {
        Fail(result);
    }
    Teardown();
}

// The first failure becomes the state; it ends capture and releases Prepare.
void AudioCapture::Fail(int32_t result)
{
    int32_t running = CAPTURE_OK;
    if (m_state.compare_exchange_strong(running, result)) {
        Stop();
        SetReadyEvent();
    }
}

void AudioCapture::Teardown()
{
    if (m_captureThread != nullptr) {
        AwaitSignal(m_captureThread);
        SafeCloseHandle(m_captureThread);
    }
    swr_free(&m_resampler);
    ReleaseEncoder();
    // Prepare, which holds the mutex, has to see the failure that it was released with.
    const std::lock_guard lock(m_stateMutex);
    m_state = CAPTURE_NOT_PREPARED;
}

void AudioCapture::ReleaseEncoder()
{
    m_encoder.Close();
    {
        const std::lock_guard lock(m_readMutex);
        m_packets.StopAndClear();
    }
    m_frame.ReleaseBuffer();
}

void AudioCapture::SignalReady()
{
    if (++m_readyCounter >= 1) {
        SetReadyEvent();
    }
}

void AudioCapture::SetReadyEvent()
{
    const std::lock_guard lock(m_readyMutex);
    if (m_readyEvent != nullptr) {
        SetEvent(m_readyEvent);
    }
}

void AudioCapture::CloseReadyEvent()
{
    const std::lock_guard lock(m_readyMutex);
    SafeCloseHandle(m_readyEvent);
}

} // namespace velto
