#include "check/lifecycle_checks.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "check/file_identity.h"
#include "check/module_file.h"
#include "check/module_threads.h"
#include "check/module_use.h"
#include "check/portable/process_check_list.h"
#include "check/process_context.h"
#include "check/process_end_checks.h"
#include "check/resource_checks.h"
#include "check/stream_type.h"
#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

// The module's threads run for minutes, so a call that waits for them takes longer.
constexpr Seconds longestFree = 2s;
// A microphone that sleeps delivers its first packet after a second or more.
constexpr Seconds packetTime = 5s;
// After FreeLibrary: longer than all sound in the queue and the endpoint.
constexpr Seconds observedTime = 3s;
// A thread that has ended is listed until the system has removed it.
constexpr auto threadEndTime = 200ms;

// ---- Threads

constexpr size_t mostSpeakerThreads = 3; // two that play, one that waits for the idle release
constexpr size_t leastSpeakerThreads = 2;
constexpr size_t mostRecordingThreads = 2;

// The largest number of threads that the module ran at once within this time, since `before`.
std::vector<ThreadInfo> MostThreads(Context &context, HMODULE module, const std::vector<ThreadInfo> &before,
                                    std::chrono::milliseconds time)
{
    std::vector<ThreadInfo> most;
    const auto end = context.environment.Now() + time;
    while (context.environment.Now() < end) {
        std::vector<ThreadInfo> now = NewThreadsOf(module, before);
        if (now.size() > most.size()) {
            most = std::move(now);
        }
        context.environment.Sleep(20ms);
    }
    return most;
}

void FirstWriteStartsSpeakers(Context &context)
{
    const auto module = LoadModule(context);
    const std::vector<ThreadInfo> before = ThreadsOfProcess();
    StreamFrameHeader header{};
    StreamFrame frame{};
    frame.header = &header;
    context.Step("first write, with a null id", {"SPK-1"});
    module->Table().WriteStreamBuffer(nullptr, 0, nullptr, &frame);
    const std::vector<ThreadInfo> threads = MostThreads(context, module->Handle(), before, 1000ms);
    context.Expect(threads.size() >= leastSpeakerThreads, "SPK-1",
                   "the first write did not start both speakers: the module runs " + Describe(threads));
    SpeakerUse media(module->Table());
    SpeakerUse call(module->Table(), VELTO_ID_MODEM_SPEAKER);
    media.Play(500ms);
    call.Play(500ms);
    const std::vector<ThreadInfo> playing = MostThreads(context, module->Handle(), before, 500ms);
    context.Measured("threads for the speakers", double(playing.size()), "");
    context.Expect(playing.size() <= mostSpeakerThreads, "RES-2",
                   "while both speakers play, the module runs " + Describe(playing));
}

void EndsRecordingThreads(Context &context)
{
    const auto module = LoadModule(context);
    host::Microphone microphone(module->Table(), VELTO_ID_MIC);
    for (int round = 1; round <= 3; ++round) {
        const std::vector<ThreadInfo> before = ThreadsOfProcess();
        context.Step("opens the microphone", {"RES-2"});
        microphone.Open();
        const std::vector<ThreadInfo> threads = MostThreads(context, module->Handle(), before, 1000ms);
        context.Expect(threads.size() <= mostRecordingThreads, "RES-2",
                       "a recording runs " + Describe(threads));
        context.Step("closes the microphone", {"MIC-7"});
        microphone.Close();
        context.environment.Sleep(threadEndTime);
        const std::vector<ThreadInfo> left = StillRunning(threads);
        context.Expect(left.empty(), "MIC-7",
                       "after CloseAudioRecord, the recording still runs " + Describe(left));
    }
}

// ---- Stream type

std::atomic<int> trackClosedEvents{0};

void CountEvent(const char *, uint32_t, int32_t eventCode)
{
    trackClosedEvents += eventCode == VELTO_EVENT_TRACK_CLOSED ? 1 : 0;
}

// Whether the registry has a stream type after `call`. Other processes, for example checks at the same time,
// write the same value: a difference counts after several attempts.
template <typename Call>
bool StoresStreamType(Context &context, int32_t streamType, Call call)
{
    constexpr int attempts = 10;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        call();
        if (StoredStreamType() == streamType) {
            return true;
        }
        context.environment.Sleep(std::chrono::milliseconds(1 + context.random.Below(50)));
    }
    return false;
}

