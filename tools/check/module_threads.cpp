#include "check/module_threads.h"

#include <tlhelp32.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include <fmt/format.h>

#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

using QueryThread = LONG(NTAPI *)(HANDLE thread, int kind, void *value, ULONG bytes, ULONG *writtenBytes);

constexpr int threadBasicInformation = 0; // ThreadBasicInformation
constexpr int threadStartAddress = 9;     // ThreadQuerySetWin32StartAddress

// The part of THREAD_BASIC_INFORMATION that is read here.
struct ThreadBasics {
    LONG exitStatus = 0;
    const NT_TIB *block = nullptr;
    std::array<uintptr_t, 4> others{};
};

// The first functions of a thread are here. It has the address of the code that a C runtime called for it.
constexpr size_t examinedStackBytes = 65536;

// C runtimes whose function for starting threads is the first of a thread.
constexpr std::array<std::string_view, 6> runtimeNames{"msvcrt", "ucrtbase",        "vcruntime",
                                                       "msvcp",  "libwinpthread-1", "libstdc++-6"};

// The function is documented for drivers only, and ntdll.dll exports it.
QueryThread FindQueryThread()
{
    return reinterpret_cast<QueryThread>(
        reinterpret_cast<void *>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationThread")));
}

// The value of this kind of a thread of this process, zeros if the system does not report it.
template <typename Value>
Value Query(uint32_t threadId, int kind)
{
    static const QueryThread query = FindQueryThread();
    Value value{};
    const HANDLE thread = OpenThread(THREAD_QUERY_INFORMATION, FALSE, threadId);
    if (thread != nullptr) {
        if (query == nullptr || query(thread, kind, &value, sizeof value, nullptr) < 0) {
            value = {};
        }
        CloseHandle(thread);
    }
    return value;
}

uintptr_t StartAddressOf(uint32_t threadId)
{
    return Query<uintptr_t>(threadId, threadStartAddress);
}

// Memory of a thread that may end meanwhile.
bool ReadMemory(const void *address, void *copy, size_t bytes)
{
    SIZE_T read = 0;
    return ReadProcessMemory(GetCurrentProcess(), address, copy, bytes, &read) != FALSE && read == bytes;
}

// The values on the stack of a thread, next to its first functions. Empty if it has ended.
std::vector<uintptr_t> BeginOfStack(uint32_t threadId)
{
    const auto basics = Query<ThreadBasics>(threadId, threadBasicInformation);
    NT_TIB block{};
    if (basics.block == nullptr || !ReadMemory(basics.block, &block, sizeof block)) {
        return {};
    }
    const auto *const base = static_cast<const uint8_t *>(block.StackBase);
    const auto *const limit = static_cast<const uint8_t *>(block.StackLimit);
    const size_t bytes = limit < base ? std::min(static_cast<size_t>(base - limit), examinedStackBytes) : 0;
    std::vector<uintptr_t> values(bytes / sizeof(uintptr_t));
    if (!ReadMemory(base - bytes, values.data(), values.size() * sizeof(uintptr_t))) {
        values.clear();
    }
    return values;
}

HMODULE ModuleOf(uintptr_t address)
{
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the system reports it as a number
    const auto *const place = reinterpret_cast<LPCWSTR>(address);
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       place, &module);
    return module;
}

// In small letters.
std::string PathOf(HMODULE module)
{
    std::array<wchar_t, 1024> path{};
    const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
    std::string text = host::ToUtf8(std::wstring(path.data(), length));
    std::transform(text.begin(), text.end(), text.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    });
    return text;
}

std::string FolderOf(HMODULE module)
{
    std::string path = PathOf(module);
    path.resize(path.find_last_of('\\') + 1);
    return path;
}

// An address behind the last byte of a mapped DLL.
uintptr_t EndOf(HMODULE module)
{
    const auto *const base = reinterpret_cast<const uint8_t *>(module);
    const auto *const dos = reinterpret_cast<const IMAGE_DOS_HEADER *>(base);
    const auto *const headers = reinterpret_cast<const IMAGE_NT_HEADERS *>(base + dos->e_lfanew);
    return reinterpret_cast<uintptr_t>(base) + headers->OptionalHeader.SizeOfImage;
}

// Whether a thread runs code of a DLL: an address in the DLL is on its stack.
bool RunsCodeOf(HMODULE module, uint32_t threadId)
{
    const std::vector<uintptr_t> stack = BeginOfStack(threadId);
    const auto begin = reinterpret_cast<uintptr_t>(module);
    const uintptr_t end = EndOf(module);
    return std::any_of(stack.begin(), stack.end(),
                       [&](uintptr_t value) { return value >= begin && value < end; });
}

