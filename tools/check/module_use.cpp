#include "check/module_use.h"

#include <windows.h>

#include <string>

#include "check/process_context.h"

namespace velto::check {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t unitsOfSound = 141;    // 3 s
constexpr auto mostLate = 4 * unitTime; // units that may be written at once after a delay
constexpr DWORD pollMs = 5;

} // namespace

std::unique_ptr<ModuleFile> LoadModule(Context &context, std::string_view clause)
{
    try {
        auto module = std::make_unique<ModuleFile>(CurrentProcess().modulePath);
        module->CallEntry();
        return module;
    } catch (const ModuleFileError &error) {
        context.Require(false, clause.empty() ? error.Clause() : clause, error.what());
        throw; // not reached: Require has ended the check
    }
}

SpeakerUse::SpeakerUse(const AudioHandlerTable &table, std::string_view id)
    : m_table(table), m_id(id), m_units(SpeechLikeUnits(unitsOfSound))
{
}

void SpeakerUse::Play(Seconds time)
{
    Note(StartStream(m_table, m_id));
    m_due = {};
    const auto begin = Clock::now();
    while (Clock::now() - begin < time) {
        WriteIfDue();
        Sleep(pollMs);
    }
}

void SpeakerUse::WriteIfDue()
{
    const auto now = Clock::now();
    if (m_due + mostLate < now) {
        m_due = now;
    }
    for (; m_due <= now; m_due += unitTime) {
        Note(WriteUnit(m_table, m_id, m_units[m_next]));
        m_next = (m_next + 1) % m_units.size();
    }
}

void SpeakerUse::Note(int32_t result)
{
    ++m_calls;
    m_refused += result != VELTO_OK ? 1 : 0;
}

bool ReadPacketWithin(host::Microphone &microphone, Seconds time)
{
    const auto begin = Clock::now();
    while (Clock::now() - begin < time) {
        if (microphone.Read() == host::Microphone::Outcome::PACKET) {
            return true;
        }
        Sleep(pollMs); // a stopped recording is read without waiting
    }
    return false;
}

} // namespace velto::check
