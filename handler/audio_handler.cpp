// The module's one export and the table that it fills.
#ifdef _WIN32
#define VELTO_API __declspec(dllexport)
#else
#define VELTO_API __attribute__((visibility("default")))
#endif

#include <windows.h>

#include <exception>

#include "handler/host_records.h"
#include "handler/listener.h"
#include "handler/log.h"
#include "handler/microphone_record.h"
#include "handler/speaker_track.h"
#include "velto/audio_handler.h"

namespace velto {
namespace {

int32_t NoOperation()
{
    return VELTO_OK;
}

void LogFailedCall(const char *reason) noexcept
{
    LogError("`anonymous-namespace'::Guarded", "call failed: ", reason);
}

// Restores the calling thread's last error at the end of the scope: it belongs to the host's own calls.
class KeepLastError {
public:
    KeepLastError() = default;
    ~KeepLastError() { SetLastError(m_lastError); }
    KeepLastError(const KeepLastError &) = delete;
    KeepLastError &operator=(const KeepLastError &) = delete;

private:
    const DWORD m_lastError = GetLastError();
};

// Runs `body`, logs any exception and keeps the thread's last error. Exceptions come from a lack of memory or
// threads, or from the host's listener.
template <typename Body>
void RunForHost(Body body) noexcept
{
    const KeepLastError keepLastError;
    try {
        body();
    } catch (const std::exception &failure) {
        LogFailedCall(failure.what());
    } catch (...) {
        LogFailedCall("unknown exception");
    }
}

// Wraps a table function for the host. The host may be written in C, so no exception may leave the table: an
// exception becomes a log line and, in a function with a result, VELTO_ERROR_INVALID.
template <auto function>
struct Guarded;

template <typename... Arguments, int32_t (*function)(Arguments...)>
struct Guarded<function> {
    static int32_t Call(Arguments... arguments) noexcept
    {
        int32_t result = VELTO_ERROR_INVALID;
        RunForHost([&] { result = function(arguments...); });
        return result;
    }
};

template <typename... Arguments, void (*function)(Arguments...)>
struct Guarded<function> {
    static void Call(Arguments... arguments) noexcept
    {
        RunForHost([&] { function(arguments...); });
    }
};

constexpr AudioHandlerTable handlerTable{
    .GetAudioCapability = Guarded<VeltoGetAudioCapability>::Call,
    .NoOperation1 = NoOperation,
    .SetAudioParameter = Guarded<VeltoSetAudioParameter>::Call,
    .WriteStreamBuffer = Guarded<VeltoWriteStreamBuffer>::Call,
    .CloseAudioTrack = Guarded<VeltoCloseAudioTrack>::Call,
    .OpenAudioRecord = Guarded<VeltoOpenAudioRecord>::Call,
    .ReadStreamBuffer = Guarded<VeltoReadStreamBuffer>::Call,
    .CloseAudioRecord = Guarded<VeltoCloseAudioRecord>::Call,
    .Release = Guarded<VeltoRelease>::Call,
    .RegisterListener = Guarded<VeltoRegisterListener>::Call,
    .NoOperation10 = NoOperation,
};

} // namespace
} // namespace velto

// Each further call leaks the previous event, by contract: a watchdog may be waiting on it.
int32_t VELTOGetAudioHandler(AudioHandlerTable *table)
{
    if (table == nullptr) {
        return VELTO_ERROR_INVALID;
    }
    const velto::KeepLastError keepLastError;
    *table = velto::handlerTable;
    velto::IdleEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    ResetEvent(velto::IdleEvent);
    return VELTO_OK;
}
