#include "check/caller_state_windows.h"

#include <windows.h>

#include <immintrin.h>
#include <objbase.h>
#include <objidl.h>
#include <psapi.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <clocale>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

constexpr DWORD unusualLastError = 1168;             // ERROR_NOT_FOUND, which no checked call documents
constexpr unsigned exceptionFlags = _MM_EXCEPT_MASK; // of MXCSR: results of earlier calculations, no settings
constexpr uint16_t roundUpX87 = 0x0800;
constexpr char unusualLocale[] = "German"; // a comma as the decimal point

template <typename Function>
Function FunctionOf(HMODULE library, const char *name)
{
    // The cast through void * avoids a warning about the different function type of GetProcAddress.
    return reinterpret_cast<Function>(reinterpret_cast<void *>(GetProcAddress(library, name)));
}

// ---- The calling thread

// A thread that entered no apartment is reported in the implicit multi-threaded apartment while another
// thread of the process is in the real one. The module's own threads may be; only the caller's own apartment
// counts.
std::string ApartmentName()
{
    APTTYPE type{};
    APTTYPEQUALIFIER qualifier{};
    if (FAILED(CoGetApartmentType(&type, &qualifier)) || qualifier == APTTYPEQUALIFIER_IMPLICIT_MTA) {
        return "none";
    }
    switch (type) {
    case APTTYPE_STA:
    case APTTYPE_MAINSTA:
        return "single-threaded";
    case APTTYPE_MTA:
        return "multi-threaded";
    default:
        return fmt::format("type {}", static_cast<int>(type));
    }
}

uint16_t X87ControlWord()
{
    alignas(16) std::array<uint8_t, 512> state; // its first two bytes are the control word
    _fxsave(state.data());
    uint16_t word = 0;
    std::memcpy(&word, state.data(), sizeof word);
    return word;
}

// Does nothing where the compiler has no instruction for it: then only changes of the usual word are seen.
void SetX87ControlWord([[maybe_unused]] uint16_t word)
{
#if defined(__GNUC__) || defined(__clang__)
    __asm__ volatile("fldcw %0" : : "m"(word));
#endif
}

unsigned SseControl()
{
    return _mm_getcsr() & ~exceptionFlags;
}

std::string ThreadAffinity()
{
    GROUP_AFFINITY affinity{};
    GetThreadGroupAffinity(GetCurrentThread(), &affinity);
    return fmt::format("group {}, processors {:#x}", affinity.Group, static_cast<uint64_t>(affinity.Mask));
}

// ---- The process

// In a process with threads in several processor groups, Windows reports a mask of 0. A new thread of the
// module may be the first one in another group, so with several groups a changed mask proves nothing.
std::string ProcessAffinity()
{
    if (GetActiveProcessorGroupCount() > 1) {
        return "not compared: this system has several processor groups";
    }
    DWORD_PTR process = 0;
    DWORD_PTR system = 0;
    GetProcessAffinityMask(GetCurrentProcess(), &process, &system);
    return fmt::format("processors {:#x}", static_cast<uint64_t>(process));
}

std::wstring CurrentFolder()
{
    std::wstring folder(GetCurrentDirectoryW(0, nullptr), L'\0');
    folder.resize(GetCurrentDirectoryW(static_cast<DWORD>(folder.size()), folder.data()));
    return folder;
}

std::wstring SystemFolder()
{
    std::wstring folder(MAX_PATH, L'\0');
    folder.resize(GetSystemDirectoryW(folder.data(), MAX_PATH));
    return folder;
}

std::string LocaleName()
{
    const char *name = std::setlocale(LC_ALL, nullptr);
    return name != nullptr ? name : "unknown";
}

