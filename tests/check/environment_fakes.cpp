#include "environment_fakes.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <new>
#include <numbers>
#include <vector>

#include "caller_state_fakes.h"
#include "reset.h"
#include "tests/fakes/fake_windows.h"

namespace velto_test {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t rateHz = 48000;
constexpr auto packetTime = 10ms;
constexpr auto endpointBuffer = 500ms; // of the microphone: a capture that comes later loses the oldest sound
constexpr auto longestStep = 100ms;    // of the clock: shorter than the buffer
constexpr uint32_t packetFrames = rateHz / 100;
constexpr double toneHz = 440;
// The module's threads sleep 50 microseconds for a simulated time below a second; they get their share of the
// simulated time, so that they do their work in it also on a busy machine.
constexpr int realShare = 10;
constexpr auto longestStandstill = 200ms; // real

// Pages between two inaccessible ones. The memory ends at the end of the last page.
class GuardedPages final : public velto::check::GuardedMemory {
public:
    explicit GuardedPages(size_t bytes)
        : m_pageBytes(static_cast<size_t>(sysconf(_SC_PAGESIZE))),
          m_accessibleBytes((bytes + m_pageBytes - 1) / m_pageBytes * m_pageBytes)
    {
        void *mapped = mmap(nullptr, MappedBytes(), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapped == MAP_FAILED) {
            throw std::bad_alloc();
        }
        m_firstPage = static_cast<uint8_t *>(mapped) + m_pageBytes;
        m_data = m_firstPage + m_accessibleBytes - bytes;
        Protect();
    }
    ~GuardedPages() override { munmap(m_firstPage - m_pageBytes, MappedBytes()); }
    GuardedPages(const GuardedPages &) = delete;
    GuardedPages &operator=(const GuardedPages &) = delete;

    uint8_t *Data() override { return m_data; }
    void AllowWriting(bool allow) override
    {
        m_writing = allow;
        Protect();
    }
    void AllowAccess(bool allow) override
    {
        m_access = allow;
        Protect();
    }

private:
    size_t MappedBytes() const { return m_accessibleBytes + 2 * m_pageBytes; }

    void Protect()
    {
        const int readable = m_writing ? PROT_READ | PROT_WRITE : PROT_READ;
        mprotect(m_firstPage, m_accessibleBytes, m_access ? readable : PROT_NONE);
    }

    const size_t m_pageBytes;
    const size_t m_accessibleBytes;
    uint8_t *m_firstPage = nullptr;
    uint8_t *m_data = nullptr;
    bool m_writing = true;
    bool m_access = true;
};

// 10 ms of a tone in both channels, from a time on.
fakes::CapturedPacket TonePacket(std::chrono::milliseconds begin)
{
    std::array<float, size_t{packetFrames} * 2> samples;
    for (uint32_t frame = 0; frame < packetFrames; ++frame) {
        const double seconds =
            std::chrono::duration<double>(begin).count() + static_cast<double>(frame) / rateHz;
        const double sample = 0.25 * std::sin(2 * std::numbers::pi * toneHz * seconds);
        samples[2 * frame] = samples[2 * frame + 1] = static_cast<float>(sample);
    }
    fakes::CapturedPacket packet{std::vector<uint8_t>(sizeof samples), packetFrames, 0};
    std::memcpy(packet.data.data(), samples.data(), sizeof samples);
    return packet;
}

} // namespace

FakesEnvironment::FakesEnvironment(Endpoints endpoints) : m_endpoints(endpoints)
{
    fakes::ResetAll();
    if (endpoints == Endpoints::NONE) {
        m_audio.SetDefaultForAllRoles(L"");
        m_audio.SetDefaultMicrophone(L"");
        return;
    }
    m_audio.Get(L"speakers").drainFrames = m_audio.Get(L"speakers").bufferFrames;
    m_audio.Get(L"microphone").source = [this] { return NextPacket(); };
    m_audio.Get(L"microphone").muted = endpoints == Endpoints::MICROPHONE_MUTED ? TRUE : FALSE;
}

