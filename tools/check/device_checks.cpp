#include "check/device_checks.h"

#include <optional>
#include <utility>
#include <vector>

#include "check/default_devices.h"
#include "check/module_threads.h"
#include "check/module_use.h"
#include "check/portable/process_check_list.h"
#include "check/process_context.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;
using Microphone = host::Microphone;
using TimePoint = std::chrono::steady_clock::time_point;

constexpr auto choosingTime = 60s; // in which the first change must come
constexpr auto moreTime = 20s;     // after the first change, for further ones
constexpr auto poll = 5ms;
constexpr auto soundTime =
    5s; // from a change to sound on the new loudspeaker; no pause of the sound is longer
constexpr auto packetTime = 10s; // from a change to a packet of the new microphone, which may have to wake up
constexpr float audible = 0.001F;
constexpr Seconds restartGap = 100ms; // between packets: five of them are missing

// When the check ends: choosingTime after its begin, or moreTime after the first change.
class ChangePeriod {
public:
    explicit ChangePeriod(TimePoint begin) : m_end(begin + choosingTime) {}
    // To be called for each change.
    void OnChange(TimePoint now)
    {
        if (m_changes++ == 0) {
            m_end = now + moreTime;
        }
    }
    bool IsOver(TimePoint now) const { return now >= m_end; }
    uint32_t Changes() const { return m_changes; }

private:
    TimePoint m_end;
    uint32_t m_changes = 0;
};

// ---- Loudspeaker

// Plays for this time. Returns whether sound was measured on the loudspeaker that is now the default; null if
// the system has no meter.
std::optional<bool> IsHeard(Context &context, SpeakerUse &speaker, const DefaultDevices &devices)
{
    std::optional<bool> isHeard;
    for (const TimePoint end = context.environment.Now() + soundTime; context.environment.Now() < end;) {
        speaker.WriteIfDue();
        if (const std::optional<float> level = devices.LoudspeakerLevel()) {
            isHeard = *level > audible;
            if (*isHeard) {
                return isHeard;
            }
        }
        context.environment.Sleep(poll);
    }
    return isHeard;
}

void FollowsDefaultLoudspeaker(Context &context)
{
    if (!context.environment.HasLoudspeaker()) {
        context.Skip("there is no loudspeaker");
    }
    const DefaultDevices devices;
    SpeakerUse speaker(context.table);
    context.Step("plays; choose another default loudspeaker within 60 s", {"SPK-7"});
    speaker.Play(1s);
    ChangePeriod period(context.environment.Now());
    bool hasMeter = true;
    uint32_t seen = devices.LoudspeakerChanges();
    while (!period.IsOver(context.environment.Now())) {
        speaker.WriteIfDue();
        context.environment.Sleep(poll);
        if (devices.LoudspeakerChanges() == seen) {
            continue;
        }
        seen = devices.LoudspeakerChanges();
        period.OnChange(context.environment.Now());
        const std::optional<bool> isHeard = IsHeard(context, speaker, devices);
        hasMeter = hasMeter && isHeard.has_value();
        context.Expect(isHeard.value_or(true), "SPK-8",
                       fmt::format("{} s after change {} of the default loudspeaker, the new one is silent",
                                   soundTime / 1s, period.Changes()));
    }
    context.ExpectEqual(speaker.Refused(), 0U, "SPK-7",
                        "refused calls while the default loudspeaker changed");
    context.Measured("changes of the default loudspeaker", period.Changes(), "");
    if (period.Changes() == 0) {
        context.Skip("no other default loudspeaker was chosen within 60 s");
    }
    if (!hasMeter) {
        context.Skip(
            "the results were as documented, but this system does not measure what a loudspeaker plays");
    }
}

// ---- Microphone

// Reads after a change. A recording that restarts ends its threads, says that it is stopped, or misses
// packets; one of these is seen, and packets arrive again after it.
class RestartWatch {
public:
    RestartWatch(Context &context, Microphone &microphone, std::vector<ThreadInfo> threads)
        : m_context(context), m_microphone(microphone), m_threads(std::move(threads)), m_lastPacket(Now())
    {
    }

