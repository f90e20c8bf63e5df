// Fixture of the play thread's tests.
#pragma once

#include <cstring>
#include <deque>
#include <memory>
#include <thread>
#include <vector>

#include "play_thread_probe.h"
#include "recording_player.h"
#include "render_fixture.h"
#include "reset.h"
#include "tests/fakes/polling.h"

namespace velto_test {

inline constexpr char pushTag[] = "velto::AudioPlayThread::PushBuffer";
inline constexpr wchar_t cushionFull[] = L"needDelay. push all delay buffer queue";

using fakes::Eventually;

inline velto::AudioPlayBuffer *MakeBuffer(uint8_t value, int32_t bytes = 4)
{
    auto *buffer = new velto::AudioPlayBuffer;
    buffer->buf = new uint8_t[static_cast<size_t>(bytes)];
    buffer->len = bytes;
    std::memset(buffer->buf, value, static_cast<size_t>(bytes));
    return buffer;
}

inline void FreeBuffer(velto::AudioPlayBuffer *buffer)
{
    delete[] buffer->buf;
    delete buffer;
}

// Returns the first byte of each queued block.
inline std::vector<int> Contents(const std::deque<velto::AudioPlayBuffer *> &queue)
{
    std::vector<int> values;
    for (const velto::AudioPlayBuffer *buffer : queue) {
        values.push_back(buffer->buf[0]);
    }
    return values;
}

inline std::vector<int> Range(int first, int last)
{
    std::vector<int> values;
    for (int value = first; value <= last; ++value) {
        values.push_back(value);
    }
    return values;
}

// The broadcast flags that the play thread has forwarded.
inline std::vector<bool> forwardedFlags;
inline void RecordFlag(bool value)
{
    forwardedFlags.push_back(value);
}

class PlayThread : public ::testing::Test {
protected:
    PlayThread()
    {
        fakes::ResetAll();
        forwardedFlags.clear();
    }

    ~PlayThread() override
    {
        thread->StopPlayThread();
        probe.FreeQueued();
        thread.reset();
        EXPECT_EQ(fakewin::Violations(), std::vector<std::string>{});
    }

    void UseRecordingPlayer() { probe.Player() = std::make_unique<RecordingPlayer>(record); }

    // Starts the play thread as SpeakerTrack does.
    void Start()
    {
        thread->isRunning = 1;
        EXPECT_TRUE(thread->StartPlayThread());
        ASSERT_TRUE(Eventually([this] { return thread->threadStarted.load(); }));
    }

    void Push(int first, int last)
    {
        for (int value = first; value <= last; ++value) {
            thread->PushBuffer(MakeBuffer(static_cast<uint8_t>(value)));
        }
    }

    static int CushionLines() { return Recorded().Count(infoLevel, cushionFull, pushTag); }

    RecordingPlayer::Record record;
    velto::SpeakerAudioParams params;
    std::unique_ptr<velto::AudioPlayThread> thread =
        std::make_unique<velto::AudioPlayThread>(&params, RecordFlag);
    velto::AudioPlayThreadProbe probe{*thread};
};

} // namespace velto_test
