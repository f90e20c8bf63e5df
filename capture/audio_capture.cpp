// Threads, life cycle and restarts.
#include "capture/audio_capture.h"

#include <new>

#include "handler/log.h"
#include "support/com.h"
#include "support/module_reference.h"
#include "support/new_or_null.h"

namespace velto {
namespace {

constexpr char createTag[] = "AudioCapture::Create";
constexpr char prepareTag[] = "AudioCapture::Prepare";
constexpr char initializeTag[] = "AudioCapture::Initialize";
constexpr char changedTag[] = "AudioCapture::OnAudioStateChanged";
constexpr DWORD stopPollMs = 50;

} // namespace

// Some members' types belong to the platform's codec library; their constructors may allocate and throw.
AudioCapture *AudioCapture::Create()
{
    auto *capture = NewOrNull<AudioCapture>();
    if (capture == nullptr) {
        LogError(createTag, "Alloc screen record object failed!No memory?");
    }
    return capture;
}

AudioCapture::~AudioCapture()
{
    EndRestarts();
    WaitInitThread();
    SafeCloseHandle(m_initThread);
    ReplaceNotifier(nullptr); // Stop has removed the notifier, unless Start was called after it
}

void AudioCapture::SetTarget(uint32_t sampleRateHz, uint32_t channels, int32_t sampleFormat)
{
    m_target = {sampleRateHz, channels, static_cast<AVSampleFormat>(sampleFormat)};
}

int32_t AudioCapture::Prepare()
{
    const std::lock_guard lock(m_stateMutex);
    if (m_state != CAPTURE_NOT_PREPARED) {
        return m_state;
    }
    if (!m_ready.Create()) {
        LogError(prepareTag, "Create windows event failed! err=", GetLastError());
        return CAPTURE_SYSTEM_FAILED;
    }
    m_stop = false;
    m_state = CAPTURE_OK;
    SafeCloseHandle(m_initThread); // of an earlier Prepare, whose thread set the state as its last step
    m_initThread = StartModuleThread(RunThread<&AudioCapture::Initialize>, this);
    if (m_initThread == nullptr) {
        LogError(prepareTag, "Create init thread failed!err=", GetLastError());
        m_stop = true;
        m_state = CAPTURE_NOT_PREPARED;
        m_ready.Close();
        return CAPTURE_SYSTEM_FAILED;
    }
    m_ready.Await();
    m_ready.Close();
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
    m_reader.NotifyStop();
    ReplaceNotifier(nullptr);
}

// Start, Stop and a failing capture thread may call this at the same time. The exchange makes sure that only
// one of them detaches the previous notifier.
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

void AudioCapture::Initialize()
{
    int32_t result = InitAudioEncoder();
    if (result == CAPTURE_OK) {
        m_captureThread = StartModuleThread(RunThread<&AudioCapture::AudioCaptureAndEncodeThreadProc>, this);
        if (m_captureThread == nullptr) {
            LogError(initializeTag, "Create audio capture and encoder thread failed, err=", GetLastError());
            result = CAPTURE_SYSTEM_FAILED;
        }
    }
    if (result == CAPTURE_OK) {
        m_ready.CountAndSet();
        while (!m_stop) {
            Sleep(stopPollMs);
        }
    } else {
        Fail(result);
    }
    Teardown();
}

// The first failure becomes the state, stops the capture and ends the wait in Prepare.
void AudioCapture::Fail(int32_t result)
{
    int32_t running = CAPTURE_OK;
    if (m_state.compare_exchange_strong(running, result)) {
        Stop();
        m_ready.Set();
    }
}

void AudioCapture::Teardown()
{
    if (m_captureThread != nullptr) {
        AwaitSignal(m_captureThread);
        SafeCloseHandle(m_captureThread);
    }
    m_converter.Close();
    ReleaseEncoder();
    // Prepare locks the mutex until it returns, so that it returns a failure and not CAPTURE_NOT_PREPARED.
    const std::lock_guard lock(m_stateMutex);
    m_state = CAPTURE_NOT_PREPARED;
}

void AudioCapture::ReleaseEncoder()
{
    m_encoder.Close();
    m_reader.ClearPackets();
    m_frame.ReleaseBuffer();
}

// Runs on a thread of the system's notification service, so it only starts a thread for the restart.
void AudioCapture::OnAudioStateChanged(EDataFlow flow, ERole role, LPCWSTR)
{
    if (flow != eCapture || role != eConsole) {
        return;
    }
    LogError(changedTag, "OnAudioStateChanged");
    if (const std::optional<DWORD> error = m_restarts.Begin()) {
        LogError(changedTag, "Create restart thread failed, err=", *error);
    }
}

void AudioCapture::Restart()
{
    Stop();
    WaitInitThread();
    Prepare();
    Start();
}

void AudioCapture::EndRestarts()
{
    m_restarts.End();
}

} // namespace velto
