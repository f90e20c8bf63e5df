// Fuzzes the records that a host passes and receives: ids, parameter lists, listeners, capabilities, frames.
//
// Varied: ids, right or wrong or null, with a right or wrong length; lists of any keys, values and key
// lengths, with null keys, without entries, and null; type and count of releases of a null block; listeners;
// recordings from a working microphone, with packets of any samples and lengths, silent packets and other
// default microphones; frames without header or payload. Checked: the results that audio_handler.h documents,
// and that a read writes nothing behind its unit. Not varied, because hosts must not do it: an id or key
// without a terminator, a count above the number of entries, a release of memory that is not the module's, a
// second opening.
#include <windows.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "effects.h"
#include "handler/host_records.h"
#include "input.h"
#include "module_table.h"
#include "tests/fakes/fake_endpoint.h"
#include "tests/fakes/fake_windows.h"
#include "tests/fakes/polling.h"
#include "tests/fakes/reset.h"

namespace {

using velto_fuzz::Effect;
using velto_fuzz::Expect;
using velto_fuzz::Input;
using velto_fuzz::Table;

Effect capabilityLists("capability lists");
Effect parametersSet("parameters set");
Effect parametersRead("changed parameters read");
Effect eventsReceived("events received");
Effect closedTracks("closed tracks");
Effect refusedCalls("refused calls");
Effect emptyReads("reads without a microphone");
Effect recordings("recordings");
Effect packetsRecorded("packets recorded");
Effect packetsAfterRestart("packets recorded after a restart");

struct Event {
    std::string id;
    uint32_t length;
    int32_t code;
    bool operator==(const Event &) const = default;
};
std::vector<Event> events;

void RecordEvent(const char *id, uint32_t length, int32_t code)
{
    events.push_back({id, length, code});
}

// A text in its own heap block, so that AddressSanitizer reports a read past its end.
class Text {
public:
    explicit Text(const std::string &text) : m_bytes(text.c_str(), text.c_str() + text.size() + 1) {}
    const char *Get() const { return m_bytes.data(); }

private:
    std::vector<char> m_bytes;
};

std::string ReadText(Input &input, std::initializer_list<const char *> known)
{
    const uint8_t choice = input.Byte();
    if (choice % 8 < known.size()) {
        return known.begin()[choice % 8];
    }
    const auto bytes = input.Block(choice);
    return std::string(bytes.begin(), std::find(bytes.begin(), bytes.end(), 0));
}

// An id as a host passes it: with its length, with another length, or null.
struct Id {
    explicit Id(Input &input)
        : text(ReadText(input, {VELTO_ID_SPEAKER, VELTO_ID_MIC, VELTO_ID_MODEM_SPEAKER, VELTO_ID_MODEM_MIC})),
          block(text),
          length(static_cast<uint32_t>(text.size()))
    {
        const uint8_t way = input.Byte();
        isNull = way % 16 == 1;
        if (way % 4 == 2) {
            length = input.Word();
        }
        isValid = !isNull && length == text.size();
    }
    const char *Get() const { return isNull ? nullptr : block.Get(); }

    std::string text;
    Text block;
    uint32_t length;
    bool isNull = false;
    bool isValid = false;
};

// A parameter list, and the parameters that the module must derive from the list.
class Parameters {
public:
    explicit Parameters(Input &input)
    {
        const uint8_t way = input.Byte();
        const size_t count = input.Byte() % 16;
        m_keys.reserve(count);
        for (size_t i = 0; i < count; ++i) {
            Add(input);
        }
        m_list = {static_cast<uint32_t>(count), input.Word(), m_entries.data()};
        m_isNull = way % 8 == 1;
        if (way % 8 == 2) {
            m_list.entries = nullptr;
        }
        if (m_isNull || m_list.entries == nullptr) {
            expected = {};
        }
    }
    const AudioProfileList *Get() const { return m_isNull ? nullptr : &m_list; }
    bool IsEmpty() const { return m_isNull || m_list.count == 0 || m_list.entries == nullptr; }

    velto::AudioParameters expected;

private:
    void Add(Input &input)
    {
        const bool hasKey = input.Byte() % 16 != 1;
        const std::string key = ReadText(
            input, {VELTO_KEY_SAMPLE_RATE, VELTO_KEY_CHANNEL, VELTO_KEY_FORMAT, VELTO_KEY_CODEC, ""});
        m_keys.emplace_back(key);
        uint32_t value = input.Byte(); // value codes are small
        if (value == 0xFF) {
            value = input.Word();
        }
        m_entries.push_back({hasKey ? m_keys.back().Get() : nullptr, input.Word(), value});
        if (hasKey) {
            Apply(key, value);
        }
    }

