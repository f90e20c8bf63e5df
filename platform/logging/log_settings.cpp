#include "logging/log_settings.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "logging/logger.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace logging {
namespace {

using NativeString = std::filesystem::path::string_type;

// Value of an environment variable; empty if there is none. On Windows, reads the system's environment: the
// C runtime has a copy in narrow characters, which misses later changes.
NativeString EnvironmentVariable(const char *name)
{
#ifdef _WIN32
    const std::wstring wideName(name, name + std::char_traits<char>::length(name));
    std::wstring value(GetEnvironmentVariableW(wideName.c_str(), nullptr, 0), L'\0');
    const DWORD length =
        GetEnvironmentVariableW(wideName.c_str(), value.data(), static_cast<DWORD>(value.size()));
    value.resize(length < value.size() ? length : 0);
    return value;
#else
    const char *value = std::getenv(name);
    return value != nullptr ? value : "";
#endif
}

std::filesystem::path LocalApplicationData()
{
#ifdef _WIN32
    return EnvironmentVariable("LOCALAPPDATA");
#else
    if (const NativeString state = EnvironmentVariable("XDG_STATE_HOME"); !state.empty()) {
        return state;
    }
    const NativeString home = EnvironmentVariable("HOME");
    return home.empty() ? std::filesystem::path() : std::filesystem::path(home) / ".local" / "state";
#endif
}

// Small letters of `name` also match their capitals.
bool Matches(const NativeString &text, std::string_view name)
{
    const NativeString letters(name.begin(), name.end());
    return std::equal(text.begin(), text.end(), letters.begin(), letters.end(), [](auto unit, auto letter) {
        return unit == letter || (letter >= 'a' && unit == letter - 'a' + 'A');
    });
}

std::optional<int> ParseLevel(const NativeString &text)
{
    const std::pair<std::string_view, int> levels[] = {
        {"1", LOG_LEVEL_TRACE},   {"2", LOG_LEVEL_DEBUG},     {"3", LOG_LEVEL_INFO},
        {"4", LOG_LEVEL_ERROR},   {"trace", LOG_LEVEL_TRACE}, {"debug", LOG_LEVEL_DEBUG},
        {"info", LOG_LEVEL_INFO}, {"error", LOG_LEVEL_ERROR}, {"off", levelOff},
    };
    for (const auto &[name, level] : levels) {
        if (Matches(text, name)) {
            return level;
        }
    }
    return std::nullopt;
}

} // namespace

LogSettings ReadLogSettings()
{
    LogSettings settings;
    settings.file = EnvironmentVariable("VELTO_LOG_FILE");
    if (settings.file.empty()) {
        const std::filesystem::path data = LocalApplicationData();
        if (!data.empty()) {
            settings.file = data / "VELTO" / "LibVeltoAudioHandler.log";
        }
    }
    const NativeString level = EnvironmentVariable("VELTO_LOG_LEVEL");
    if (!level.empty()) {
        const std::optional<int> parsed = ParseLevel(level);
        settings.levelIsInvalid = !parsed.has_value();
        settings.lowestLevel = parsed.value_or(settings.lowestLevel);
    }
    return settings;
}

} // namespace logging
