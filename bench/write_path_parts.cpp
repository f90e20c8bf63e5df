#include "bench/write_path_parts.h"

#include <windows.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "bench/repetitions.h"
#include "handler/log.h"
#include "playback/audio_play_buffer.h"
#include "playback/audio_play_thread.h"
#include "registry/registry.h"

namespace velto::bench {
namespace {

constexpr int32_t blockBytes = 1024 * 2 * sizeof(int16_t); // one unit, decoded to 16-bit stereo

void ReadRegistry(benchmark::State &state)
{
    const std::wstring key = L"\\SOFTWARE\\NORVEL\\NRAudio\\NrMirror";
    const std::wstring name = L"StreamType";
    for (auto _ : state) {
        DWORD value = 0;
        if (!DE::Registry::GetValue(HKEY_CURRENT_USER, key, name, value, 0xF003F)) {
            state.SkipWithError("the stream type is not in the registry");
        }
    }
}

void SignalWatchdog(benchmark::State &state)
{
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    std::atomic<bool> stop{false};
    std::thread watchdog([&] {
        while (!stop) {
            ResetEvent(event);
            WaitForSingleObject(event, 100);
        }
    });
    for (auto _ : state) {
        SetEvent(event);
    }
    stop = true;
    SetEvent(event);
    watchdog.join();
    CloseHandle(event);
}

void QueueBlock(benchmark::State &state)
{
    const std::vector<uint8_t> pcm(blockBytes, 1);
    const SpeakerAudioParams parameters;
    AudioPlayThread queue(&parameters, nullptr); // its thread does not run, so it plays nothing
    const auto push = [&] {
        auto *block = new AudioPlayBuffer;
        block->buf = new uint8_t[blockBytes];
        block->len = blockBytes;
        std::memcpy(block->buf, pcm.data(), blockBytes);
        queue.PushBuffer(block);
    };
    for (int i = 0; i < 100; ++i) {
        push(); // until the queue is full
    }
    for (auto _ : state) {
        push();
    }
}

void WriteLogLine(benchmark::State &state)
{
    int frames = 0;
    for (auto _ : state) {
        LogInfoToSingleton("`anonymous-namespace'::VeltoWriteStreamBuffer", "VeltoWriteStream has received",
                           ++frames, " frame");
    }
}

} // namespace

void RegisterWritePathParts(int iterations, int repetitions)
{
    struct Part {
        const char *name;
        void (*function)(benchmark::State &);
    };
    const Part parts[] = {{"ReadRegistry", ReadRegistry},
                          {"SignalWatchdog", SignalWatchdog},
                          {"QueueBlock", QueueBlock},
                          {"WriteLogLine", WriteLogLine}};
    for (const auto &[name, function] : parts) {
        Repeat(benchmark::RegisterBenchmark(name, function), iterations, repetitions,
               benchmark::kMicrosecond);
    }
}

} // namespace velto::bench