std::string FileNameOf(HMODULE module)
{
    const std::string path = PathOf(module);
    return path.substr(path.find_last_of('\\') + 1);
}

// The DLL, and the others in its folder. Not the program, which may be there, too.
std::vector<HMODULE> ModulesInFolderOf(HMODULE module)
{
    std::vector<HMODULE> modules;
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, 0);
    if (snapshot == INVALID_HANDLE_VALUE) {
        return {module};
    }
    const std::string folder = FolderOf(module);
    MODULEENTRY32W entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Module32FirstW(snapshot, &entry); more != FALSE;
         more = Module32NextW(snapshot, &entry)) {
        if (entry.hModule != GetModuleHandleW(nullptr) && FolderOf(entry.hModule) == folder) {
            modules.push_back(entry.hModule);
        }
    }
    CloseHandle(snapshot);
    return modules;
}

ThreadInfo Examine(uint32_t threadId)
{
    ThreadInfo thread{threadId, StartAddressOf(threadId), nullptr, {}};
    thread.startModule = thread.startAddress != 0 ? ModuleOf(thread.startAddress) : nullptr;
    if (thread.startModule != nullptr) {
        thread.startFile = FileNameOf(thread.startModule);
    }
    return thread;
}

std::vector<uint32_t> ThreadIds()
{
    std::vector<uint32_t> ids;
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE) {
        return ids;
    }
    THREADENTRY32 entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Thread32First(snapshot, &entry); more != FALSE; more = Thread32Next(snapshot, &entry)) {
        if (entry.th32OwnerProcessID == GetCurrentProcessId()) {
            ids.push_back(entry.th32ThreadID);
        }
    }
    CloseHandle(snapshot);
    return ids;
}

bool BeginsInRuntime(const ThreadInfo &thread)
{
    return std::any_of(runtimeNames.begin(), runtimeNames.end(),
                       [&](std::string_view name) { return thread.startFile.starts_with(name); });
}

} // namespace

std::vector<ThreadInfo> ThreadsOfProcess()
{
    std::vector<ThreadInfo> threads;
    const std::vector<uint32_t> ids = ThreadIds();
    std::transform(ids.begin(), ids.end(), std::back_inserter(threads), Examine);
    return threads;
}

std::vector<ThreadInfo> NewThreadsOf(HMODULE module, const std::vector<ThreadInfo> &before)
{
    std::vector<ThreadInfo> threads = ThreadsOfProcess();
    std::erase_if(threads, [&](const ThreadInfo &thread) {
        return std::any_of(before.begin(), before.end(),
                           [&](const ThreadInfo &old) { return old.id == thread.id; });
    });
    const std::vector<HMODULE> modules = ModulesInFolderOf(module);
    std::erase_if(threads, [&](const ThreadInfo &thread) {
        const bool isOfModule =
            std::find(modules.begin(), modules.end(), thread.startModule) != modules.end();
        const bool isOfRuntime =
            BeginsInRuntime(thread) && std::any_of(modules.begin(), modules.end(),
                                                   [&](HMODULE each) { return RunsCodeOf(each, thread.id); });
        return !isOfModule && !isOfRuntime;
    });
    return threads;
}

std::vector<ThreadInfo> StillRunning(const std::vector<ThreadInfo> &threads)
{
    std::vector<ThreadInfo> running;
    const std::vector<uint32_t> ids = ThreadIds();
    std::copy_if(threads.begin(), threads.end(), std::back_inserter(running), [&](const ThreadInfo &thread) {
        return std::find(ids.begin(), ids.end(), thread.id) != ids.end() &&
               StartAddressOf(thread.id) == thread.startAddress; // an id may be used again
    });
    return running;
}

std::vector<ThreadInfo> WithoutCode(const std::vector<ThreadInfo> &threads)
{
    std::vector<ThreadInfo> running = StillRunning(threads);
    std::erase_if(running, [](const ThreadInfo &thread) { return ModuleOf(thread.startAddress) != nullptr; });
    return running;
}

std::string Describe(const std::vector<ThreadInfo> &threads)
{
    std::string text = fmt::format("{} {}", threads.size(), threads.size() == 1 ? "thread" : "threads");
    const char *separator = ": ";
    for (const ThreadInfo &thread : threads) {
        text += fmt::format("{}{} in {}+{:#x}", separator, thread.id,
                            thread.startFile.empty() ? "no DLL" : thread.startFile,
                            thread.startAddress - reinterpret_cast<uintptr_t>(thread.startModule));
        separator = ", ";
    }
    return text;
}

} // namespace velto::check
