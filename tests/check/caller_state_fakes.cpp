#include "caller_state_fakes.h"

#include <windows.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cfenv>
#include <clocale>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

extern "C" {
#include <libavutil/log.h>
}

#include <fmt/format.h>

#include "tests/fakes/fake_windows.h"

namespace velto_test {
namespace {

using velto::check::CallerState;
using velto::check::StateValue;

constexpr DWORD unusualLastError = 1168; // ERROR_NOT_FOUND, which no checked call documents
constexpr char unusualLocale[] = "C.UTF-8";
constexpr char logProbe[] = "the test looks for the log callback";

std::atomic<unsigned> probesHeard{0};

void CountProbes(void *, int, const char *format, va_list)
{
    if (std::strcmp(format, logProbe) == 0) {
        ++probesHeard;
    }
}

// FFmpeg has no function that returns the callback, so a message shows whether it is still the one that was
// set. The default callback drops a message of this level.
std::string FfmpegText()
{
    const unsigned before = probesHeard;
    av_log(nullptr, AV_LOG_TRACE, logProbe);
    return fmt::format("{}, level {}", probesHeard != before ? "the host's" : "another", av_log_get_level());
}

#if defined(__x86_64__)
unsigned SseControl()
{
    return _mm_getcsr();
}
void SetSseControl(unsigned value)
{
    _mm_setcsr(value);
}
constexpr unsigned flushToZero = _MM_FLUSH_ZERO_ON;
constexpr unsigned sseFlags = _MM_EXCEPT_MASK; // results of earlier calculations, no settings
#else
unsigned SseControl()
{
    return 0;
}
void SetSseControl(unsigned) {}
constexpr unsigned flushToZero = 0;
constexpr unsigned sseFlags = 0;
#endif

std::string LocaleName()
{
    const char *name = std::setlocale(LC_ALL, nullptr);
    return name != nullptr ? name : "unknown";
}

std::string SignalHandlers()
{
    std::string text;
    for (const int number : {SIGABRT, SIGFPE, SIGILL, SIGINT, SIGSEGV, SIGTERM}) {
        struct sigaction action {};
        sigaction(number, nullptr, &action);
        text += fmt::format("{} {:#x} ", number, reinterpret_cast<uintptr_t>(action.sa_handler));
    }
    return text;
}

std::string EnvironmentText()
{
    std::string text;
    for (char **variable = environ; *variable != nullptr; ++variable) {
        text.append(*variable).append("\n");
    }
    return text;
}

std::string StandardFiles()
{
    std::string text;
    for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        struct stat status {};
        const bool isOpen = fstat(file, &status) == 0;
        text += fmt::format("{} {} {} ", isOpen ? "open" : "closed", status.st_dev, status.st_ino);
    }
    return text;
}

std::string Affinity()
{
    cpu_set_t processors;
    CPU_ZERO(&processors);
    sched_getaffinity(0, sizeof processors, &processors);
    std::string text;
    for (int number = 0; number < CPU_SETSIZE; ++number) {
        if (CPU_ISSET(number, &processors)) {
            text += fmt::format("{} ", number);
        }
    }
    return text;
}

// What MakeUnusual replaced.
struct UsualState {
    int rounding;
    unsigned sse;
    std::string locale;
    std::filesystem::path folder;
};

class CallerStateOnFakes final : public CallerState {
public:
    CallerStateOnFakes() = default;
    ~CallerStateOnFakes() override { Restore(); }
    CallerStateOnFakes(const CallerStateOnFakes &) = delete;
    CallerStateOnFakes &operator=(const CallerStateOnFakes &) = delete;

    void MakeUnusual() override
    {
        if (!m_usual) {
            m_usual =
                UsualState{std::fegetround(), SseControl(), LocaleName(), std::filesystem::current_path()};
        }
        std::setlocale(LC_ALL, unusualLocale);
        std::filesystem::current_path(std::filesystem::temp_directory_path());
        av_log_set_callback(CountProbes);
        std::fesetround(FE_UPWARD); // of both units
        SetSseControl(SseControl() | flushToZero);
        fakewin::SetLastError(unusualLastError);
    }

    void Restore() override
    {
        if (!m_usual) {
            return;
        }
        std::fesetround(m_usual->rounding);
        SetSseControl(m_usual->sse);
        av_log_set_callback(av_log_default_callback);
        std::filesystem::current_path(m_usual->folder);
        std::setlocale(LC_ALL, m_usual->locale.c_str());
        m_usual.reset();
    }

    std::vector<StateValue> Read() const override
    {
        return {
            {"last error", "HYG-1", std::to_string(fakewin::GetLastError())},
            {"COM apartment", "HYG-1", fmt::format("depth {}", fakewin::ApartmentDepth())},
            {"priority of the thread", "HYG-3", std::to_string(getpriority(PRIO_PROCESS, 0))},
            {"rounding mode", "HYG-4", std::to_string(std::fegetround())},
            {"control bits of MXCSR", "HYG-4", fmt::format("{:#06x}", SseControl() & ~sseFlags)},
            {"locale of the C runtime", "HYG-5", LocaleName()},
            {"current folder", "HYG-6", std::filesystem::current_path().string()},
            {"log callback and level of FFmpeg", "HYG-10", FfmpegText()},
            {"signal handlers", "HYG-11", SignalHandlers()},
            {"environment variables", "HYG-12", EnvironmentText()},
            {"standard files", "HYG-14", StandardFiles()},
            {"processor affinity of the thread", "HYG-15", Affinity()},
        };
    }

private:
    std::optional<UsualState> m_usual;
};

} // namespace

std::unique_ptr<CallerState> MakeCallerStateOnFakes()
{
    return std::make_unique<CallerStateOnFakes>();
}

} // namespace velto_test
