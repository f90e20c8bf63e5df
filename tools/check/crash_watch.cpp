#include "check/crash_watch.h"

#include <winternl.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <span>
#include <stdexcept>
#include <string_view>

#include "check/portable/check_journal.h"
#include "velto-host/crash_dump.h"
#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

// The heap may be damaged and any lock may be taken when a handler runs, and a stack overflow leaves little
// stack. So all that handlers use exists before, in these variables, and they ask the system only for what
// needs no lock.
HANDLE journal = INVALID_HANDLE_VALUE;
HANDLE endingEvent = nullptr;
bool writesDump = false;
uintptr_t programBase = 0;
std::wstring moduleName;
std::array<char, 128> moduleNameText{}; // for the journal
std::atomic_flag isRecording = ATOMIC_FLAG_INIT;
std::atomic<int> recorded{0};
constexpr int mostRecorded = 100; // a program that handles its exceptions may raise them endlessly

// ---- Where the module is

struct Range {
    std::atomic<uintptr_t> begin{0};
    std::atomic<uintptr_t> end{0};
};

// Ranges stay here after the module is unloaded: a thread that runs on in an unloaded module is the module's
// fault.
std::array<Range, 32> moduleRanges;
std::atomic<size_t> moduleRangeCount{0};

const Range *ModuleRangeOf(uintptr_t address)
{
    const size_t count = moduleRangeCount;
    for (size_t i = 0; i < count; ++i) {
        if (address >= moduleRanges[i].begin && address < moduleRanges[i].end) {
            return &moduleRanges[i];
        }
    }
    return nullptr;
}

// The loader lock is held, so there is one call at a time. A module that is loaded again mostly gets the same
// place.
void NoteModule(uintptr_t base, size_t bytes)
{
    const size_t count = moduleRangeCount;
    const Range *known = ModuleRangeOf(base);
    if (count == moduleRanges.size() || (known != nullptr && known->begin == base)) {
        return;
    }
    moduleRanges[count].begin = base;
    moduleRanges[count].end = base + bytes;
    moduleRangeCount = count + 1;
}

// Of LdrRegisterDllNotification, which the SDK documents and no header declares.
struct LoadedDll {
    ULONG flags;
    const UNICODE_STRING *fullName;
    const UNICODE_STRING *baseName;
    void *base;
    ULONG bytes;
};
constexpr ULONG dllIsLoaded = 1;
using DllNotification = void(CALLBACK *)(ULONG reason, const LoadedDll *dll, void *context);
using RegisterDllNotification = LONG(NTAPI *)(ULONG flags, DllNotification function, void *context,
                                              void **cookie);

void CALLBACK OnDll(ULONG reason, const LoadedDll *dll, void *)
{
    if (reason == dllIsLoaded && dll->baseName->Length == moduleName.size() * sizeof(wchar_t) &&
        _wcsnicmp(dll->baseName->Buffer, moduleName.c_str(), moduleName.size()) == 0) {
        NoteModule(reinterpret_cast<uintptr_t>(dll->base), dll->bytes);
    }
}

void RegisterForDlls()
{
    const auto registerNotification = reinterpret_cast<RegisterDllNotification>(reinterpret_cast<void *>(
        GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "LdrRegisterDllNotification")));
    void *cookie = nullptr;
    if (registerNotification == nullptr || registerNotification(0, OnDll, nullptr, &cookie) < 0) {
        throw std::runtime_error("the system does not report which DLLs it loads");
    }
}

// ---- The file of an address

// The memory at an address that the processor or the system reports.
template <typename Record>
const Record *At(uintptr_t address)
{
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the number was no pointer of this program before
    return reinterpret_cast<const Record *>(address);
}

// The base of the program or DLL at an address; 0 without one. Asks the memory manager: the loader would need
// its lock.
uintptr_t ImageAt(uintptr_t address)
{
    MEMORY_BASIC_INFORMATION memory{};
    const bool isImage = VirtualQuery(At<void>(address), &memory, sizeof memory) != 0 &&
                         memory.State == MEM_COMMIT && memory.Type == MEM_IMAGE;
    return isImage ? reinterpret_cast<uintptr_t>(memory.AllocationBase) : 0;
}

bool HasDosHeader(uintptr_t base)
{
    return base != 0 && At<IMAGE_DOS_HEADER>(base)->e_magic == IMAGE_DOS_SIGNATURE;
}

