#include "speaker_scenario.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "audio_player_probe.h"
#include "render_fixture.h"
#include "reset.h"
#include "tone.h"

extern "C" {
#include <libswresample/swresample.h>
}

namespace velto_test {
namespace {

constexpr int rounds = 4;
constexpr int stepsPerRound = 6;
constexpr uint32_t blockFrames = 1024;
constexpr double blockRateHz = 48000;
constexpr uint32_t endpointFrames = 2880;
// Larger than endpointFrames, so that the stale padding of the invalidated client leaves room in the buffer.
constexpr uint32_t rebuiltFrames = 3360;
// More blocks than fit into the endpoint buffer: only a running client accepts all of them.
constexpr int blocksToOverfill = 4;
const char *const stepNames[stepsPerRound] = {"opening",    "playing", "switching",
                                              "rebuilding", "probing", "closing"};

class SpeakerScenario : public Scenario {
public:
    SpeakerScenario() : m_player(MakePlayer()), m_probe(*m_player)
    {
        for (const wchar_t *id : {L"speakers", L"headphones"}) {
            m_audio.Get(id).bufferFrames = endpointFrames;
            m_audio.Get(id).drainFrames = 900;
        }
        m_audio.Get(L"headphones").mixFormat.rateHz = 44100;
    }

    int Steps() const override { return rounds * stepsPerRound; }
    std::string StepName(int step) const override
    {
        return std::string(stepNames[step % stepsPerRound]) + " in round " +
               std::to_string(step / stepsPerRound + 1);
    }
    Expectation Expected(const FaultCase &faulty, int step, int use) const override
    {
        const SpeakerStep kind = KindOf(step);
        const bool isRebuilt = kind == SpeakerStep::Probing || (kind == SpeakerStep::Rebuilding && use > 1);
        return ExpectedOfSpeaker(faulty, kind, use, isRebuilt ? rebuiltFrames : endpointFrames);
    }

    void RunStep(int step) override;
    bool CanKeepPolling(int) const override { return false; }
    void PollUntil(const std::function<bool()> &) override {}
    void KeepRunning() override { Play(2); }
    bool HasSound() override;
    void Apply(Recovery recovery) override;
    bool FollowsDefaultDevice() override;
    void Finish() override;

private:
    static std::unique_ptr<velto::AudioPlayerWas> MakePlayer()
    {
        fakes::ResetAll();
        fakewin::SkipShortWaits();
        return std::make_unique<velto::AudioPlayerWas>();
    }
    static SpeakerStep KindOf(int step) { return static_cast<SpeakerStep>(step % stepsPerRound); }

    void Open();
    void Close();
    void Play(int blocks);
    void Switch();
    fakes::Endpoint &Current() { return m_audio.Get(m_onHeadphones ? L"headphones" : L"speakers"); }
    // Plays one block and checks the content of what this adds to the endpoint's sound.
    bool BlockArrivesAt(const std::wstring &id);

    fakes::AudioSystem &m_audio = fakes::AudioSystem::Instance();
    std::unique_ptr<velto::AudioPlayerWas> m_player;
    velto::AudioPlayerWasProbe m_probe;
    uint64_t m_position = 0; // of the next block in the sound
    bool m_onHeadphones = false;
    bool m_open = false;
    const OpenResources m_openBefore;
};

void SpeakerScenario::RunStep(int step)
{
    ClearLog();
    switch (KindOf(step)) {
    case SpeakerStep::Opening:
        Open();
        break;
    case SpeakerStep::Playing:
        Current().paddingScript = {480, endpointFrames}; // full when the second block starts
        Play(2);
        break;
    case SpeakerStep::Switching:
        Switch();
        break;
    case SpeakerStep::Rebuilding:
        m_audio.Invalidate(Current().id);
        Current().bufferFrames = rebuiltFrames;
        Play(1);
        break;
    case SpeakerStep::Probing:
        m_audio.NotifyPropertyChanged(Current().id);
        Play(1);
        break;
    case SpeakerStep::Closing:
        Close();
        Current().bufferFrames = endpointFrames;
    }
}

void SpeakerScenario::Open()
{
    // Open leaks the previous converter (known leak); freed here for LeakSanitizer.
    SwrContext *converter = m_probe.TakeResampler();
    swr_free(&converter);
    m_open = true;
    m_player->Open(16, 2, 48000);
}

void SpeakerScenario::Close()
{
    if (m_open) {
        m_player->Close();
        m_open = false;
    }
}

void SpeakerScenario::Play(int blocks)
{
    for (int i = 0; m_open && i < blocks; ++i) {
        std::array<int16_t, size_t{blockFrames} * 2> block;
        for (size_t sample = 0; sample < block.size(); ++sample) {
            const auto channel = static_cast<uint32_t>(sample % 2);
            block[sample] = static_cast<int16_t>(
                std::lround(32767 * ToneSample(m_position + sample / 2, channel, blockRateHz)));
        }
        m_position += blockFrames;
        m_player->PlayAudio(reinterpret_cast<const uint8_t *>(block.data()), sizeof block);
    }
}

bool SpeakerScenario::BlockArrivesAt(const std::wstring &id)
{
    const size_t before = m_audio.Written(id).size();
    Play(1);
    const std::vector<uint8_t> written = m_audio.Written(id);
    std::vector<double> sound((written.size() - before) / sizeof(int32_t));
    for (size_t i = 0; i < sound.size(); ++i) {
        int32_t sample = 0;
        std::memcpy(&sample, written.data() + before + i * sizeof sample, sizeof sample);
        sound[i] = sample / 2147483648.0;
    }
    const double rateHz = m_audio.Get(id).mixFormat.rateHz;
    const double frames = static_cast<double>(sound.size()) / 2;
    return frames >= blockFrames * rateHz / blockRateHz - 1 && AreTones(sound, 2, rateHz);
}

void SpeakerScenario::Switch()
{
    m_onHeadphones = !m_onHeadphones;
    m_audio.ChangeDefaultSpeaker(Current().id);
    Play(1);
}

bool SpeakerScenario::HasSound()
{
    Play(blocksToOverfill);
    if (BlockArrivesAt(L"speakers")) {
        return true;
    }
    return BlockArrivesAt(L"headphones");
}

void SpeakerScenario::Apply(Recovery recovery)
{
    switch (recovery) {
    case Recovery::None:
        break;
    case Recovery::PropertyChange:
        m_audio.NotifyPropertyChanged(Current().id);
        break;
    case Recovery::DefaultChange:
        Switch();
        break;
    case Recovery::Reopening:
        Close();
        Open();
    }
}

bool SpeakerScenario::FollowsDefaultDevice()
{
    if (!m_open) {
        Open();
    }
    Switch();
    return BlockArrivesAt(Current().id);
}

void SpeakerScenario::Finish()
{
    Close();
    m_player.reset();
    m_openBefore.ExpectNothingLeaked();
}

} // namespace

std::unique_ptr<Scenario> MakeSpeakerScenario()
{
    return std::make_unique<SpeakerScenario>();
}

} // namespace velto_test
