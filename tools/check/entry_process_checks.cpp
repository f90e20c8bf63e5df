#include "check/entry_process_checks.h"

#include <windows.h>

#include <array>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "check/file_watch.h"
#include "check/module_file.h"
#include "check/module_threads.h"
#include "check/module_use.h"
#include "check/portable/process_check_list.h"
#include "check/process_context.h"
#include "check/stream_type.h"
#include "velto-host/process_usage.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

constexpr auto unmapTime = 2s; // more than the loader needs
constexpr DWORD threadStartMs = 100;
// Finds programs that write every second or more often. Each run waits for it.
constexpr auto quietTime = 1s;

// The DLLs that are loaded when a device is opened: Windows' audio client and Wine's drivers.
constexpr std::array<const wchar_t *, 6> deviceDlls{L"audioses.dll",      L"winepulse.drv",
                                                    L"winealsa.drv",      L"wineoss.drv",
                                                    L"winecoreaudio.drv", L"wineandroid.drv"};

std::vector<const wchar_t *> LoadedDeviceDlls()
{
    std::vector<const wchar_t *> loaded;
    for (const wchar_t *name : deviceDlls) {
        if (GetModuleHandleW(name) != nullptr) {
            loaded.push_back(name);
        }
    }
    return loaded;
}

template <typename Record>
const Record &At(HMODULE module, DWORD offset)
{
    return *reinterpret_cast<const Record *>(reinterpret_cast<const uint8_t *>(module) + offset);
}

void ChecksExports(Context &context)
{
    const HMODULE module = CurrentProcess().module;
    const auto &headers =
        At<IMAGE_NT_HEADERS64>(module, static_cast<DWORD>(At<IMAGE_DOS_HEADER>(module, 0).e_lfanew));
    const IMAGE_DATA_DIRECTORY &place = headers.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    context.Require(place.Size > 0, "ENT-1", "the DLL has no table of exports");
    const auto &exports = At<IMAGE_EXPORT_DIRECTORY>(module, place.VirtualAddress);
    std::string others;
    bool hasEntry = false;
    for (DWORD i = 0; i < exports.NumberOfNames; ++i) {
        const DWORD nameAt = At<DWORD>(module, exports.AddressOfNames + i * DWORD{sizeof(DWORD)});
        const std::string name = &At<char>(module, nameAt);
        hasEntry |= name == VELTO_ENTRY_NAME;
        others += name == VELTO_ENTRY_NAME ? "" : " " + name;
    }
    context.Expect(hasEntry, "ENT-1", "the DLL does not export " VELTO_ENTRY_NAME);
    context.Expect(others.empty(), "ENT-1", "the DLL also exports:" + others);
    uint32_t functions = 0; // an export may have no name
    for (DWORD i = 0; i < exports.NumberOfFunctions; ++i) {
        functions += At<DWORD>(module, exports.AddressOfFunctions + i * DWORD{sizeof(DWORD)}) != 0 ? 1 : 0;
    }
    context.ExpectEqual(functions, 1U, "ENT-1", "number of exported functions");
}

void ExpectNothingStarted(Context &context, const ModuleFile &module, const std::vector<ThreadInfo> &before,
                          size_t devicesBefore, std::string_view clause, std::string_view after)
{
    Sleep(threadStartMs);
    const std::vector<ThreadInfo> threads = NewThreadsOf(module.Handle(), before);
    context.Expect(threads.empty(), clause,
                   fmt::format("after {}, the module runs {}", after, Describe(threads)));
    context.Expect(LoadedDeviceDlls().size() == devicesBefore, clause,
                   fmt::format("{} loaded the system's DLL for audio devices", after));
}

void StartsNothingBeforeUse(Context &context)
{
    const std::vector<ThreadInfo> before = ThreadsOfProcess();
    const size_t devices = LoadedDeviceDlls().size();
    context.Step("loads the module", {"LIF-6"});
    try {
        ModuleFile module(CurrentProcess().modulePath);
        ExpectNothingStarted(context, module, before, devices, "LIF-6", "loading");
        const std::vector<ThreadInfo> threadsLoaded = ThreadsOfProcess();
        const size_t devicesLoaded = LoadedDeviceDlls().size();
        context.Step("calls the entry", {"ENT-5"});
        module.CallEntry();
        ExpectNothingStarted(context, module, threadsLoaded, devicesLoaded, "ENT-5", "the entry's call");
        context.Step("frees the module", {"LIF-6"});
        module.Free();
        context.Expect(module.WaitUntilUnmapped(unmapTime), "LIF-6",
                       "the module is still mapped after FreeLibrary, although it was not used");
    } catch (const ModuleFileError &error) {
        context.Expect(false, error.Clause(), error.what());
    }
}