// "velto-host.exe+0x1a2b": the same in each run, unlike the address.
std::string PlaceOf(const void *address)
{
    HMODULE module = nullptr;
    std::array<wchar_t, MAX_PATH> path{};
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            static_cast<const wchar_t *>(address), &module) ||
        GetModuleFileNameW(module, path.data(), MAX_PATH) == 0) {
        return "outside of all modules";
    }
    const auto offset = static_cast<const uint8_t *>(address) - reinterpret_cast<const uint8_t *>(module);
    return fmt::format("{}+{:#x}", host::ToUtf8(std::filesystem::path(path.data()).filename().wstring()),
                       offset);
}

// Windows reports the filter only to a caller that replaces it.
std::string ExceptionFilterPlace()
{
    const LPTOP_LEVEL_EXCEPTION_FILTER filter = SetUnhandledExceptionFilter(nullptr);
    SetUnhandledExceptionFilter(filter);
    return filter == nullptr ? "none" : PlaceOf(reinterpret_cast<const void *>(filter));
}

std::string HandlerName(void (*handler)(int))
{
    if (handler == SIG_DFL) {
        return "default";
    }
    return handler == SIG_IGN ? "ignored" : PlaceOf(reinterpret_cast<const void *>(handler));
}

// The C runtime, too, reports a handler only to a caller that replaces it.
std::string SignalHandlers()
{
    struct Signal {
        int number;
        std::string_view name;
    };
    constexpr std::array signals{Signal{SIGABRT, "abort"},      Signal{SIGFPE, "arithmetic"},
                                 Signal{SIGILL, "instruction"}, Signal{SIGINT, "interrupt"},
                                 Signal{SIGSEGV, "memory"},     Signal{SIGTERM, "terminate"}};
    std::string text;
    for (const Signal &each : signals) {
        const auto handler = std::signal(each.number, SIG_IGN);
        std::signal(each.number, handler);
        text += fmt::format("{}{} {}", text.empty() ? "" : ", ", each.name, HandlerName(handler));
    }
    return text;
}

// A checksum: the variables themselves are nobody's business in a report.
std::string EnvironmentText()
{
    wchar_t *block = GetEnvironmentStringsW();
    uint64_t checksum = 0xCBF29CE484222325; // FNV-1a
    size_t count = 0;
    for (const wchar_t *variable = block; variable != nullptr && *variable != L'\0'; ++count) {
        for (; *variable != L'\0'; ++variable) {
            checksum = (checksum ^ *variable) * 0x100000001B3;
        }
        checksum *= 0x100000001B3; // the terminator
        ++variable;
    }
    FreeEnvironmentStringsW(block);
    return fmt::format("{} variables with checksum {:016x}", count, checksum);
}

std::string DllFolder()
{
    std::wstring folder(GetDllDirectoryW(0, nullptr), L'\0');
    folder.resize(GetDllDirectoryW(static_cast<DWORD>(folder.size()), folder.data()));
    return folder.empty() ? "none" : host::ToUtf8(folder);
}

std::string StandardHandles()
{
    std::string text;
    for (const DWORD number : {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE}) {
        const HANDLE handle = GetStdHandle(number);
        DWORD flags = 0;
        text += fmt::format("{}{:#x} {}", text.empty() ? "" : ", ", reinterpret_cast<uintptr_t>(handle),
                            GetHandleInformation(handle, &flags) ? "open" : "closed");
    }
    return text;
}

// Whether this process has asked Windows for a shorter timer period. Windows answers only a process that
// withdraws its request, so an existing request is renewed.
std::string TimerRequest()
{
    using SetResolution = LONG(NTAPI *)(ULONG hundredNanoseconds, BOOLEAN set, ULONG * current);
    static const auto setResolution =
        FunctionOf<SetResolution>(GetModuleHandleW(L"ntdll.dll"), "NtSetTimerResolution");
    if (setResolution == nullptr) {
        return "unknown";
    }
    ULONG current = 0;
    constexpr ULONG anyPeriod = 10'000;
    if (setResolution(anyPeriod, FALSE, &current) < 0) {
        return "none";
    }
    setResolution(current, TRUE, &current);
    return "made";
}