void StoresStreamTypes(Context &context)
{
    const std::vector<ThreadInfo> before = ThreadsOfProcess();
    const auto module = LoadModule(context);
    const AudioHandlerTable &table = module->Table();
    const AacUnits units = SpeechLikeUnits(2);
    const AudioListener listener{CountEvent, nullptr};
    table.RegisterListener(&listener);
    for (const std::string_view id : {VELTO_ID_SPEAKER, VELTO_ID_MODEM_SPEAKER, VELTO_ID_MIC, "no device"}) {
        const auto type = static_cast<int32_t>(1000 + context.random.Below(1'000'000));
        context.Step(fmt::format("writes a unit of stream type {} for \"{}\"", type, id), {"SPK-9"});
        context.Expect(StoresStreamType(context, type, [&] { WriteUnit(table, id, units[1], type); }),
                       "SPK-9",
                       fmt::format("the registry has {} after a write for \"{}\", instead of {}",
                                   StoredStreamType().value_or(0), id, type));
        const int eventsBefore = trackClosedEvents;
        context.Step(fmt::format("closes the track \"{}\"", id), {"SPK-10"});
        context.Expect(StoresStreamType(context, -1,
                                        [&] {
                                            table.CloseAudioTrack(std::string(id).c_str(),
                                                                  static_cast<uint32_t>(id.size()));
                                        }),
                       "SPK-10", fmt::format("the registry does not have -1 after \"{}\" was closed", id));
        context.Expect(trackClosedEvents > eventsBefore, "SPK-10",
                       fmt::format("no event 3 when \"{}\" was closed", id));
    }
    const AudioListener none{nullptr, nullptr};
    table.RegisterListener(&none);
    const std::vector<ThreadInfo> threads = NewThreadsOf(module->Handle(), before);
    context.Expect(threads.size() >= leastSpeakerThreads, "SPK-10",
                   "closing stopped a speaker: the module runs " + Describe(threads));
}

// ---- Loading and unloading

// Why Windows, a rule for programs or a virus scanner refuses a file in the temporary folder. Not all headers
// have these constants.
constexpr std::array<DWORD, 4> refusals{
    225,  // ERROR_VIRUS_INFECTED
    577,  // ERROR_INVALID_IMAGE_HASH
    1260, // ERROR_ACCESS_DISABLED_BY_POLICY
    4551, // ERROR_SYSTEM_INTEGRITY_POLICY_VIOLATION
};

// Ends the check as skipped if this PC refuses the copy, whatever the module does.
void SkipIfRefused(Context &context, DWORD error)
{
    if (std::ranges::find(refusals, error) != refusals.end()) {
        context.Skip(fmt::format("this PC does not allow DLLs in the temporary folder (error {})", error));
    }
}

// Copies the module and the DLLs that it needs into the check's folder for work, below a name with spaces and
// letters of several scripts. Not all DLLs: the folder of an installed module contains files of other
// programs. Returns the copy of the module.
std::filesystem::path CopyModule(const ProcessContext &process)
{
    namespace fs = std::filesystem;
    const fs::path original = host::ToWide(process.modulePath);
    const fs::path folder = fs::path(host::ToWide(process.workFolder)) /
                            L"with spaces, \u00E4\u00F6\u00FC \u043C\u0438\u0440 \u97F3";
    fs::create_directories(folder);
    for (const fs::path &file : FilesOf(original)) {
        fs::copy_file(file, folder / file.filename());
    }
    return folder / original.filename();
}

std::filesystem::path CopyModuleOrSkip(Context &context)
{
    context.Step("copies the module", {}); // a slow disk is not the module's fault
    try {
        return CopyModule(CurrentProcess());
    } catch (const std::filesystem::filesystem_error &error) {
        if (error.code().category() == std::system_category()) {
            SkipIfRefused(context, static_cast<DWORD>(error.code().value()));
        }
        throw;
    }
}

// The module runs with the FFmpeg DLLs that this process has loaded, which have the bytes of the copies.
// Windows therefore does not search for FFmpeg here. Only a host without FFmpeg shows this search.
void LoadsFromUnusualPath(Context &context)
{
    namespace fs = std::filesystem;
    const fs::path copy = CopyModuleOrSkip(context);
    fs::current_path(host::ToWide(CurrentProcess().workFolder));
    SetEnvironmentVariableW(L"PATH", L""); // this process only
    context.Step("loads the module from a folder with spaces and letters of several scripts", {"LIF-5"});
    try {
        ModuleFile module(host::ToUtf8(copy.wstring()));
        module.CallEntry();
        SpeakerUse(module.Table()).Play(1s);
    } catch (const ModuleFileError &error) {
        SkipIfRefused(context, error.SystemError());
        context.Expect(false, "LIF-5", error.what());
    }
}

