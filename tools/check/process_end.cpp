#include "check/process_end.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include "check/module_file.h"
#include "check/module_use.h"
#include "check/process_context.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int callbackThreads = 4;
constexpr auto busyTime = 1200ms; // long enough for sound in the endpoint and packets in the queue

std::atomic<int> chosenExitCode{0};
std::atomic<int> threadsInCallback{0};
std::atomic<bool> allThreadsMayEnd{false};

void SayLastWords()
{
    if (EventSink *events = CurrentProcess().events) {
        events->OnStep(lastWords, {});
    }
}

[[noreturn]] void EndNow()
{
    SayLastWords();
    ExitProcess(static_cast<UINT>(chosenExitCode));
}

// Waits until all threads are in the callback; then they end the process at once, with the module's code on
// each stack. If the module holds a lock meanwhile, they never are: the first thread then ends the process
// alone.
void EndInCallback(const char *, uint32_t, int32_t)
{
    const auto begin = Clock::now();
    if (++threadsInCallback == callbackThreads) {
        SayLastWords();
        allThreadsMayEnd = true;
    }
    while (!allThreadsMayEnd && Clock::now() - begin < busyTime) {
        Sleep(1);
    }
    if (!allThreadsMayEnd) {
        EndNow();
    }
    ExitProcess(static_cast<UINT>(chosenExitCode));
}

// For detached threads, which end with the process.
void RepeatForever(const std::function<void()> &call)
{
    for (;;) {
        call();
        Sleep(1);
    }
}

void StartRepeating(std::function<void()> call)
{
    std::thread(RepeatForever, std::move(call)).detach();
}

int EndWhilePlaying(const AudioHandlerTable &table)
{
    SpeakerUse speaker(table);
    speaker.Play(busyTime);
    if (speaker.Refused() > 0) {
        return endRefused;
    }
    EndNow();
}

// Without a microphone the recording waits for one, which is a situation of its own.
int EndWhileRecording(const AudioHandlerTable &table)
{
    host::Microphone microphone(table, VELTO_ID_MIC);
    if (microphone.Open() != VELTO_OK) {
        return endRefused;
    }
    ReadPacketWithin(microphone, busyTime);
    EndNow();
}

int EndInListener(const AudioHandlerTable &table)
{
    SpeakerUse(table).Play(busyTime);
    const AudioListener listener{EndInCallback, nullptr};
    if (table.RegisterListener(&listener) != VELTO_OK) {
        return endRefused;
    }
    for (int i = 0; i < callbackThreads; ++i) {
        StartRepeating([&table] { StartStream(table, VELTO_ID_SPEAKER); });
    }
    Sleep(2 * std::chrono::milliseconds(busyTime).count());
    return endRefused; // the callback was not called
}

int EndWhileBusy(const AudioHandlerTable &table)
{
    static host::Microphone microphone(table, VELTO_ID_MIC);
    microphone.Open();
    StartRepeating([] { microphone.Read(); });
    StartRepeating([&table] { StartStream(table, VELTO_ID_MODEM_SPEAKER); });
    StartRepeating(
        [&table] { table.CloseAudioTrack(VELTO_ID_MODEM_SPEAKER, sizeof(VELTO_ID_MODEM_SPEAKER) - 1); });
    StartRepeating([&table] {
        AudioCapabilityItem *list = nullptr;
        uint32_t count = 0;
        if (table.GetAudioCapability(&list, &count) == VELTO_OK) {
            table.Release(VELTO_RELEASE_CAPABILITIES, list, count);
        }
    });
    SpeakerUse(table).Play(busyTime);
    EndNow();
}

} // namespace

int EndProcessWhile(const std::string &modulePath, const std::string &how, int exitCode)
{
    if (std::ranges::find(endSituations, how) == endSituations.end()) {
        return endUnknown;
    }
    chosenExitCode = exitCode;
    try {
        // Never freed: the process ends with it.
        auto *module = new ModuleFile(modulePath);
        module->CallEntry();
        const AudioHandlerTable &table = module->Table();
        return how == "playing"       ? EndWhilePlaying(table)
               : how == "recording"   ? EndWhileRecording(table)
               : how == "in-listener" ? EndInListener(table)
                                      : EndWhileBusy(table);
    } catch (const ModuleFileError &) {
        return endRefused;
    }
}

} // namespace velto::check
