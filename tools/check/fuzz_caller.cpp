#include "check/fuzz_caller.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <memory>

namespace velto::check {
namespace {

constexpr size_t unitsOfSound = 94; // 2 s
constexpr uint32_t longestId = 300;
constexpr uint32_t mostEntries = 40;
constexpr uint32_t mostDifferences = 20;

constexpr std::array<std::string_view, 4> deviceIds{VELTO_ID_SPEAKER, VELTO_ID_MODEM_SPEAKER, VELTO_ID_MIC,
                                                    VELTO_ID_MODEM_MIC};
constexpr std::array<std::string_view, 5> keys{VELTO_KEY_SAMPLE_RATE, VELTO_KEY_CHANNEL, VELTO_KEY_FORMAT,
                                               VELTO_KEY_CODEC, "another"};
constexpr std::array<uint32_t, 10> values{1,     2,     3,           12,          16,
                                          44100, 48000, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU};

std::atomic<uint32_t> closedEvents{0};
std::atomic<uint32_t> parameterEvents{0};

void CountEvent(const char *, uint32_t, int32_t eventCode)
{
    closedEvents += eventCode == VELTO_EVENT_TRACK_CLOSED ? 1 : 0;
    parameterEvents += eventCode == VELTO_EVENT_PARAMETERS_SET ? 1 : 0;
}

// Bytes that end at an inaccessible page.
class GuardedCopy {
public:
    GuardedCopy(Environment &environment, const void *data, size_t bytes)
        : m_memory(environment.Guarded(std::max<size_t>(bytes, 1)))
    {
        std::memcpy(m_memory->Data(), data, bytes);
    }
    template <typename Type>
    Type *As() const
    {
        return reinterpret_cast<Type *>(m_memory->Data());
    }

private:
    std::unique_ptr<GuardedMemory> m_memory;
};

// A string with its terminator, which ends at an inaccessible page.
GuardedCopy GuardedString(Environment &environment, const std::string &text)
{
    return {environment, text.c_str(), text.size() + 1};
}

} // namespace

FuzzCaller::FuzzCaller(Context &context) : m_context(context), m_units(SpeechLikeUnits(unitsOfSound))
{
    const AudioListener listener{CountEvent, nullptr};
    m_context.table.RegisterListener(&listener);
}

FuzzCaller::~FuzzCaller()
{
    const AudioListener none{nullptr, nullptr};
    m_context.table.RegisterListener(&none);
}

void FuzzCaller::Step()
{
    using Kind = void (FuzzCaller::*)();
    // Writes and reads are the most frequent calls of a host.
    static constexpr std::array<Kind, 16> kinds{
        &FuzzCaller::Write,         &FuzzCaller::Write,       &FuzzCaller::Write, &FuzzCaller::Write,
        &FuzzCaller::Write,         &FuzzCaller::Read,        &FuzzCaller::Read,  &FuzzCaller::Read,
        &FuzzCaller::SetParameters, &FuzzCaller::CloseTrack,  &FuzzCaller::List,  &FuzzCaller::ReleaseNothing,
        &FuzzCaller::Register,      &FuzzCaller::NoOperation, &FuzzCaller::Read,  &FuzzCaller::SetParameters,
    };
    if (m_differences >= mostDifferences) {
        throw CheckEnded{}; // they are reported, and more of them would only fill the report
    }
    ++m_calls;
    // Opening sets up an encoder and threads: at a rate that leaves time for packets.
    if (m_context.random.OneIn(200)) {
        m_isOpen ? Close() : Open();
        return;
    }
    (this->*kinds[m_context.random.Below(kinds.size())])();
}

void FuzzCaller::Finish()
{
    if (m_isOpen) {
        Close();
    }
    for (const std::string_view id : {VELTO_ID_SPEAKER, VELTO_ID_MODEM_SPEAKER}) {
        m_context.table.CloseAudioTrack(id.data(), static_cast<uint32_t>(id.size()));
    }
}

FuzzCaller::Id FuzzCaller::RandomId()
{
    Random &random = m_context.random;
    Id id{std::string(random.AnyOf<std::string_view>(deviceIds)), 0, true};
    if (random.OneIn(6)) {
        id.text.resize(random.Below(longestId));
        std::ranges::generate(id.text, [&] { return static_cast<char>(1 + random.Below(255)); });
    } else if (random.OneIn(8)) {
        id.text[random.Below(static_cast<uint32_t>(id.text.size()))] ^= static_cast<char>(0x20);
    }
    id.length = static_cast<uint32_t>(id.text.size());
    if (random.OneIn(8)) {
        id.length = random.OneIn(2) ? id.length + 1 + random.Below(8) : static_cast<uint32_t>(random.Next());
        id.isAccepted = id.length == id.text.size();
    }
    return id;
}

AacUnits::value_type FuzzCaller::RandomUnit()
{
    Random &random = m_context.random;
    const AacUnits::value_type &unit = m_units[random.Below(static_cast<uint32_t>(m_units.size()))];
    switch (random.Below(8)) {
    case 0:
        return Damaged(unit, random);
    case 1:
        return Undecodable(unit);
    case 2:
        return WithAdtsHeader(unit);
    case 3: {
        AacUnits::value_type noise(1 + random.Below(2000));
        std::ranges::generate(noise, [&] { return static_cast<uint8_t>(random.Next()); });
        return noise;
    }
    default:
        return unit;
    }
}

void FuzzCaller::Expect(bool isTrue, std::string_view clause, const std::string &text)
{
    m_differences += isTrue ? 0 : 1;
    m_context.Expect(isTrue, clause, fmt::format("call {} of the sequence: {}", m_calls, text));
}

void FuzzCaller::ExpectResult(int32_t actual, int32_t expected, std::string_view clause,
                              std::string_view call)
{
    Expect(actual == expected, clause, fmt::format("{} returned {} instead of {}", call, actual, expected));
}

void FuzzCaller::ExpectEvents(bool isAccepted, int32_t code)
{
    const uint32_t closed = closedEvents.exchange(0);
    const uint32_t parameters = parameterEvents.exchange(0);
    const uint32_t expected = isAccepted && m_listens ? 1 : 0;
    const bool isOfClosing = code == VELTO_EVENT_TRACK_CLOSED;
    const uint32_t sent = isOfClosing ? closed : parameters;
    Expect(sent == expected, "LSN-6", fmt::format("{} events {} instead of {}", sent, code, expected));
    Expect(closed + parameters == sent, "LSN-6", fmt::format("events of another kind than {}", code));
    if (closed + parameters > 0) {
        Note(isOfClosing ? "event 3" : "event 4");
    }
}

void FuzzCaller::List()
{
    AudioCapabilityItem *list = nullptr;
    uint32_t count = 0;
    if (m_context.random.OneIn(4)) {
        const bool hasList = m_context.random.OneIn(2);
        ExpectResult(
            m_context.table.GetAudioCapability(hasList ? &list : nullptr, hasList ? nullptr : &count),
            VELTO_ERROR_INVALID, "CAP-3", "GetAudioCapability with a null argument");
        Note("refused list");
        return;
    }
    ExpectResult(m_context.table.GetAudioCapability(&list, &count), VELTO_OK, "CAP-1", "GetAudioCapability");
    Expect(count == 4, "CAP-2", fmt::format("GetAudioCapability counted {} devices", count));
    if (list != nullptr) {
        Expect(std::memcmp(list[0].name, VELTO_ID_SPEAKER, sizeof(VELTO_ID_SPEAKER) - 1) == 0, "CAP-1",
               "the first device of a list is not " VELTO_ID_SPEAKER);
        m_context.table.Release(VELTO_RELEASE_CAPABILITIES, list, count);
        Note("list");
    }
}

void FuzzCaller::SetParameters()
{
    Random &random = m_context.random;
    const Id id = RandomId();
    std::vector<GuardedCopy> texts;
    std::vector<AudioProfileEntry> entries(random.OneIn(8) ? 0 : 1 + random.Below(mostEntries));
    texts.reserve(entries.size());
    for (AudioProfileEntry &entry : entries) {
        texts.push_back(
            GuardedString(m_context.environment, std::string(random.AnyOf<std::string_view>(keys))));
        entry = {texts.back().As<char>(), static_cast<uint32_t>(random.Next()),
                 random.OneIn(4) ? static_cast<uint32_t>(random.Next()) : random.AnyOf<uint32_t>(values)};
    }
    const GuardedCopy entriesMemory(m_context.environment, entries.data(),
                                    entries.size() * sizeof(AudioProfileEntry));
    const AudioProfileList list{static_cast<uint32_t>(entries.size()), static_cast<uint32_t>(random.Next()),
                                entriesMemory.As<AudioProfileEntry>()};
    const GuardedCopy text = GuardedString(m_context.environment, id.text);
    const bool isAccepted = id.isAccepted && !entries.empty();
    const int32_t result =
        m_context.table.SetAudioParameter(text.As<char>(), id.length, nullptr, nullptr, &list);
    ExpectResult(result, isAccepted ? VELTO_OK : VELTO_ERROR_INVALID,
                 isAccepted ? "PAR-8" : (id.isAccepted ? "PAR-1" : "IDS-1"), "SetAudioParameter");
    Note(isAccepted ? "parameters" : "refused parameters");
    ExpectEvents(isAccepted, VELTO_EVENT_PARAMETERS_SET);
}

void FuzzCaller::Write()
{
    Random &random = m_context.random;
    const Id id = RandomId();
    const AacUnits::value_type unit = RandomUnit();
    const GuardedCopy data(m_context.environment, unit.data(), unit.size());
    const GuardedCopy text = GuardedString(m_context.environment, id.text);
    StreamFrameHeader header{static_cast<int32_t>(random.Below(8)), static_cast<uint32_t>(unit.size()),
                             static_cast<uint32_t>(random.Next())};
    StreamFrame frame{data.As<uint8_t>(), {}, random.OneIn(10) ? nullptr : &header};
    const bool isAccepted = id.isAccepted && frame.header != nullptr;
    ExpectResult(m_context.table.WriteStreamBuffer(text.As<char>(), id.length, nullptr, &frame),
                 isAccepted ? VELTO_OK : VELTO_ERROR_INVALID,
                 isAccepted ? "IDS-3" : (id.isAccepted ? "SPK-15" : "IDS-1"), "WriteStreamBuffer");
    Note(isAccepted ? "write" : "refused write");
}

void FuzzCaller::CloseTrack()
{
    const Id id = RandomId();
    const GuardedCopy text = GuardedString(m_context.environment, id.text);
    ExpectResult(m_context.table.CloseAudioTrack(text.As<char>(), id.length),
                 id.isAccepted ? VELTO_OK : VELTO_ERROR_INVALID, id.isAccepted ? "IDS-3" : "IDS-1",
                 "CloseAudioTrack");
    ExpectEvents(id.isAccepted, VELTO_EVENT_TRACK_CLOSED);
}

void FuzzCaller::Open()
{
    const Id id = RandomId();
    const bool hasList = !m_context.random.OneIn(8);
    const AudioProfileList list{};
    const GuardedCopy text = GuardedString(m_context.environment, id.text);
    const bool isAccepted = id.isAccepted && hasList;
    const int32_t result = m_context.table.OpenAudioRecord(text.As<char>(), id.length, nullptr, nullptr,
                                                           hasList ? &list : nullptr);
    ExpectResult(result, isAccepted ? VELTO_OK : VELTO_ERROR_INVALID,
                 isAccepted ? "IDS-4" : (id.isAccepted ? "MIC-13" : "IDS-1"), "OpenAudioRecord");
    m_isOpen = isAccepted;
    Note(isAccepted ? "opening" : "refused opening");
}

void FuzzCaller::Read()
{
    Random &random = m_context.random;
    constexpr std::array<uint32_t, 4> sizes{0, 200, VELTO_READ_SIZE, 7680};
    const Id id = RandomId();
    const GuardedCopy text = GuardedString(m_context.environment, id.text);
    const std::unique_ptr<GuardedMemory> data = m_context.environment.Guarded(VELTO_MAX_PACKET_BYTES);
    const uint32_t asked = random.AnyOf<uint32_t>(sizes);
    StreamFrameHeader header{0, asked, 0};
    StreamFrame frame{random.OneIn(10) ? nullptr : data->Data(), {}, random.OneIn(10) ? nullptr : &header};
    const bool isComplete = frame.data != nullptr && frame.header != nullptr;
    const int32_t result = m_context.table.ReadStreamBuffer(text.As<char>(), id.length, nullptr, &frame);
    ExpectResult(result,
                 !id.isAccepted ? VELTO_ERROR_INVALID : (isComplete ? VELTO_OK : VELTO_ERROR_NULL_POINTER),
                 !id.isAccepted ? "IDS-1" : (isComplete ? "IDS-4" : "MIC-6"), "ReadStreamBuffer");
    if (result != VELTO_OK || frame.header == nullptr) {
        Note("refused read");
    } else if (header.size == asked || header.size == 0) {
        Note("read without a packet"); // or with one that has exactly the size asked for
    } else if (header.size > VELTO_MAX_PACKET_BYTES) {
        Expect(false, "MIC-2", fmt::format("a read delivered {} bytes", header.size));
    } else {
        m_samples.clear();
        const bool decodes = m_decoder.Decode({data->Data(), header.size}, m_samples);
        Expect(decodes, "MIC-2", "a packet does not decode: " + m_decoder.Reason());
        Note("packet");
    }
}

void FuzzCaller::Close()
{
    const Id id = RandomId();
    const GuardedCopy text = GuardedString(m_context.environment, id.text);
    ExpectResult(m_context.table.CloseAudioRecord(text.As<char>(), id.length),
                 id.isAccepted ? VELTO_OK : VELTO_ERROR_INVALID, id.isAccepted ? "IDS-4" : "IDS-1",
                 "CloseAudioRecord");
    m_isOpen = m_isOpen && !id.isAccepted;
}

void FuzzCaller::ReleaseNothing()
{
    Random &random = m_context.random;
    const uint32_t count = random.Below(8);
    if (random.OneIn(2)) {
        m_context.table.Release(static_cast<uint32_t>(random.Next()), nullptr, count);
    } else {
        std::array<uint8_t, 64> block{};
        // Any type but that of the list: the block is on the stack, and freeing it crashes.
        m_context.table.Release(2 + random.Below(1000), block.data(), count);
    }
}

void FuzzCaller::Register()
{
    const bool hasRecord = !m_context.random.OneIn(4);
    const bool hasCallback = !m_context.random.OneIn(4);
    const AudioListener listener{hasCallback ? CountEvent : nullptr, nullptr};
    const int32_t result = m_context.table.RegisterListener(hasRecord ? &listener : nullptr);
    ExpectResult(result, hasRecord ? VELTO_OK : VELTO_ERROR_INVALID, "LSN-1", "RegisterListener");
    if (hasRecord) {
        m_listens = hasCallback;
    }
}

void FuzzCaller::NoOperation()
{
    const int32_t result = m_context.table.NoOperation1() | m_context.table.NoOperation10();
    ExpectResult(result, VELTO_OK, "ENT-4", "an empty slot");
}

} // namespace velto::check