// ---- FFmpeg's log callback

constexpr char logProbe[] = "velto-host looks for the log callback";
constexpr int traceLevel = 56; // AV_LOG_TRACE: the default callback drops it

std::atomic<unsigned> probesHeard{0};

void CountProbes(void *, int, const char *format, va_list)
{
    if (std::strcmp(format, logProbe) == 0) {
        ++probesHeard;
    }
}

// One FFmpeg DLL of the process. FFmpeg has no function that returns the callback, so a message shows whether
// it is still the one that was set.
class FfmpegLog {
public:
    explicit FfmpegLog(HMODULE library)
        : m_log(FunctionOf<Log>(library, "av_log")),
          m_setCallback(FunctionOf<SetCallback>(library, "av_log_set_callback")),
          m_default(FunctionOf<Callback>(library, "av_log_default_callback")),
          m_level(FunctionOf<Level>(library, "av_log_get_level"))
    {
    }

    bool IsComplete() const
    {
        return m_log != nullptr && m_setCallback != nullptr && m_default != nullptr && m_level != nullptr;
    }
    void SetOwnCallback() const { m_setCallback(CountProbes); }
    void SetDefaultCallback() const { m_setCallback(m_default); }

    std::string Text() const
    {
        const unsigned before = probesHeard;
        m_log(nullptr, traceLevel, logProbe);
        return fmt::format("{}, level {}", probesHeard != before ? "the host's" : "another", m_level());
    }

private:
    using Callback = void (*)(void *, int, const char *, va_list);
    using Log = void (*)(void *, int, const char *, ...);
    using SetCallback = void (*)(Callback);
    using Level = int (*)();

    Log m_log;
    SetCallback m_setCallback;
    Callback m_default;
    Level m_level;
};

// The loaded avutil DLLs: the program and the module may use different ones.
std::vector<FfmpegLog> LoadedFfmpegLogs()
{
    std::array<HMODULE, 1024> modules{};
    DWORD bytes = 0;
    K32EnumProcessModules(GetCurrentProcess(), modules.data(), sizeof modules, &bytes);
    const size_t count = std::min<size_t>(bytes / sizeof(HMODULE), modules.size());
    std::vector<FfmpegLog> logs;
    for (size_t index = 0; index < count; ++index) {
        std::array<wchar_t, MAX_PATH> name{};
        K32GetModuleBaseNameW(GetCurrentProcess(), modules[index], name.data(), MAX_PATH);
        const FfmpegLog log(modules[index]);
        if (_wcsnicmp(name.data(), L"avutil", 6) == 0 && log.IsComplete()) {
            logs.push_back(log);
        }
    }
    return logs;
}

// ---- All of it

// What MakeUnusual replaced.
struct UsualState {
    int priority;
    unsigned sse;
    uint16_t x87;
    std::string locale;
    std::wstring folder;
    UINT errorMode;
    DWORD threadErrorMode;
};

class WindowsCallerState final : public CallerState {
public:
    WindowsCallerState() : m_ffmpegLogs(LoadedFfmpegLogs()) {}
    ~WindowsCallerState() override { Restore(); }
    WindowsCallerState(const WindowsCallerState &) = delete;
    WindowsCallerState &operator=(const WindowsCallerState &) = delete;

    void MakeUnusual() override;
    void Restore() override;
    std::vector<StateValue> Read() const override;

private:
    std::string FfmpegText() const;

    const std::vector<FfmpegLog> m_ffmpegLogs;
    std::optional<UsualState> m_usual;
};

