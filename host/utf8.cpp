#include "host/utf8.h"

#include <windows.h>

#include <shellapi.h>

#include <fmt/format.h>

namespace velto::host {

std::wstring Widen(const std::string &text)
{
    const int length = static_cast<int>(text.size());
    std::wstring wide(MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), length, wide.data(), static_cast<int>(wide.size()));
    return wide;
}

std::string Narrow(const std::wstring &text)
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
    for (int i = 0; wide != nullptr && i < count; ++i) {
        arguments.push_back(Narrow(wide[i]));
    }
    LocalFree(wide);
    return arguments;
}

std::string SystemErrorText(uint32_t code)
{
    wchar_t text[512] = {};
    DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
                                  0, text, 512, nullptr);
    while (length > 0 && (text[length - 1] <= L' ' || text[length - 1] == L'.')) {
        --length;
    }
    return fmt::format("{} (error {})", Narrow(std::wstring(text, length)), code);
}

} // namespace velto::host
