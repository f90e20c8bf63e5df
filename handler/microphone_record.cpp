#include "handler/microphone_record.h"

#include <atomic>

#include "capture/audio_capture.h"
#include "handler/device_ids.h"
#include "handler/log.h"

namespace velto {
namespace {

constexpr char openTag[] = "`anonymous-namespace'::VeltoOpenAudioRecord";
constexpr char readTag[] = "`anonymous-namespace'::VeltoReadStreamBuffer";
constexpr char closeTag[] = "`anonymous-namespace'::VeltoCloseAudioRecord";

constexpr uint32_t recordSampleRateHz = 48000;
constexpr uint32_t recordChannels = 2;
constexpr int32_t recordSampleFormat = 1; // signed 16-bit

// Atomic, because calls that close may overlap.
std::atomic<WAVEFORMATEX *> captureFormat{nullptr}; // contract only: closing frees it, nothing sets it

} // namespace

int32_t VeltoOpenAudioRecord(const char *id, uint32_t idLength, void *, void *,
                             const AudioProfileList *profiles)
{
    if (!IsValidId(id, idLength) || profiles == nullptr) {
        LogError(openTag, "mic id or profiles is null or invalid");
        return VELTO_ERROR_INVALID;
    }
    AudioCapture *capture = AudioCapture::Create();
    // A capture that is still open continues without an owner, by contract.
    AudioCapture::SetCurrent(capture);
    if (capture == nullptr) {
        return VELTO_OK;
    }
    capture->SetTarget(recordSampleRateHz, recordChannels, recordSampleFormat);
    capture->Prepare();
    capture->Start();
    return VELTO_OK;
}

int32_t VeltoReadStreamBuffer(const char *id, uint32_t idLength, void *, StreamFrame *frame)
{
    if (!IsValidId(id, idLength)) {
        LogError(readTag, "mic id is null or invalid");
        return VELTO_ERROR_INVALID;
    }
    if (frame == nullptr || frame->header == nullptr || frame->data == nullptr) {
        return VELTO_ERROR_NULL_POINTER;
    }
    AudioCapture::GetAudioData(frame->data, frame->header->size);
    return VELTO_OK;
}

int32_t VeltoCloseAudioRecord(const char *id, uint32_t idLength)
{
    if (!IsValidId(id, idLength)) {
        LogError(closeTag, "mic id is null or invalid");
        return VELTO_ERROR_INVALID;
    }
    // If two calls close at the same time, only one of them gets the capture.
    AudioCapture *capture = AudioCapture::TakeCurrent();
    if (capture == nullptr) {
        return VELTO_OK;
    }
    CoTaskMemFree(captureFormat.exchange(nullptr));
    capture->EndRestarts();
    capture->Stop();
    capture->WaitInitThread();
    AudioCapture::DeleteTaken(capture);
    return VELTO_OK;
}

} // namespace velto
