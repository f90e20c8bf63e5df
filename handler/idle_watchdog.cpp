#include "handler/idle_watchdog.h"

#include <windows.h>

#include "handler/log.h"
#include "handler/speaker_track.h"
#include "support/module_reference.h"

namespace velto {
namespace {

constexpr DWORD idleMs = 240000;
constexpr char watchdogTag[] = "`anonymous-namespace'::InitDefaultAudioDevice::<lambda_1>::operator ()";

// Waits until four minutes have passed without a write. Each write signals the event and restarts the wait.
void WaitUntilIdle()
{
    for (;;) {
        if (IdleEvent == nullptr) {
            IdleEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        }
        const HANDLE event = IdleEvent;
        ResetEvent(event);
        const DWORD result = WaitForSingleObject(event, idleMs);
        if (result == WAIT_TIMEOUT) {
            return;
        }
        if (result == WAIT_FAILED) {
            Sleep(1); // without an event each wait fails at once
        }
    }
}

void IdleWatchdog()
{
    WaitUntilIdle();
    LogInfo(watchdogTag, "No audio data for 4mins, release audio resource.");
    DeviceState = DEVICE_RELEASING;
    StopSpeakerTracks();
    DeviceState = DEVICE_NOT_INITIALISED;
}

} // namespace

void StartIdleWatchdog()
{
    StartDetachedThread(IdleWatchdog);
}

} // namespace velto