// The name that a DLL has in its table of exports.
const char *NameInExports(uintptr_t base)
{
    const uintptr_t newHeader = base + static_cast<uintptr_t>(At<IMAGE_DOS_HEADER>(base)->e_lfanew);
    const IMAGE_OPTIONAL_HEADER &headers = At<IMAGE_NT_HEADERS>(newHeader)->OptionalHeader;
    const DWORD exports = headers.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT].VirtualAddress;
    if (exports == 0 || exports >= headers.SizeOfImage) {
        return "unknown.dll";
    }
    return At<char>(base + At<IMAGE_EXPORT_DIRECTORY>(base + exports)->Name);
}

// Wine marks its own DLLs behind their DOS header.
bool IsOfWine(uintptr_t base)
{
    constexpr std::string_view mark = "Wine builtin DLL";
    return HasDosHeader(base) &&
           std::memcmp(At<char>(base + sizeof(IMAGE_DOS_HEADER)), mark.data(), mark.size()) == 0;
}

// ---- The line of a fault

// Text in a buffer that is never too short: what does not fit is left out.
class Line {
public:
    void Clear() { m_length = 0; }
    void Add(std::string_view text)
    {
        for (const char letter : text) {
            if (m_length < m_text.size()) {
                m_text[m_length++] = letter;
            }
        }
    }
    // A file's name: letters that JSON would have to escape are replaced.
    void AddName(const char *name)
    {
        for (int i = 0; i < 100 && name[i] != '\0'; ++i) {
            const char letter = name[i];
            const bool isPlain = letter >= ' ' && letter <= '~' && letter != '"' && letter != '\\';
            Add({isPlain ? &letter : "?", 1});
        }
    }
    void AddHexadecimal(uint64_t value)
    {
        Add("0x");
        int shift = 60;
        while (shift > 0 && (value >> shift) == 0) {
            shift -= 4;
        }
        for (; shift >= 0; shift -= 4) {
            Add(std::string_view("0123456789abcdef").substr((value >> shift) & 15, 1));
        }
    }
    void Append()
    {
        DWORD written = 0;
        WriteFile(journal, m_text.data(), static_cast<DWORD>(m_length), &written, nullptr);
    }

private:
    std::array<char, 512> m_text{};
    size_t m_length = 0;
};

Line line; // used by the thread that has set isRecording

std::string_view NameOfException(DWORD code)
{
    switch (code) {
    case EXCEPTION_ACCESS_VIOLATION:
        return "access violation";
    case EXCEPTION_IN_PAGE_ERROR:
        return "a page that cannot be read";
    case EXCEPTION_STACK_OVERFLOW:
        return "stack overflow";
    case EXCEPTION_ILLEGAL_INSTRUCTION:
        return "illegal instruction";
    case EXCEPTION_PRIV_INSTRUCTION:
        return "privileged instruction";
    case EXCEPTION_INT_DIVIDE_BY_ZERO:
        return "division by zero";
    case EXCEPTION_BREAKPOINT:
        return "breakpoint";
    default:
        return "exception";
    }
}

// An address without code, for example of a call through a damaged pointer, has no file.
void AddPlace(uintptr_t address)
{
    const Range *module = ModuleRangeOf(address);
    const uintptr_t base = ImageAt(address);
    if (module != nullptr) {
        line.AddName(moduleNameText.data());
        line.Add(base != 0 ? "+" : " (unloaded)+");
        line.AddHexadecimal(address - module->begin);
    } else if (base == programBase) {
        line.Add("velto-host.exe+");
        line.AddHexadecimal(address - base);
    } else if (HasDosHeader(base)) {
        line.AddName(NameInExports(base));
        line.Add("+");
        line.AddHexadecimal(address - base);
    } else {
        line.Add("no module, ");
        line.AddHexadecimal(address);
    }
}

void AppendFault(const EXCEPTION_RECORD &exception, bool isOfModule)
{
    const auto address = reinterpret_cast<uintptr_t>(exception.ExceptionAddress);
    line.Clear();
    // Another thread may have been in the middle of a line.
    line.Add("\n{\"event\":\"");
    line.Add(faultEvent);
    line.Add(R"(","place":")");
    AddPlace(address);
    line.Add(": ");
    line.Add(NameOfException(exception.ExceptionCode));
    line.Add(" ");
    line.AddHexadecimal(exception.ExceptionCode);
    line.Add(isOfModule ? R"(","ofModule":true)" : R"(","ofModule":false)");
    line.Add(IsOfWine(ImageAt(address)) ? ",\"ofWine\":true}\n" : ",\"ofWine\":false}\n");
    line.Append();
}

