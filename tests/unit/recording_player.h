#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "render/i_audio_player.h"

namespace velto_test {

// A renderer that only records its calls. Any thread.
class RecordingPlayer : public velto::IAudioPlayer {
public:
    struct Record {
        std::mutex mutex;
        std::vector<std::string> calls;
        std::vector<int> played; // the first byte of each block
        std::vector<int64_t> sizes;
        std::thread::id thread;
        velto::IAudioPlayerCallback *callback = nullptr;
        std::function<void()> whileOpening;
        std::function<void()> whilePlaying;
        bool opens = true; // the result of Open

        std::vector<int> Played()
        {
            const std::lock_guard lock(mutex);
            return played;
        }
        std::vector<std::string> Calls()
        {
            const std::lock_guard lock(mutex);
            return calls;
        }
    };

    // `name` is prepended to each recorded call.
    explicit RecordingPlayer(Record &record, std::string name = "")
        : m_record(record), m_name(std::move(name))
    {
    }
    ~RecordingPlayer() override { RecordCall("delete"); }

    bool Open(int32_t bitsPerSample, int32_t channels, int32_t sampleRate) override
    {
        RecordCall("Open " + std::to_string(bitsPerSample) + " " + std::to_string(channels) + " " +
                   std::to_string(sampleRate));
        if (m_record.whileOpening) {
            m_record.whileOpening();
        }
        return m_record.opens;
    }
    void Close() override { RecordCall("Close"); }
    void ReleaseClient() override { RecordCall("ReleaseClient"); }
    void Stop() override { RecordCall("Stop"); }
    void Start() override { RecordCall("Start"); }
    void PlayAudio(const uint8_t *data, int64_t size) override
    {
        {
            const std::lock_guard lock(m_record.mutex);
            m_record.played.push_back(data[0]);
            m_record.sizes.push_back(size);
            m_record.thread = std::this_thread::get_id();
        }
        if (m_record.whilePlaying) {
            m_record.whilePlaying();
        }
    }
    void SetCallback(velto::IAudioPlayerCallback *callback) override
    {
        {
            const std::lock_guard lock(m_record.mutex);
            m_record.callback = callback;
        }
        RecordCall("SetCallback");
    }
    void SetBroadcastFlag(bool value) override
    {
        RecordCall(value ? "SetBroadcastFlag true" : "SetBroadcastFlag false");
    }
    void SetDeviceChanged(bool) override {}
    void SetPropertyChanged(bool) override {}

private:
    void RecordCall(const std::string &call)
    {
        const std::lock_guard lock(m_record.mutex);
        m_record.calls.push_back(m_name + call);
    }

    Record &m_record;
    const std::string m_name;
};

} // namespace velto_test