void WindowsCallerState::MakeUnusual()
{
    if (!m_usual) {
        m_usual = UsualState{GetThreadPriority(GetCurrentThread()),
                             _mm_getcsr(),
                             X87ControlWord(),
                             LocaleName(),
                             CurrentFolder(),
                             GetErrorMode(),
                             GetThreadErrorMode()};
    }
    SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_ABOVE_NORMAL);
    std::setlocale(LC_ALL, unusualLocale);
    SetCurrentDirectoryW(SystemFolder().c_str());
    // Not SEM_NOGPFAULTERRORBOX: the system's report of a crash of the module is wanted.
    SetErrorMode(m_usual->errorMode | SEM_NOOPENFILEERRORBOX);
    SetThreadErrorMode(m_usual->threadErrorMode | SEM_FAILCRITICALERRORS, nullptr);
    for (const FfmpegLog &log : m_ffmpegLogs) {
        log.SetOwnCallback();
    }
    _mm_setcsr((m_usual->sse & ~_MM_ROUND_MASK) | _MM_ROUND_UP | _MM_FLUSH_ZERO_ON);
    SetX87ControlWord(m_usual->x87 | roundUpX87);
    SetLastError(unusualLastError);
}

void WindowsCallerState::Restore()
{
    if (!m_usual) {
        return;
    }
    _mm_setcsr(m_usual->sse);
    SetX87ControlWord(m_usual->x87);
    for (const FfmpegLog &log : m_ffmpegLogs) {
        log.SetDefaultCallback();
    }
    SetThreadErrorMode(m_usual->threadErrorMode, nullptr);
    SetErrorMode(m_usual->errorMode);
    SetCurrentDirectoryW(m_usual->folder.c_str());
    std::setlocale(LC_ALL, m_usual->locale.c_str());
    SetThreadPriority(GetCurrentThread(), m_usual->priority);
    m_usual.reset();
}

std::vector<StateValue> WindowsCallerState::Read() const
{
    const DWORD lastError = GetLastError();
    std::vector<StateValue> values{
        {"last error", "HYG-1", std::to_string(lastError)},
        {"COM apartment", "HYG-1", ApartmentName()},
        {"priority of the thread", "HYG-3", std::to_string(GetThreadPriority(GetCurrentThread()))},
        {"priority class of the process", "HYG-3",
         fmt::format("{:#x}", GetPriorityClass(GetCurrentProcess()))},
        {"x87 control word", "HYG-4", fmt::format("{:#06x}", X87ControlWord())},
        {"control bits of MXCSR", "HYG-4", fmt::format("{:#06x}", SseControl())},
        {"locale of the C runtime", "HYG-5", LocaleName()},
        {"current folder", "HYG-6", host::ToUtf8(CurrentFolder())},
        {"error mode of the process", "HYG-7", fmt::format("{:#x}", GetErrorMode())},
        {"error mode of the thread", "HYG-7", fmt::format("{:#x}", GetThreadErrorMode())},
        {"filter for unhandled exceptions", "HYG-8", ExceptionFilterPlace()},
        {"request for a timer period", "HYG-9", TimerRequest()},
        {"log callback and level of FFmpeg", "HYG-10", FfmpegText()},
        {"signal handlers of the C runtime", "HYG-11", SignalHandlers()},
        {"environment variables", "HYG-12", EnvironmentText()},
        {"folder of SetDllDirectory", "HYG-13", DllFolder()},
        {"standard handles", "HYG-14", StandardHandles()},
        {"processor affinity of the thread", "HYG-15", ThreadAffinity()},
        {"processor affinity of the process", "HYG-15", ProcessAffinity()},
    };
    SetLastError(lastError); // two readings without a call between them are equal
    return values;
}

std::string WindowsCallerState::FfmpegText() const
{
    std::string text;
    for (const FfmpegLog &log : m_ffmpegLogs) {
        text += (text.empty() ? "" : "; ") + log.Text();
    }
    return text.empty() ? "no FFmpeg DLL" : text;
}

} // namespace

std::unique_ptr<CallerState> MakeWindowsCallerState()
{
    return std::make_unique<WindowsCallerState>();
}

} // namespace velto::check