// The module's threads have ended, so nobody calls the microphone's source.
FakesEnvironment::~FakesEnvironment()
{
    fakes::ResetAll();
}

std::unique_ptr<velto::check::GuardedMemory> FakesEnvironment::Guarded(size_t bytes)
{
    return std::make_unique<GuardedPages>(bytes);
}

std::unique_ptr<velto::check::CallerState> FakesEnvironment::MakeCallerState()
{
    return MakeCallerStateOnFakes();
}

std::chrono::steady_clock::time_point FakesEnvironment::Now() const
{
    const std::lock_guard lock(m_mutex);
    return std::chrono::steady_clock::time_point(m_now);
}

velto::check::MicrophoneState FakesEnvironment::Microphone() const
{
    using velto::check::MicrophoneState;
    switch (m_endpoints) {
    case Endpoints::NONE:
        return MicrophoneState::MISSING;
    case Endpoints::MICROPHONE_MUTED:
        return MicrophoneState::MUTED;
    case Endpoints::MICROPHONE_WITHOUT_SOUND:
        return MicrophoneState::NO_SOUND;
    default:
        return MicrophoneState::WORKS;
    }
}

bool FakesEnvironment::Enter(velto::check::ComApartment apartment)
{
    const DWORD model = apartment == velto::check::ComApartment::SINGLE_THREADED ? COINIT_APARTMENTTHREADED
                                                                                 : COINIT_MULTITHREADED;
    return SUCCEEDED(fakewin::CoInitializeEx(nullptr, model));
}

void FakesEnvironment::Leave()
{
    fakewin::CoUninitialize();
}

void FakesEnvironment::Elapse(std::chrono::milliseconds time)
{
    for (auto left = time; left > 0ms; left -= longestStep) {
        Step(std::min<std::chrono::milliseconds>(left, longestStep));
    }
}

void FakesEnvironment::Step(std::chrono::milliseconds time)
{
    std::chrono::milliseconds now{};
    {
        const std::lock_guard lock(m_mutex);
        now = m_now += time;
    }
    fakewin::AdvanceClock(static_cast<uint64_t>(time.count()));
    std::this_thread::sleep_for(std::chrono::microseconds(time) / realShare);

    const auto begin = std::chrono::steady_clock::now();
    while (IsCapturing() && !HasCapturedUntil(now) && !IsStandingStill()) {
        std::this_thread::sleep_for(50us);
        if (std::chrono::steady_clock::now() - begin > longestStandstill) {
            const std::lock_guard lock(m_mutex);
            m_standstillAt = m_captureCalls;
            return;
        }
    }
}

std::optional<fakes::CapturedPacket> FakesEnvironment::NextPacket()
{
    const std::lock_guard lock(m_mutex);
    ++m_captureCalls;
    // A capture starts with the sound of the moment at which it first asks.
    auto &captured = m_captured.try_emplace(std::this_thread::get_id(), m_now).first->second;
    captured = std::max(captured, m_now - endpointBuffer);
    if (captured + packetTime > m_now) {
        m_emptyAt = m_now;
        return std::nullopt;
    }
    captured += packetTime;
    fakes::CapturedPacket packet = TonePacket(captured - packetTime);
    if (m_endpoints == Endpoints::MICROPHONE_WITHOUT_SOUND) {
        packet.flags = AUDCLNT_BUFFERFLAGS_SILENT;
    }
    return packet;
}

bool FakesEnvironment::IsCapturing() const
{
    const std::vector<fakes::ClientRecord> clients = m_audio.Clients();
    return std::ranges::any_of(clients, [](const fakes::ClientRecord &client) {
        return client.alive && client.endpoint == L"microphone" && client.starts > client.stops;
    });
}

bool FakesEnvironment::HasCapturedUntil(std::chrono::milliseconds time) const
{
    const std::lock_guard lock(m_mutex);
    return m_emptyAt >= time;
}

bool FakesEnvironment::IsStandingStill() const
{
    const std::lock_guard lock(m_mutex);
    return m_standstillAt == m_captureCalls;
}

} // namespace velto_test
