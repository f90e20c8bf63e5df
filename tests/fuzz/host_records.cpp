// Fuzzes the records that a host passes and receives: ids, parameter lists, listeners, capabilities, frames.
//
// Varied: ids, right or wrong or null, with a right or wrong length; lists of any keys, values and key
// lengths, with null keys, without entries, and null; type and count of releases of a null block; listeners;
// frames without header or payload while no microphone is open. Checked: the results that audio_handler.h
// documents. Not varied, because hosts must not do it: an id or key without a terminator, a count above the
// number of entries, a release of memory that is not the module's.
#include <windows.h>

#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "handler/host_records.h"
#include "input.h"
#include "module_table.h"
#include "tests/fakes/fake_windows.h"
#include "tests/fakes/log_recorder.h"

namespace {

using velto_fuzz::Expect;
using velto_fuzz::Input;
using velto_fuzz::Table;

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

class Host {
public:
    explicit Host(const AudioHandlerTable &table) : m_table(table) {}
    ~Host()
    {
        const AudioListener none{nullptr, nullptr};
        m_table.RegisterListener(&none);
    }

    void Step(Input &input)
    {
        events.clear();
        switch (input.Byte() % 9) {
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
            OpenRecordWithInvalidArguments(input);
            break;
        case 6:
            ReadWithoutMicrophone(input);
            break;
        case 7:
            CloseRecord(input);
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
    }

    static void ReadParameters(Input &input)
    {
        const Parameters parameters(input);
        velto::AudioParameters read;
        velto::GetAudioParameter(parameters.Get(), read);
        Expect(read.sampleRate == parameters.expected.sampleRate, "the requested rate");
        Expect(read.channels == parameters.expected.channels, "the requested channels");
        Expect(read.bitsPerSample == parameters.expected.bitsPerSample, "the requested bits");
    }

    void CloseTrack(Input &input)
    {
        const Id id(input);
        ExpectStatus(m_table.CloseAudioTrack(id.Get(), id.length), id);
        ExpectEvent(id, id.isValid, VELTO_EVENT_TRACK_CLOSED);
    }

    void OpenRecordWithInvalidArguments(Input &input)
    {
        const Id id(input);
        const Parameters parameters(input);
        if (!id.isValid || parameters.Get() == nullptr) {
            Expect(m_table.OpenAudioRecord(id.Get(), id.length, nullptr, nullptr, parameters.Get()) ==
                       VELTO_ERROR_INVALID,
                   "opening without an id or a list");
        }
    }

    void ReadWithoutMicrophone(Input &input)
    {
        const Id id(input);
        const uint8_t way = input.Byte();
        uint8_t byte = 0xA5;
        StreamFrameHeader header{0, input.Word(), 0};
        StreamFrame frame{way % 4 == 1 ? nullptr : &byte, {}, way % 4 == 2 ? nullptr : &header};
        StreamFrame *record = way % 4 == 3 ? nullptr : &frame;
        const int32_t status = m_table.ReadStreamBuffer(id.Get(), id.length, nullptr, record);
        if (!id.isValid) {
            Expect(status == VELTO_ERROR_INVALID, "reading without an id");
        } else {
            Expect(status == (way % 4 == 0 ? VELTO_OK : VELTO_ERROR_NULL_POINTER), "reading");
            Expect(status != VELTO_OK || header.size == 0, "an empty frame");
        }
        Expect(byte == 0xA5, "no bytes are written while no microphone is open");
    }

    void CloseRecord(Input &input)
    {
        const Id id(input);
        ExpectStatus(m_table.CloseAudioRecord(id.Get(), id.length), id);
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
        Expect(status == (id.isValid ? VELTO_OK : VELTO_ERROR_INVALID), "the status for an id");
    }

    void ExpectEvent(const Id &id, bool isSent, int32_t code) const
    {
        std::vector<Event> expected;
        if (isSent && m_listens) {
            expected.push_back({id.text, id.length, code});
        }
        Expect(events == expected, "the events sent");
    }

    const AudioHandlerTable &m_table;
    bool m_listens = false;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr int maxSteps = 200;
    fakewin::Reset();
    fakes::LogRecorder::Instance().Clear();
    Input input(data, size);
    Host host(Table());
    for (int step = 0; step < maxSteps && !input.IsEmpty(); ++step) {
        host.Step(input);
    }
    for (const std::string &violation : fakewin::Violations()) {
        Expect(false, violation.c_str());
    }
    return 0;
}