    void Apply(const std::string &key, uint32_t value)
    {
        if (key == VELTO_KEY_SAMPLE_RATE) {
            expected.sampleRate = value;
        } else if (key == VELTO_KEY_CHANNEL) {
            const bool isMono = value == 1 || value == 16;
            expected.channels = isMono ? 1 : value == 3 || value == 12 ? 2 : expected.channels;
        } else if (key == VELTO_KEY_FORMAT && value >= 1 && value <= 4) {
            expected.bitsPerSample = std::array<uint32_t, 4>{16, 8, 32, 24}[value - 1];
        }
    }

    std::vector<Text> m_keys;
    std::vector<AudioProfileEntry> m_entries;
    AudioProfileList m_list{};
    bool m_isNull = false;
};

// The sound that the microphones deliver: packets whose samples and lengths come from the input. Works on the
// capture thread, so it has its own copy of the bytes.
class Sound {
public:
    explicit Sound(std::span<const uint8_t> bytes) : m_bytes(bytes.begin(), bytes.end()) {}

    // Every other call returns no packet, so that the capture loop polls.
    std::optional<fakes::CapturedPacket> operator()()
    {
        constexpr UINT32 longestFrames = 2048;
        constexpr size_t frameBytes = 8;
        if (++m_calls % 2 == 0) {
            return std::nullopt;
        }
        fakes::CapturedPacket packet;
        packet.frames = 1024;
        if (!m_bytes.empty()) {
            const uint8_t choice = m_bytes[m_calls % m_bytes.size()];
            packet.frames = (1 + choice * UINT32{8}) % longestFrames;
            // Never two silent packets in a row, so that units come.
            m_isSilent = choice % 8 == 1 && !m_isSilent;
            packet.flags = m_isSilent ? AUDCLNT_BUFFERFLAGS_SILENT : 0;
            packet.data.resize(packet.frames * frameBytes);
            for (size_t i = 0; i < packet.data.size(); ++i) {
                packet.data[i] = m_bytes[(m_calls + i) % m_bytes.size()];
            }
        }
        return packet;
    }

private:
    std::vector<uint8_t> m_bytes;
    size_t m_calls = 0;
    bool m_isSilent = false;
};

class Host {
public:
    explicit Host(const AudioHandlerTable &table) : m_table(table) {}
    ~Host()
    {
        if (m_isRecording) {
            m_table.CloseAudioRecord(VELTO_ID_MIC, sizeof VELTO_ID_MIC - 1);
        }
        const AudioListener none{nullptr, nullptr};
        m_table.RegisterListener(&none);
    }
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;

    void Step(Input &input)
    {
        events.clear();
        switch (input.Byte() % 11) {
        case 0:
            Capabilities(input);
            break;
        case 1:
            ReleaseNull(input);
            break;
        case 2:
            SetParameters(input);
            break;
        case 3:
            ReadParameters(input);
            break;
        case 4:
            CloseTrack(input);
            break;
        case 5:
            OpenRecord(input);
            break;
        case 6:
            Read(input);
            break;
        case 7:
            CloseRecord(input);
            break;
        case 8:
            ReadUnits(1 + input.Byte() % 8);
            break;
        case 9:
            ChangeMicrophone(input.Byte());
            break;
        default:
            Listen(input);
            break;
        }
    }

private:
    void Capabilities(Input &input)
    {
        AudioCapabilityItem *list = nullptr;
        uint32_t count = 0;
        Expect(m_table.GetAudioCapability(nullptr, &count) == VELTO_ERROR_INVALID, "no list");
        Expect(m_table.GetAudioCapability(&list, nullptr) == VELTO_ERROR_INVALID, "no count");
        Expect(m_table.GetAudioCapability(&list, &count) == VELTO_OK && count == 4, "the capabilities");
        const uint32_t otherType = input.Word();
        if (otherType != VELTO_RELEASE_CAPABILITIES) {
            m_table.Release(otherType, list, count); // must free nothing: the list is read below
        }
        constexpr std::array<const char *, 4> ids{VELTO_ID_SPEAKER, VELTO_ID_MODEM_SPEAKER,
                                                  VELTO_ID_MODEM_MIC, VELTO_ID_MIC};
        for (size_t i = 0; i < ids.size(); ++i) {
            const AudioCapabilityItem &item = list[i];
            Expect(std::string(item.name, item.nameLength) == ids[i], "the device's name");
            Expect(item.profileCount == 1 && item.profiles[0].sampleRate == 48000, "the device's profile");
            Expect(item.codecCount == 1 && item.codecs[0] == VELTO_CODEC_AAC, "the device's codec");
        }
        m_table.Release(VELTO_RELEASE_CAPABILITIES, list, count);
        capabilityLists.Add();
    }

