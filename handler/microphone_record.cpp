#include "handler/microphone_record.h"

#include "handler/device_ids.h"
#include "handler/log.h"

namespace velto {
namespace {

constexpr char openTag[] = "`anonymous-namespace'::VeltoOpenAudioRecord";
constexpr char readTag[] = "`anonymous-namespace'::VeltoReadStreamBuffer";
constexpr char closeTag[] = "`anonymous-namespace'::VeltoCloseAudioRecord";

} // namespace

int32_t VeltoOpenAudioRecord(const char *id, uint32_t idLength, void *, void *,
                             const AudioProfileList *profiles)
{
    if (!IsValidId(id, idLength) || profiles == nullptr) {
        LogError(openTag, "mic id or profiles is null or invalid");
        return VELTO_ERROR_INVALID;
    }
    LogError(openTag, "the microphone is not in this version");
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
    frame->header->size = 0;
    return VELTO_OK;
}

int32_t VeltoCloseAudioRecord(const char *id, uint32_t idLength)
{
    if (!IsValidId(id, idLength)) {
        LogError(closeTag, "mic id is null or invalid");
        return VELTO_ERROR_INVALID;
    }
    return VELTO_OK;
}

} // namespace velto
