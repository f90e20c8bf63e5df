#include "speaker_road.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "audio_player_probe.h"
#include "render_fixture.h"
#include "reset.h"

extern "C" {
#include <libswresample/swresample.h>
}

namespace velto_test {
namespace {

constexpr int rounds = 10;
constexpr int stepsOfRound = 6;
constexpr uint32_t endpointFrames = 2880;
// After a rebuilding: the padding of the invalidated client then leaves room in the new buffer.
constexpr uint32_t rebuiltFrames = 3360;
// More than the endpoint buffer holds: they are all taken only by a client that runs.
constexpr int blocksThatShow = 4;
const char *const stepNames[stepsOfRound] = {"opening",    "playing", "switching",
                                             "rebuilding", "probing", "closing"};

class SpeakerRoad : public Road {
public:
    SpeakerRoad() : m_player(MakePlayer()), m_probe(*m_player)
    {
        for (const wchar_t *id : {L"speakers", L"headphones"}) {
            m_audio.Get(id).bufferFrames = endpointFrames;
            m_audio.Get(id).drainFrames = 900;
        }
        m_audio.Get(L"headphones").mixFormat.rateHz = 44100;
    }

    int Steps() const override { return rounds * stepsOfRound; }
    std::string StepName(int step) const override
    {
        return std::string(stepNames[step % stepsOfRound]) + " in round " +
               std::to_string(step / stepsOfRound + 1);
    }
    Expectation Expected(const FaultCase &faulty, int step, int use) const override
    {
        const SpeakerStep kind = KindOf(step);
        const bool isRebuilt = kind == SpeakerStep::Probing || (kind == SpeakerStep::Rebuilding && use > 1);
        return ExpectedOfSpeaker(faulty, kind, use, isRebuilt ? rebuiltFrames : endpointFrames);
    }

    void Take(int step) override;
    bool LingersIn(int) const override { return false; }
    void Linger(const std::function<bool()> &) override {}
    void Bear() override { Play(2); }
    bool SoundFlows() override;
    void Apply(Remedy remedy) override;
    bool FollowsTheDefault() override;
    void Finish() override;

private:
    static std::unique_ptr<velto::AudioPlayerWas> MakePlayer()
    {
        fakes::ResetAll();
        fakewin::SkipShortWaits();
        return std::make_unique<velto::AudioPlayerWas>();
    }
    static SpeakerStep KindOf(int step) { return static_cast<SpeakerStep>(step % stepsOfRound); }

    void Open();
    void Close();
    void Play(int blocks);
    void Switch();
    fakes::Endpoint &Current() { return m_audio.Get(m_onHeadphones ? L"headphones" : L"speakers"); }
    size_t WrittenBytes() const
    {
        return m_audio.Written(L"speakers").size() + m_audio.Written(L"headphones").size();
    }

    fakes::AudioSystem &m_audio = fakes::AudioSystem::Instance();
    std::unique_ptr<velto::AudioPlayerWas> m_player;
    velto::AudioPlayerWasProbe m_probe;
    const std::vector<uint8_t> m_block = MakeBlock();
    bool m_onHeadphones = false;
    bool m_open = false;
    const OpenThings m_earlier;
};

void SpeakerRoad::Take(int step)
{
    fakes::LogRecorder::Instance().Clear();
    switch (KindOf(step)) {
    case SpeakerStep::Opening:
        Open();
        break;
    case SpeakerStep::Playing:
        Current().paddingScript = {480, endpointFrames}; // the second block meets a full buffer
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

void SpeakerRoad::Open()
{
    // Open leaks the previous converter (known leak); freed here for LeakSanitizer.
    SwrContext *converter = m_probe.TakeResampler();
    swr_free(&converter);
    m_open = true;
    m_player->Open(16, 2, 48000);
}

void SpeakerRoad::Close()
{
    if (m_open) {
        m_player->Close();
        m_open = false;
    }
}

void SpeakerRoad::Play(int blocks)
{
    for (int i = 0; m_open && i < blocks; ++i) {
        m_player->PlayAudio(m_block.data(), static_cast<int64_t>(m_block.size()));
    }
}

void SpeakerRoad::Switch()
{
    m_onHeadphones = !m_onHeadphones;
    m_audio.SetDefaultForAllRoles(Current().id);
    m_audio.NotifyDefaultChanged(eRender, eMultimedia, Current().id);
    Play(1);
}

bool SpeakerRoad::SoundFlows()
{
    Play(blocksThatShow);
    const size_t before = WrittenBytes();
    Play(1);
    return WrittenBytes() > before;
}

void SpeakerRoad::Apply(Remedy remedy)
{
    switch (remedy) {
    case Remedy::None:
        break;
    case Remedy::PropertyChange:
        m_audio.NotifyPropertyChanged(Current().id);
        break;
    case Remedy::DefaultChange:
        Switch();
        break;
    case Remedy::Reopening:
        Close();
        Open();
    }
}

bool SpeakerRoad::FollowsTheDefault()
{
    if (!m_open) {
        Open();
    }
    Switch();
    const size_t before = m_audio.Written(Current().id).size();
    Play(1);
    return m_audio.Written(Current().id).size() > before;
}

void SpeakerRoad::Finish()
{
    Close();
    m_player.reset();
    m_earlier.ExpectNoMore();
}

} // namespace

std::unique_ptr<Road> MakeSpeakerRoad()
{
    return std::make_unique<SpeakerRoad>();
}

} // namespace velto_test
