// What the tests of the play thread share.
#pragma once

#include <chrono>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "play_thread_probe.h"
#include "recording_player.h"
#include "render_fixture.h"

namespace velto_test {

inline constexpr char pushTag[] = "velto::AudioPlayThread::PushBuffer";
inline constexpr wchar_t cushionFull[] = L"needDelay. push all delay buffer queue";

inline bool Await(const std::function<bool()> &condition)
{
    for (int i = 0; i < 10000 && !condition(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return condition();
}

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

// The first byte of each queued block.
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

inline std::vector<bool> notified;
inline void Notify(bool value)
{
    notified.push_back(value);
}

class PlayThread : public ::testing::Test {
protected:
    PlayThread()
    {
        fakewin::Reset();
        fakes::AudioSystem::Instance().Reset();
        fakes::LogRecorder::Instance().Clear();
        notified.clear();
    }

    ~PlayThread() override
    {
        thread->StopPlayThread();
        probe.FreeQueued();
        thread.reset();
        EXPECT_EQ(fakewin::Violations(), std::vector<std::string>{});
    }

    void UseRecordingPlayer() { probe.Player() = std::make_unique<RecordingPlayer>(record); }

    // As the speaker track starts it.
    void Start()
    {
        thread->isRunning = 1;
        EXPECT_TRUE(thread->StartPlayThread());
        ASSERT_TRUE(Await([this] { return thread->threadStarted.load(); }));
    }

    void Push(int first, int last)
    {
        for (int value = first; value <= last; ++value) {
            thread->PushBuffer(MakeBuffer(static_cast<uint8_t>(value)));
        }
    }

    static int CushionLines()
    {
        return fakes::LogRecorder::Instance().Count(infoLevel, cushionFull, pushTag);
    }

    RecordingPlayer::Record record;
    velto::SpeakerAudioParams params;
    std::unique_ptr<velto::AudioPlayThread> thread =
        std::make_unique<velto::AudioPlayThread>(&params, Notify);
    velto::AudioPlayThreadProbe probe{*thread};
};

} // namespace velto_test
