#include "velto-host/windows_text.h"

#include <windows.h>

#include <shellapi.h>

namespace velto::host {

std::wstring ToWide(const std::string &text)
{
    const int length = static_cast<int>(text.size());
    std::wstring wide(MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), length, wide.data(), static_cast<int>(wide.size()));
    return wide;
}

std::string ToUtf8(const std::wstring &text)
{
    const int length = static_cast<int>(text.size());
    std::string narrow(WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr),
                       '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, narrow.data(), static_cast<int>(narrow.size()),
                        nullptr, nullptr);
    return narrow;
}

std::vector<std::string> CommandLineArguments()
{
    int count = 0;
    wchar_t **wide = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> arguments;
    for (int i = 1; wide != nullptr && i < count; ++i) {
        arguments.push_back(ToUtf8(wide[i]));
    }
    LocalFree(wide);
    return arguments;
}

std::wstring ProgramPath()
{
    constexpr size_t longestPath = 32768; // of Windows, with its terminator
    std::wstring path(longestPath, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), longestPath));
    return path;
}

std::wstring EnvironmentVariable(const wchar_t *name)
{
    std::wstring value(GetEnvironmentVariableW(name, nullptr, 0), L'\0');
    const DWORD length = GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
    value.resize(length < value.size() ? length : 0);
    return value;
}

std::string SystemErrorText(uint32_t code)
{
    wchar_t text[512] = {};
    DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
                                  0, text, 512, nullptr);
    while (length > 0 && (text[length - 1] <= L' ' || text[length - 1] == L'.')) {
        --length;
    }
    return ToUtf8(std::wstring(text, length)) + " (error " + std::to_string(code) + ")";
}

} // namespace velto::host