    void ReleaseNull(Input &input)
    {
        const uint32_t type = input.Word();
        m_table.Release(type, nullptr, input.Word());
    }

    void SetParameters(Input &input)
    {
        const Id id(input);
        const Parameters parameters(input);
        const bool isAccepted = id.isValid && !parameters.IsEmpty();
        Expect(m_table.SetAudioParameter(id.Get(), id.length, nullptr, nullptr, parameters.Get()) ==
                   (isAccepted ? VELTO_OK : VELTO_ERROR_INVALID),
               "setting parameters");
        ExpectEvent(id, isAccepted, VELTO_EVENT_PARAMETERS_SET);
        parametersSet.Add(isAccepted);
        refusedCalls.Add(!isAccepted);
    }

    static void ReadParameters(Input &input)
    {
        const Parameters parameters(input);
        velto::AudioParameters read;
        velto::GetAudioParameter(parameters.Get(), read);
        Expect(read.sampleRate == parameters.expected.sampleRate, "the requested rate");
        Expect(read.channels == parameters.expected.channels, "the requested channels");
        Expect(read.bitsPerSample == parameters.expected.bitsPerSample, "the requested bits");
        const velto::AudioParameters defaults;
        parametersRead.Add(read.sampleRate != defaults.sampleRate || read.channels != defaults.channels ||
                           read.bitsPerSample != defaults.bitsPerSample);
    }

    void CloseTrack(Input &input)
    {
        const Id id(input);
        ExpectStatus(m_table.CloseAudioTrack(id.Get(), id.length), id);
        ExpectEvent(id, id.isValid, VELTO_EVENT_TRACK_CLOSED);
        closedTracks.Add(id.isValid);
    }

    void OpenRecord(Input &input)
    {
        constexpr int maxRecordings = 2; // for each input, because setting up an encoder takes milliseconds
        const Id id(input);
        const Parameters parameters(input);
        const bool isAccepted = id.isValid && parameters.Get() != nullptr;
        if (isAccepted && (m_isRecording || ++m_recordings > maxRecordings)) {
            return;
        }
        const int32_t status =
            m_table.OpenAudioRecord(id.Get(), id.length, nullptr, nullptr, parameters.Get());
        Expect(status == (isAccepted ? VELTO_OK : VELTO_ERROR_INVALID), "opening");
        if (isAccepted) {
            m_isRecording = true;
            m_isRestarted = false;
        }
        recordings.Add(isAccepted);
        refusedCalls.Add(!isAccepted);
    }

    // One read with any arguments. While a recording is open, whether a unit comes depends on timing.
    void Read(Input &input)
    {
        const Id id(input);
        const uint8_t way = input.Byte();
        std::vector<uint8_t> buffer(VELTO_MAX_PACKET_BYTES, unwritten);
        StreamFrameHeader header{0, input.Word(), 0};
        const uint32_t requested = header.size;
        StreamFrame frame{way % 4 == 1 ? nullptr : buffer.data(), {}, way % 4 == 2 ? nullptr : &header};
        StreamFrame *record = way % 4 == 3 ? nullptr : &frame;
        const int32_t status = m_table.ReadStreamBuffer(id.Get(), id.length, nullptr, record);
        const bool isRead = id.isValid && way % 4 == 0;
        Expect(status == (isRead       ? VELTO_OK
                          : id.isValid ? VELTO_ERROR_NULL_POINTER
                                       : VELTO_ERROR_INVALID),
               "the status of a read");
        refusedCalls.Add(!isRead);
        Expect(isRead || header.size == requested, "a refused read stores no size");
        uint32_t unitBytes = 0;
        const bool isTooLargeForUnit = header.size == requested && requested > VELTO_MAX_PACKET_BYTES;
        if (isRead && m_isRecording && !isTooLargeForUnit) { // a size too large for a unit: no unit came
            unitBytes = header.size;
        }
        Expect(m_isRecording || !isRead || header.size == 0, "no unit while no microphone is open");
        emptyReads.Add(isRead && !m_isRecording);
        Expect(unitBytes <= VELTO_MAX_PACKET_BYTES, "the largest unit");
        Expect(IsUnwritten(buffer, unitBytes), "no bytes behind the unit are written");
    }