// Handles that fill the gaps between other handles, so that the lowest free number grows with each lost
// handle. Systems that count handles do not need them.
class FilledGaps {
public:
    FilledGaps()
    {
        for (HANDLE &handle : m_handles) {
            handle = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        }
    }
    ~FilledGaps()
    {
        for (const HANDLE handle : m_handles) {
            CloseHandle(handle);
        }
    }
    FilledGaps(const FilledGaps &) = delete;
    FilledGaps &operator=(const FilledGaps &) = delete;

private:
    std::array<HANDLE, 256> m_handles{};
};

void KeepsEarlierEvent(Context &context)
{
    constexpr int64_t calls = 64;
    constexpr int64_t tolerance = 4; // handles of other threads of the process
    AudioHandlerTable table{};
    context.Step("calls the entry repeatedly", {"ENT-6"});
    context.entry(&table);
    const FilledGaps gaps;
    const int64_t before = host::MeasureUsage().handles;
    for (int64_t call = 0; call < calls; ++call) {
        context.entry(&table);
    }
    const int64_t handles = host::MeasureUsage().handles - before;
    context.Measured("handles kept by each entry call", double(handles) / calls, "");
    context.Expect(std::abs(handles - calls) <= tolerance, "ENT-6",
                   fmt::format("{} entry calls kept {} handles instead of one each", calls, handles));
}

// One call of each kind that could write something.
void UseEverything(const AudioHandlerTable &table)
{
    AudioCapabilityItem *list = nullptr;
    uint32_t count = 0;
    if (table.GetAudioCapability(&list, &count) == VELTO_OK) {
        table.Release(VELTO_RELEASE_CAPABILITIES, list, count);
    }
    for (const std::string_view id : {VELTO_ID_SPEAKER, VELTO_ID_MODEM_SPEAKER}) {
        SpeakerUse(table, id).Play(500ms);
        table.CloseAudioTrack(id.data(), static_cast<uint32_t>(id.size()));
    }
    host::Microphone microphone(table, VELTO_ID_MIC);
    microphone.Open();
    ReadPacketWithin(microphone, 2s);
    microphone.Close();
    const AudioListener none{nullptr, nullptr};
    table.RegisterListener(&none);
    table.RegisterListener(nullptr); // refused, with a log line
}

// What happened meanwhile to each file and registry value, by its name.
template <typename Action>
std::map<std::string, std::string> ChangesDuring(WatchedFolders &folders, Action action)
{
    const std::vector<RegistryValue> registryBefore = ValuesOfModuleKeys();
    folders.TakeChanges();
    action();
    std::map<std::string, std::string> changes = folders.TakeChanges();
    changes.merge(ChangesOf(registryBefore, ValuesOfModuleKeys()));
    return changes;
}

// Other programs of the platform may write to the module's folder and below its registry key. A file or value
// that also changes without a call causes a warning. Not a failure, because another program may write it; not
// ignored, because the module may write it in a check that runs at the same time.
void WritesNoFiles(Context &context)
{
    WatchedFolders folders(CurrentProcess());
    const auto withoutCalls = ChangesDuring(folders, [&] { context.environment.Sleep(quietTime); });
    context.Step("calls every slot", {"HYG-2"});
    const auto withCalls = ChangesDuring(folders, [&] { UseEverything(context.table); });
    for (const auto &[name, change] : withCalls) {
        const std::string text = fmt::format("{} {}", change, name);
        if (withoutCalls.contains(name)) {
            context.Warn(text + ": it changed before the first call, too, so another program may write it");
        } else {
            context.Expect(false, "HYG-2", text);
        }
    }
}

} // namespace

std::span<const Check> EntryProcessChecks()
{
    static const std::vector<Check> checks{
        ProcessCheck("entry.exports", ChecksExports),
        ProcessCheck("lifecycle.starts-nothing-before-use", StartsNothingBeforeUse),
        ProcessCheck("entry.keeps-earlier-event", KeepsEarlierEvent),
        ProcessCheck("hygiene.files", WritesNoFiles),
    };
    return checks;
}

} // namespace velto::check
