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

constexpr int threadStartAddress = 9; // ThreadQuerySetWin32StartAddress

// C runtimes whose function for starting threads is the first of a thread.
constexpr std::array<std::string_view, 6> runtimeNames{"msvcrt", "ucrtbase",        "vcruntime",
                                                       "msvcp",  "libwinpthread-1", "libstdc++-6"};

// The function is documented for drivers only, and ntdll.dll exports it.
QueryThread FindQueryThread()
{
    return reinterpret_cast<QueryThread>(
        reinterpret_cast<void *>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationThread")));
}

uintptr_t StartAddressOf(uint32_t threadId)
{
    static const QueryThread query = FindQueryThread();
    uintptr_t address = 0;
    const HANDLE thread = OpenThread(THREAD_QUERY_INFORMATION, FALSE, threadId);
    if (thread != nullptr) {
        if (query == nullptr || query(thread, threadStartAddress, &address, sizeof address, nullptr) < 0) {
            address = 0;
        }
        CloseHandle(thread);
    }
    return address;
}

HMODULE ModuleOf(uintptr_t address)
{
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(address), &module);
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

std::string FileNameOf(HMODULE module)
{
    const std::string path = PathOf(module);
    return path.substr(path.find_last_of('\\') + 1);
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
    const HMODULE program = GetModuleHandleW(nullptr); // may be in the same folder
    const std::string folder = FolderOf(module);
    const auto isOfModule = [&](const ThreadInfo &thread) {
        return thread.startModule != nullptr && thread.startModule != program &&
               FolderOf(thread.startModule) == folder;
    };
    const bool hasOwn = std::any_of(threads.begin(), threads.end(), isOfModule);
    std::erase_if(threads, [&](const ThreadInfo &thread) {
        return hasOwn ? !isOfModule(thread) : !BeginsInRuntime(thread);
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
