#include "check/portable/check_journal.h"

#include <cmath>
#include <iterator>
#include <limits>
#include <map>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace velto::check {
namespace {

using Json = nlohmann::ordered_json;

// JSON has no infinity, which is the level of silence in decibels.
Json Number(double value)
{
    return std::isfinite(value) ? Json(value) : Json();
}

double NumberOf(const Json &json)
{
    return json.is_null() ? std::numeric_limits<double>::quiet_NaN() : json.get<double>();
}

std::string LineOf(const Json &event)
{
    return event.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

HeardSound HeardOf(const Json &event)
{
    HeardSound heard;
    heard.source = event.at("source");
    heard.seconds = NumberOf(event.at("seconds"));
    heard.delayMs = NumberOf(event.at("delayMs"));
    heard.levelDb = NumberOf(event.at("levelDb"));
    heard.speed = NumberOf(event.at("speed"));
    heard.framesSent = event.at("framesSent");
    heard.framesHeard = event.at("framesHeard");
    heard.framesMissing = event.at("framesMissing");
    heard.framesRepeated = event.at("framesRepeated");
    heard.framesOutOfOrder = event.at("framesOutOfOrder");
    heard.channelsSwapped = event.at("channelsSwapped");
    for (const Json &gap : event.at("gapsAtSeconds")) {
        heard.gapsAtSeconds.push_back(NumberOf(gap));
    }
    for (const Json &peak : event.at("envelope")) {
        heard.envelope.push_back(static_cast<float>(NumberOf(peak)));
    }
    heard.framesInOrder = event.at("framesInOrder").get<std::vector<uint32_t>>();
    return heard;
}

void ReadStep(Journal &journal, const Json &event)
{
    // Read before anything is changed, because a damaged line throws.
    auto clauses = event.at("clauses").get<std::vector<std::string>>();
    journal.lastStep = event.at("text");
    journal.lastStepClauses = std::move(clauses);
}

void ReadFailure(Journal &journal, const Json &event)
{
    journal.failures.push_back({event.at("clause"), event.at("text")});
}

void ReadMeasured(Journal &journal, const Json &event)
{
    journal.measured.push_back({event.at("name"), NumberOf(event.at("value")), event.at("unit")});
}

void ReadFault(Journal &journal, const Json &event)
{
    journal.faults.push_back(
        {event.at("place"), event.at("ofModule"), event.at("ofWine"), journal.hasVerdict, journal.hasEnded});
}

void ReadFaultStack(Journal &journal, const Json &event)
{
    if (!journal.faults.empty()) {
        journal.faults.back().isOfModule = journal.faults.back().isOnStackOnly = event.at("ofModule");
    }
}

using Read = void (*)(Journal &, const Json &);

const std::map<std::string_view, Read> readers{
    {"began", [](Journal &journal, const Json &) { journal.hasBegun = true; }},
    {"step", ReadStep},
    {"failure", ReadFailure},
    {"warning", [](Journal &journal, const Json &event) { journal.warnings.push_back(event.at("text")); }},
    {"skipped", [](Journal &journal, const Json &event) { journal.skipped = event.at("reason"); }},
    {"broken", [](Journal &journal, const Json &event) { journal.broken = event.at("reason"); }},
    {"measured", ReadMeasured},
    {"heard", [](Journal &journal, const Json &event) { journal.heard = HeardOf(event); }},
    {"verdict", [](Journal &journal, const Json &) { journal.hasVerdict = true; }},
    {"end", [](Journal &journal, const Json &) { journal.hasEnded = true; }},
    {faultEvent, ReadFault},
    {faultStackEvent, ReadFaultStack},
};

// False if the line is no event.
bool ReadLine(Journal &journal, std::string_view line)
{
    try {
        const Json event = Json::parse(line);
        const std::string name = event.at("event");
        const auto reader = readers.find(name);
        if (reader == readers.end()) {
            return false;
        }
        reader->second(journal, event);
        journal.endsWithFault = name == faultEvent || name == faultStackEvent;
        return true;
    } catch (const Json::exception &) {
        return false;
    }
}

} // namespace

JournalWriter::JournalWriter(const std::filesystem::path &file)
    : m_file(file, std::ios::app | std::ios::binary)
{
    if (!m_file) {
        throw std::runtime_error("cannot open the journal");
    }
}

void JournalWriter::OnBegan()
{
    Append(LineOf({{"event", "began"}}));
}

void JournalWriter::OnStep(std::string_view text, const std::vector<std::string_view> &clauses)
{
    Append(LineOf({{"event", "step"}, {"text", text}, {"clauses", clauses}}));
}

void JournalWriter::OnFailure(std::string_view clause, std::string_view text)
{
    Append(LineOf({{"event", "failure"}, {"clause", clause}, {"text", text}}));
}

void JournalWriter::OnWarning(std::string_view text)
{
    Append(LineOf({{"event", "warning"}, {"text", text}}));
}

void JournalWriter::OnSkipped(std::string_view reason)
{
    Append(LineOf({{"event", "skipped"}, {"reason", reason}}));
}

void JournalWriter::OnMeasured(std::string_view name, double value, std::string_view unit)
{
    Append(LineOf({{"event", "measured"}, {"name", name}, {"value", Number(value)}, {"unit", unit}}));
}

void JournalWriter::OnHeard(const HeardSound &heard)
{
    Json gaps = Json::array();
    for (const double gap : heard.gapsAtSeconds) {
        gaps.push_back(Number(gap));
    }
    Json envelope = Json::array();
    for (const float peak : heard.envelope) {
        envelope.push_back(Number(peak));
    }
    Append(LineOf({{"event", "heard"},
                   {"source", heard.source},
                   {"seconds", Number(heard.seconds)},
                   {"delayMs", Number(heard.delayMs)},
                   {"levelDb", Number(heard.levelDb)},
                   {"speed", Number(heard.speed)},
                   {"framesSent", heard.framesSent},
                   {"framesHeard", heard.framesHeard},
                   {"framesMissing", heard.framesMissing},
                   {"framesRepeated", heard.framesRepeated},
                   {"framesOutOfOrder", heard.framesOutOfOrder},
                   {"channelsSwapped", heard.channelsSwapped},
                   {"gapsAtSeconds", gaps},
                   {"envelope", envelope},
                   {"framesInOrder", heard.framesInOrder}}));
}

void JournalWriter::OnBroken(std::string_view reason)
{
    Append(LineOf({{"event", "broken"}, {"reason", reason}}));
}

void JournalWriter::OnVerdict()
{
    Append(LineOf({{"event", "verdict"}}));
}

void JournalWriter::OnEnd()
{
    Append(LineOf({{"event", "end"}}));
}

void JournalWriter::Append(const std::string &line)
{
    const std::lock_guard lock(m_mutex);
    m_file << line << std::flush;
}

Journal ParseJournal(std::string_view text)
{
    Journal journal;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        if (end == std::string_view::npos) {
            break; // the process ended while it wrote this line
        }
        // A fault begins with an empty line: another thread may have been in the middle of a line.
        if (end > 0 && !ReadLine(journal, text.substr(0, end))) {
            journal.isDamaged = true;
        }
        text.remove_prefix(end + 1);
    }
    return journal;
}

Journal ReadJournal(const std::filesystem::path &file)
{
    std::ifstream stream(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    return ParseJournal(text);
}

} // namespace velto::check
