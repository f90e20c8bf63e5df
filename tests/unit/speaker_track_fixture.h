// Fixture of the speaker track's tests: the module behind its table, with one fake endpoint for each speaker.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "aac_units.h"
#include "handler/speaker_track.h"
#include "host_calls.h"
#include "log_lines.h"
#include "playback/audio_play_thread.h"
#include "tests/fakes/fake_endpoint.h"
#include "tests/fakes/fake_windows.h"
#include "tests/fakes/polling.h"
#include "velto/audio_handler.h"

namespace velto_test {

using fakes::Eventually;

inline constexpr wchar_t mediaEndpoint[] = L"speakers";
inline constexpr wchar_t callEndpoint[] = L"headset";
inline constexpr size_t blockBytes = 4096; // 1024 frames of 16-bit stereo, the format of both endpoints
inline constexpr size_t cushionBlocks = 5;

struct SentEvent {
    std::string id;
    uint32_t idLength;
    int32_t code;
    bool operator==(const SentEvent &) const = default;
};

// Before each test, the speakers are stopped, their queues are empty and their cushions armed. After it, the
// fixture releases the speakers and expects that no rule of Windows was broken and nothing is left open.
class SpeakerTrack : public ::testing::Test {
protected:
    SpeakerTrack();
    ~SpeakerTrack() override;

    // Makes the renderer of "speaker1" open on mediaEndpoint and that of "ModemSpeaker1" on callEndpoint when
    // the speakers start next. The constructor calls it.
    void SeparateEndpoints();
    // Removes the effect of SeparateEndpoints, for a start whose media renderer gets no client.
    static void ForgetEndpoints();
    // Starts the speakers with a write that decodes nothing, and waits until both clients run.
    void Start();
    // Advances the clock until the watchdog has released the speakers.
    static void Release();
    // Stops the speakers in a test in which no watchdog runs.
    static void StopWithoutWatchdog();

    int32_t Write(const char *id, AacUnit unit, int32_t streamType = 3);
    // Stores the stream type in the registry but decodes nothing.
    int32_t WriteUndecoded(int32_t streamType) { return Write("mic1", AacUnit{0}, streamType); }
    int32_t SetParameters(const char *id, const std::vector<AudioProfileEntry> &entries);
    int32_t Close(const char *id) { return table.CloseAudioTrack(id, Length(id)); }

    // Waits until an endpoint has received exactly `blocks` blocks.
    bool AwaitBlocks(const wchar_t *endpoint, size_t blocks) const;
    size_t Blocks(const wchar_t *endpoint) const { return audio.Written(endpoint).size() / blockBytes; }
    // Expects that an endpoint received the sound of these units, complete and from their first sample on.
    void ExpectSound(const wchar_t *endpoint, const std::vector<AacUnit> &units) const;

    static std::optional<DWORD> StreamType();

    AudioHandlerTable table{};
    fakes::AudioSystem &audio = fakes::AudioSystem::Instance();
    std::vector<SentEvent> sentEvents;
    // Called once, by the next event.
    std::function<void()> onEvent;
    // The play threads of the module's static objects.
    velto::AudioPlayThread *mediaThread = nullptr;
    velto::AudioPlayThread *callThread = nullptr;

private:
    static void RecordEvent(const char *id, uint32_t idLength, int32_t code);
    void FindPlayThreads();
    void AddEndpoints();
    bool Runs(const std::wstring &endpoint) const;

    static SpeakerTrack *s_current; // receives the events
};

} // namespace velto_test
