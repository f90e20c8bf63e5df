#include "velto-host/crash_dump.h"

#include <windows.h>

#include <dbghelp.h>

#include <array>
#include <cstdint>
#include <cstdio>

#include "velto-host/windows_text.h"

namespace velto::host {
namespace {

using WriteDumpFunction = decltype(&MiniDumpWriteDump);

// Prepared before a crash, because the heap may be damaged then.
std::wstring dumpFile;
WriteDumpFunction writeDump = nullptr;

// Prints "program: crashed with 0xC0000005 at module.dll+0x1234". scripts/symbolise reads this form.
void PrintPlace(const EXCEPTION_RECORD &exception)
{
    HMODULE module = nullptr;
    std::array<char, MAX_PATH> path{};
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       static_cast<const char *>(exception.ExceptionAddress), &module);
    GetModuleFileNameA(module, path.data(), static_cast<DWORD>(path.size() - 1));
    const char *name = path.data();
    for (const char *c = path.data(); *c != '\0'; ++c) {
        name = *c == '\\' ? c + 1 : name;
    }
    const auto offset =
        reinterpret_cast<uintptr_t>(exception.ExceptionAddress) - reinterpret_cast<uintptr_t>(module);
    std::fprintf(stderr, "velto-host: crashed with 0x%08lX at %s+0x%llX\n", exception.ExceptionCode,
                 module != nullptr ? name : "unknown", static_cast<unsigned long long>(offset));
}

LONG WINAPI OnCrash(EXCEPTION_POINTERS *exception)
{
    SetUnhandledExceptionFilter(nullptr); // a second crash, in this function, is left to Windows
    PrintPlace(*exception->ExceptionRecord);
    std::fputs(WriteDump(exception) ? "velto-host: the minidump was written\n"
                                    : "velto-host: the minidump could not be written\n",
               stderr);
    std::fflush(stderr);
    TerminateProcess(GetCurrentProcess(), exception->ExceptionRecord->ExceptionCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

} // namespace

void PrepareDump(const std::string &file)
{
    dumpFile = ToWide(file);
    // Loaded at run time, because only a crash needs it, and never freed.
    const HMODULE library = LoadLibraryExW(L"dbghelp.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    writeDump = reinterpret_cast<WriteDumpFunction>(reinterpret_cast<void *>(
        library != nullptr ? GetProcAddress(library, "MiniDumpWriteDump") : nullptr));
}

bool WriteDump(EXCEPTION_POINTERS *exception)
{
    if (writeDump == nullptr) {
        return false;
    }
    const HANDLE file = CreateFileW(dumpFile.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return false;
    }
    MINIDUMP_EXCEPTION_INFORMATION place{GetCurrentThreadId(), exception, FALSE};
    const BOOL isWritten =
        writeDump(GetCurrentProcess(), GetCurrentProcessId(), file, MiniDumpNormal, &place, nullptr, nullptr);
    CloseHandle(file);
    return isWritten != FALSE;
}

void WriteDumpOnCrash(const std::string &file)
{
    PrepareDump(file);
    SetUnhandledExceptionFilter(OnCrash);
}

} // namespace velto::host