// Watches a freed module: its `threads` must not outlive its code. Returns whether the module is still
// mapped.
bool ObserveFreedModule(Context &context, const ModuleFile &module, const std::vector<ThreadInfo> &threads)
{
    context.Step("waits while the freed module runs on", {"LIF-1"});
    if (!module.WaitUntilUnmapped(observedTime)) {
        return true;
    }
    context.environment.Sleep(threadEndTime);
    const std::vector<ThreadInfo> left = WithoutCode(threads);
    context.Expect(left.empty(), "LIF-1", "the module is unmapped while it runs " + Describe(left));
    return false;
}

// Whether one of the threads begins in the module's own code, and not in a DLL to which the module delegates.
bool RunsIn(const ModuleFile &module, const std::vector<ThreadInfo> &threads)
{
    return std::ranges::any_of(
        threads, [&](const ThreadInfo &thread) { return thread.startModule == module.Handle(); });
}

void ExpectPromptFree(Context &context, ModuleFile &module, std::string_view situation)
{
    context.Step(fmt::format("frees the module while it {}", situation), {"LIF-1"});
    const Seconds time = module.Free();
    context.Measured("FreeLibrary", time.count() * 1000, "ms");
    context.Expect(time < longestFree, "LIF-1",
                   fmt::format("FreeLibrary took {:.1f} s while the module {}", time.count(), situation));
}

void UnloadsWhilePlaying(Context &context)
{
    const std::vector<ThreadInfo> before = ThreadsOfProcess();
    const auto module = LoadModule(context);
    SpeakerUse(module->Table()).Play(1s);
    const std::vector<ThreadInfo> threads = NewThreadsOf(module->Handle(), before);
    ExpectPromptFree(context, *module, "plays");
    const bool isMapped = ObserveFreedModule(context, *module, threads);
    context.Expect(isMapped || !RunsIn(*module, threads), "LIF-1",
                   "the module was unmapped before its idle release");
}

void UnloadsWhileRecording(Context &context)
{
    const std::vector<ThreadInfo> before = ThreadsOfProcess();
    const auto module = LoadModule(context);
    host::Microphone microphone(module->Table(), VELTO_ID_MIC);
    microphone.Open();
    const bool records = ReadPacketWithin(microphone, packetTime);
    if (!records && context.environment.HasMicrophone()) {
        context.Warn("no packet came before the module was freed");
    }
    const std::vector<ThreadInfo> threads = NewThreadsOf(module->Handle(), before);
    ExpectPromptFree(context, *module, "records");
    const bool isMapped = ObserveFreedModule(context, *module, threads);
    context.Expect(isMapped || !RunsIn(*module, threads), "LIF-1",
                   "the module was unmapped while it recorded");
}

void LoadsAgainWhileMapped(Context &context)
{
    const auto first = LoadModule(context);
    SpeakerUse before(first->Table());
    before.Play(500ms);
    first->Free();
    if (!first->IsMapped()) {
        context.Skip("the module was unmapped at once, because none of its threads ran");
    }
    context.Step("loads the freed module again while its threads still run", {"LIF-1", "LIF-7"});
    const auto second = LoadModule(context, "LIF-7");
    context.Expect(second->Handle() == first->Handle(), "LIF-1",
                   "the module was loaded a second time, although it was still mapped");
    SpeakerUse after(second->Table());
    after.Play(1s);
    context.Expect(
        after.Refused() == 0 || before.Refused() > 0, "LIF-7",
        fmt::format("{} of {} calls were refused after loading again", after.Refused(), after.Calls()));
    ExpectPromptFree(context, *second, "plays after it was loaded again");
}

std::vector<Check> ListChecks()
{
    std::vector<Check> checks{
        ProcessCheck("lifecycle.first-write-starts-speakers", FirstWriteStartsSpeakers),
        ProcessCheck("lifecycle.stream-type", StoresStreamTypes),
        ProcessCheck("lifecycle.recording-threads", EndsRecordingThreads),
        ProcessCheck("lifecycle.path-with-spaces-and-letters", LoadsFromUnusualPath),
        ProcessCheck("lifecycle.unload-while-playing", UnloadsWhilePlaying),
        ProcessCheck("lifecycle.unload-while-recording", UnloadsWhileRecording),
        ProcessCheck("lifecycle.load-again-while-mapped", LoadsAgainWhileMapped),
    };
    for (const std::span<const Check> more : {ProcessEndChecks(), ResourceChecks()}) {
        checks.insert(checks.end(), more.begin(), more.end());
    }
    return checks;
}

} // namespace

std::span<const Check> LifecycleChecks()
{
    static const std::vector<Check> checks = ListChecks();
    return checks;
}

} // namespace velto::check