    // Reads until the recording has restarted and delivers, or the time is over.
    void Watch()
    {
        const TimePoint begin = Now();
        while (!HasPacket() && Now() - begin < packetTime) {
            Read();
        }
    }
    bool HasRestarted() const { return m_hasRestarted; }
    bool HasPacket() const { return m_hasPacket; } // of the restarted recording
    uint32_t Refused() const { return m_refused; }

private:
    TimePoint Now() const { return m_context.environment.Now(); }

    void Read()
    {
        const Microphone::Outcome outcome = m_microphone.Read();
        m_refused += outcome == Microphone::Outcome::REFUSED ? 1 : 0;
        m_hasRestarted = m_hasRestarted || outcome == Microphone::Outcome::STOPPED ||
                         Now() - m_lastPacket > restartGap ||
                         StillRunning(m_threads).size() < m_threads.size();
        if (outcome == Microphone::Outcome::PACKET) {
            m_lastPacket = Now();
            m_hasPacket = m_hasRestarted;
        } else {
            m_context.environment.Sleep(poll);
        }
    }

    Context &m_context;
    Microphone &m_microphone;
    const std::vector<ThreadInfo> m_threads; // of the recording before the change
    TimePoint m_lastPacket;
    bool m_hasRestarted = false;
    bool m_hasPacket = false;
    uint32_t m_refused = 0;
};

void FollowsDefaultMicrophone(Context &context)
{
    const MicrophoneState state = context.environment.Microphone();
    if (state != MicrophoneState::WORKS) {
        context.Skip(MicrophoneProblem(state));
    }
    const DefaultDevices devices;
    const std::vector<ThreadInfo> before = ThreadsOfProcess();
    Microphone microphone(context.table, VELTO_ID_MIC);
    microphone.Open();
    if (!ReadPacketWithin(microphone, 5s)) {
        microphone.Close();
        context.Skip("the module delivers no units of the microphone, although the microphone has sound");
    }
    context.Step("records; choose another default microphone within 60 s", {"MIC-3", "MIC-9"});
    ChangePeriod period(context.environment.Now());
    uint32_t refused = 0;
    uint32_t seen = devices.MicrophoneChanges();
    std::vector<ThreadInfo> threads = NewThreadsOf(CurrentProcess().module, before);
    while (!period.IsOver(context.environment.Now())) {
        refused += microphone.Read() == Microphone::Outcome::REFUSED ? 1 : 0;
        context.environment.Sleep(poll);
        if (devices.MicrophoneChanges() == seen) {
            continue;
        }
        seen = devices.MicrophoneChanges();
        period.OnChange(context.environment.Now());
        RestartWatch watch(context, microphone, threads);
        watch.Watch();
        refused += watch.Refused();
        context.Expect(watch.HasRestarted(), "MIC-9",
                       fmt::format("change {} of the default microphone did not restart the recording",
                                   period.Changes()));
        context.Expect(!watch.HasRestarted() || watch.HasPacket(), "MIC-9",
                       fmt::format("no packet within {} s after change {} of the default microphone",
                                   packetTime / 1s, period.Changes()));
        threads = NewThreadsOf(CurrentProcess().module, before);
    }
    context.ExpectEqual(refused, 0U, "MIC-3", "refused reads while the default microphone changed");
    context.Measured("changes of the default microphone", period.Changes(), "");
    microphone.Close();
    if (period.Changes() == 0) {
        context.Skip("no other default microphone was chosen within 60 s");
    }
}

} // namespace

std::span<const Check> DeviceChecks()
{
    static const std::vector<Check> checks{
        ProcessCheck("device.default-loudspeaker-changes", FollowsDefaultLoudspeaker),
        ProcessCheck("device.default-microphone-changes", FollowsDefaultMicrophone),
    };
    return checks;
}

} // namespace velto::check