void AppendModuleOnStack()
{
    line.Clear();
    line.Add("\n{\"event\":\"");
    line.Add(faultStackEvent);
    line.Add("\",\"ofModule\":true}\n");
    line.Append();
}

// ---- The stack of a fault

CONTEXT frame; // of the caller that the walk has reached

bool IsOnThisStack(uintptr_t address)
{
    const auto &thread = *reinterpret_cast<const NT_TIB *>(NtCurrentTeb());
    return address >= reinterpret_cast<uintptr_t>(thread.StackLimit) &&
           address + sizeof(uint64_t) <= reinterpret_cast<uintptr_t>(thread.StackBase);
}

// Replaces `frame` by that of its caller. False at the end of the stack.
bool WalkToCaller()
{
    if (!IsOnThisStack(frame.Rsp)) {
        return false;
    }
    DWORD64 base = 0;
    PRUNTIME_FUNCTION function = RtlLookupFunctionEntry(frame.Rip, &base, nullptr);
    if (function == nullptr) {
        // A function that calls no other, or a jump to no code: the return address is on top of the stack.
        frame.Rip = *At<uint64_t>(frame.Rsp);
        frame.Rsp += sizeof(uint64_t);
    } else {
        void *handlerData = nullptr;
        DWORD64 establisher = 0;
        RtlVirtualUnwind(UNW_FLAG_NHANDLER, base, frame.Rip, function, &frame, &handlerData, &establisher,
                         nullptr);
    }
    return frame.Rip != 0;
}

bool IsModuleOnStack(const CONTEXT &fault)
{
    constexpr int mostFrames = 200;
    frame = fault;
    for (int i = 0; i < mostFrames && WalkToCaller(); ++i) {
        if (ModuleRangeOf(frame.Rip) != nullptr) {
            return true;
        }
    }
    return false;
}

// ---- The handlers

// Codes of errors that processors and the system raise. Not those of C++ exceptions, names of threads and
// debugger output, which are part of a program's normal work.
bool IsFault(DWORD code)
{
    constexpr DWORD kindOfCode = 0xF0000000;
    constexpr DWORD systemError = 0xC0000000;
    constexpr DWORD missingFunctionOfWine = 0x80000100;
    return (code & kindOfCode) == systemError || code == EXCEPTION_BREAKPOINT ||
           code == missingFunctionOfWine;
}

void Record(const EXCEPTION_POINTERS &exception)
{
    const bool isOfModule =
        ModuleRangeOf(reinterpret_cast<uintptr_t>(exception.ExceptionRecord->ExceptionAddress)) != nullptr;
    AppendFault(*exception.ExceptionRecord, isOfModule);
    // A damaged stack can make this fail. The line above is written by then.
    if (!isOfModule && IsModuleOnStack(*exception.ContextRecord)) {
        AppendModuleOnStack();
    }
}

LONG CALLBACK OnException(EXCEPTION_POINTERS *exception)
{
    // A second fault meanwhile, in this handler or on another thread, is left to the system.
    if (!IsFault(exception->ExceptionRecord->ExceptionCode) || isRecording.test_and_set()) {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    // A handled exception must leave no trace in the thread.
    const DWORD lastError = GetLastError();
    if (recorded++ < mostRecorded) {
        Record(*exception);
    }
    SetLastError(lastError);
    isRecording.clear();
    return EXCEPTION_CONTINUE_SEARCH;
}

LONG WINAPI OnUnhandledException(EXCEPTION_POINTERS *exception)
{
    if (writesDump) {
        host::WriteDump(exception);
    }
    if (endingEvent != nullptr) {
        SetEvent(endingEvent);
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

void WatchCrashes(const CrashWatchOptions &options)
{
    journal = CreateFileW(options.journal.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                          nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (journal == INVALID_HANDLE_VALUE) {
        throw std::runtime_error("cannot open the journal for crashes: " +
                                 host::SystemErrorText(GetLastError()));
    }
    endingEvent = options.ending;
    programBase = reinterpret_cast<uintptr_t>(GetModuleHandleW(nullptr));
    moduleName = options.moduleName;
    const std::string name = host::ToUtf8(moduleName);
    name.copy(moduleNameText.data(), moduleNameText.size() - 1);
    RegisterForDlls();
    if (!options.dumpFile.empty()) {
        host::PrepareDump(options.dumpFile);
        writesDump = true;
    }
    constexpr ULONG first = 1;
    AddVectoredExceptionHandler(first, OnException);
    SetUnhandledExceptionFilter(OnUnhandledException);
}

} // namespace velto::check