    // Reads as a host does, until `count` units have come.
    void ReadUnits(int count)
    {
        for (int unit = 0; m_isRecording && unit < count; ++unit) {
            Expect(fakes::Eventually([this] { return ReadUnit(); }), "a working microphone delivers units");
            packetsRecorded.Add();
            packetsAfterRestart.Add(m_isRestarted);
        }
    }

    bool ReadUnit()
    {
        std::vector<uint8_t> buffer(VELTO_MAX_PACKET_BYTES, unwritten);
        StreamFrameHeader header{0, VELTO_READ_SIZE, 0};
        StreamFrame frame{buffer.data(), {}, &header};
        Expect(m_table.ReadStreamBuffer(VELTO_ID_MIC, sizeof VELTO_ID_MIC - 1, nullptr, &frame) == VELTO_OK,
               "reading");
        if (header.size == 0 || header.size == VELTO_READ_SIZE) {
            return false;
        }
        Expect(header.size <= buffer.size(), "a unit fits into the buffer");
        Expect(IsUnwritten(buffer, header.size), "no bytes behind the unit are written");
        return true;
    }

    static bool IsUnwritten(const std::vector<uint8_t> &buffer, uint32_t from)
    {
        return std::all_of(buffer.begin() + from, buffer.end(),
                           [](uint8_t byte) { return byte == unwritten; });
    }

    // Restarts a running recording, which then reads from the other microphone.
    void ChangeMicrophone(uint8_t way)
    {
        auto &audio = fakes::AudioSystem::Instance();
        const bool isOnHeadset = way % 2 == 1;
        if (isOnHeadset == m_isOnHeadset || ++m_changes > 2) {
            return;
        }
        m_isOnHeadset = isOnHeadset;
        m_isRestarted = m_isRecording;
        const std::wstring id = isOnHeadset ? L"headset" : L"microphone";
        const auto isCapturing = [&] {
            const auto clients = audio.Clients();
            return !clients.empty() && clients.back().endpoint == id && clients.back().starts > 0;
        };
        const auto registered = [&] { return audio.RegisteredCallbacks() == 1; };
        audio.ChangeDefaultMicrophone(id);
        Expect(!m_isRecording || fakes::Eventually([&] { return isCapturing() && registered(); }),
               "a recording follows the default microphone");
    }

    void CloseRecord(Input &input)
    {
        const Id id(input);
        ExpectStatus(m_table.CloseAudioRecord(id.Get(), id.length), id);
        m_isRecording = m_isRecording && !id.isValid;
    }

    void Listen(Input &input)
    {
        m_listens = input.Byte() % 2 == 0;
        const AudioListener listener{m_listens ? RecordEvent : nullptr, this};
        Expect(m_table.RegisterListener(&listener) == VELTO_OK, "a listener");
        Expect(m_table.RegisterListener(nullptr) == VELTO_ERROR_INVALID, "no listener");
    }

    static void ExpectStatus(int32_t status, const Id &id)
    {
        refusedCalls.Add(!id.isValid);
        Expect(status == (id.isValid ? VELTO_OK : VELTO_ERROR_INVALID), "the status for an id");
    }

    void ExpectEvent(const Id &id, bool isSent, int32_t code) const
    {
        std::vector<Event> expected;
        if (isSent && m_listens) {
            expected.push_back({id.text, id.length, code});
        }
        Expect(events == expected, "the events sent");
        eventsReceived.Add(events.size());
    }

    static constexpr uint8_t unwritten = 0xA5;

    const AudioHandlerTable &m_table;
    bool m_listens = false;
    bool m_isRecording = false;
    bool m_isOnHeadset = false;
    bool m_isRestarted = false;
    int m_recordings = 0;
    int m_changes = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr int maxSteps = 200;
    fakes::ResetAll();
    auto &audio = fakes::AudioSystem::Instance();
    Input input(data, size);
    for (const wchar_t *id : {L"microphone", L"headset"}) {
        audio.Get(id).source = Sound(std::span(data, size));
    }
    audio.Get(L"headset").mixFormat.rateHz = 44100;
    {
        Host host(Table());
        for (int step = 0; step < maxSteps && !input.IsEmpty(); ++step) {
            host.Step(input);
        }
    }
    Expect(fakes::Eventually([] { return fakewin::LiveThreads() == 0; }), "all threads end");
    for (const std::string &violation : fakewin::Violations()) {
        Expect(false, violation.c_str());
    }
    Expect(audio.LiveObjects() == 0, "all endpoint objects are released");
    Expect(audio.RegisteredCallbacks() == 0, "no notification is left registered");
    return 0;
}
