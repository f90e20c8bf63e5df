#include "ffmpeg_messages.h"

#include <cstdarg>
#include <cstdint>
#include <functional>
#include <string_view>

extern "C" {
#include <libavutil/log.h>
}

namespace velto_fuzz {
namespace {

constexpr size_t kinds = 4096;

// libFuzzer finds these counters by the name of their section, clears them before each input, and keeps
// inputs that change them.
__attribute__((section("__libfuzzer_extra_counters"), used)) uint8_t counters[kinds];

void Count(void *, int, const char *format, va_list)
{
    ++counters[std::hash<std::string_view>{}(format) % kinds];
}

} // namespace

void CountFFmpegMessages()
{
    av_log_set_callback(Count);
}

} // namespace velto_fuzz
