// Random calls of every slot, one after the other, whose results are compared with the contract.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "check/portable/built_in_sound.h"
#include "check/portable/context.h"
#include "check/portable/packet_decoder.h"

namespace velto::check {

// One thread. All arguments point to valid memory: what a call may read and write is at guarded pages. The
// choices follow from the context's random numbers alone, so that a seed repeats them.
class FuzzCaller {
public:
    // Registers a listener. One object at a time, because a listener has no context.
    explicit FuzzCaller(Context &context);
    ~FuzzCaller();
    FuzzCaller(const FuzzCaller &) = delete;
    FuzzCaller &operator=(const FuzzCaller &) = delete;

    // One call, or a few that belong together. Throws CheckEnded once many results were not as documented.
    void Step();
    // Closes the microphone and both tracks.
    void Finish();

    // How often each kind of effect was seen: "event 3", "packet", "refused write", ...
    const std::map<std::string_view, uint64_t> &Effects() const { return m_effects; }
    uint64_t Calls() const { return m_calls; }

private:
    // A string at the end of accessible memory and the length that is passed with it.
    struct Id {
        std::string text;
        uint32_t length = 0;
        bool isAccepted = false; // by IDS-1
    };

    Id RandomId();
    AacUnits::value_type RandomUnit();

    void List();
    void SetParameters();
    void Write();
    void CloseTrack();
    void Open();
    void Read();
    void Close();
    void ReleaseNothing();
    void Register();
    void NoOperation();

    void Expect(bool isTrue, std::string_view clause, const std::string &text);
    void ExpectResult(int32_t actual, int32_t expected, std::string_view clause, std::string_view call);
    void Note(std::string_view effect) { ++m_effects[effect]; }
    // Compares the events since the last call with what an accepted or refused call sends.
    void ExpectEvents(bool isAccepted, int32_t code);

    Context &m_context;
    const AacUnits m_units;
    PacketDecoder m_decoder;
    std::vector<float> m_samples; // of the last packet
    bool m_isOpen = false;
    bool m_listens = true;
    uint64_t m_calls = 0;
    uint32_t m_differences = 0; // from the documented results
    std::map<std::string_view, uint64_t> m_effects;
};

} // namespace velto::check
