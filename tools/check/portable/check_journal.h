// The journal of a check's process: a file with one JSON object a line, which survives the process. The
// process appends a line for each event; velto-host reads the file after the process has ended, in whatever
// way.
#pragma once

#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "check/portable/events.h"
#include "check/portable/results.h"

namespace velto::check {

// Writes the events. Each line is given to the system before the call returns, so that a crash of this
// process loses none. Any thread. An event that cannot be written is lost; the reader then misses the
// verdict.
class JournalWriter final : public EventSink {
public:
    // Appends to the file. Throws std::runtime_error if it cannot be opened.
    explicit JournalWriter(const std::filesystem::path &file);

    // The process has begun. Without this line, the process itself failed to start.
    void OnBegan();
    void OnStep(std::string_view text, const std::vector<std::string_view> &clauses) override;
    void OnFailure(std::string_view clause, std::string_view text) override;
    void OnWarning(std::string_view text) override;
    void OnSkipped(std::string_view reason) override;
    void OnMeasured(std::string_view name, double value, std::string_view unit) override;
    void OnHeard(const HeardSound &heard);
    // The checker itself failed.
    void OnBroken(std::string_view reason);
    // The check has returned: what is in the journal now is its result.
    void OnVerdict();
    // The process has freed the module and is about to end.
    void OnEnd();

private:
    void Append(const std::string &line);

    std::mutex m_mutex; // guards m_file
    std::ofstream m_file;
};

// A hardware exception. The process may have survived it.
struct FaultRecord {
    std::string place;       // "LibVeltoAudioHandler.dll+0x1a2b: access violation"
    bool isOfModule = false; // the module's code raised it, or was on the thread's stack
    bool isOfWine = false;   // the code that raised it is a DLL of Wine
    bool isAfterVerdict = false;
    bool isAtEnd = false;       // the process was ending
    bool isOnStackOnly = false; // of the module, but raised by other code that it called
};

// The line of a fault, and the line that is added once the module was found on the stack. A process that
// crashes builds its lines without this library, so the reader defines their form here. `place` needs no
// escapes in JSON.
//   {"event":"fault","place":"...","ofModule":false,"ofWine":true}
//   {"event":"fault stack","ofModule":true}
inline constexpr std::string_view faultEvent = "fault";
inline constexpr std::string_view faultStackEvent = "fault stack";

struct Journal {
    bool hasBegun = false;
    bool hasVerdict = false;
    bool hasEnded = false;
    bool isDamaged = false; // a line, other than an unfinished last one, is no event
    std::string lastStep;
    std::vector<std::string> lastStepClauses;
    std::vector<BrokenClause> failures;
    std::vector<std::string> warnings;
    std::optional<std::string> skipped;
    std::optional<std::string> broken;
    std::vector<Measurement> measured;
    std::optional<HeardSound> heard;
    std::vector<FaultRecord> faults;
    bool endsWithFault = false; // no event of the check came after the last fault
};

// Reads a journal. An unfinished last line is left out. The file of a process that never began may be
// missing: the journal is then empty.
Journal ReadJournal(const std::filesystem::path &file);
Journal ParseJournal(std::string_view text);

} // namespace velto::check
