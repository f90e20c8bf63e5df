#include "check/check_process.h"

#include <windows.h>

#include <array>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "check/all_checks.h"
#include "check/crash_watch.h"
#include "check/environment_windows.h"
#include "check/module_file.h"
#include "check/portable/check_journal.h"
#include "check/process_context.h"
#include "check/process_end.h"
#include "velto-host/output.h"
#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

// A module that writes behind its table must not damage this process: there are checks that detect it.
struct SpaciousTable {
    AudioHandlerTable table{};
    std::array<std::byte, 4096> room{};
};

const Check &FindCheck(const std::string &name)
{
    for (const Check *check : AllChecks()) {
        if (check->name == name) {
            return *check;
        }
    }
    throw std::runtime_error("there is no check named " + name);
}

bool LoadsModuleItself(const Check &check)
{
    return check.name.starts_with("lifecycle.");
}

HANDLE OpenEnding(const std::string &name)
{
    return name.empty() ? nullptr : OpenEventW(EVENT_MODIFY_STATE, FALSE, host::ToWide(name).c_str());
}

std::wstring FileNameOf(const std::string &path)
{
    return std::filesystem::path(host::ToWide(path)).filename().wstring();
}

// The journal is never destroyed: threads that outlive the check may still report events while the process
// ends.
JournalWriter &BeginJournal(const std::string &file)
{
    auto &journal = *new JournalWriter(host::ToWide(file));
    journal.OnBegan();
    return journal;
}

// The part of the process that uses the module.
class CheckRun {
public:
    CheckRun(const CheckProcessOptions &options, const Check &check, JournalWriter &journal)
        : m_options(options), m_check(check), m_journal(journal), m_table(std::make_unique<SpaciousTable>())
    {
    }

    // Loads the module unless the check does, makes the check, and writes all of its results.
    void Make()
    {
        if (LoadsModuleItself(m_check)) {
            MakeCheck(nullptr);
            return;
        }
        try {
            m_journal.OnStep("loads the module", {"LIF-5"});
            m_module = std::make_unique<ModuleFile>(m_options.modulePath);
            CurrentProcess().module = m_module->Handle();
            FillTable();
        } catch (const ModuleFileError &error) {
            m_journal.OnFailure(error.Clause(), error.what());
            return;
        }
        MakeCheck(m_module->Entry());
    }

    void Free() { m_module.reset(); }

private:
    void FillTable()
    {
        m_journal.OnStep("calls the entry", {"ENT-3"});
        const int32_t result = m_module->Entry()(&m_table->table);
        if (result != VELTO_OK) {
            throw ModuleFileError("ENT-3", host::Format(VELTO_ENTRY_NAME " returned {}", result));
        }
    }

    void MakeCheck(VeltoGetAudioHandlerFunction entry)
    {
        // A crash before the first step of the check can break any of its clauses.
        m_journal.OnStep("begins the check", m_check.clauses);
        WindowsEnvironment environment;
        Context context(entry, m_table->table, environment, m_journal, Random(m_options.seed, m_check.name));
        try {
            m_check.run(context);
        } catch (const CheckEnded &) {
            // The reason is in the journal.
        }
        const HeardSound &heard = *CurrentProcess().heard;
        if (!heard.source.empty()) {
            m_journal.OnHeard(heard);
        }
    }

    const CheckProcessOptions &m_options;
    const Check &m_check;
    JournalWriter &m_journal;
    const std::unique_ptr<SpaciousTable> m_table;
    std::unique_ptr<ModuleFile> m_module;
};

void FillProcessContext(const CheckProcessOptions &options, JournalWriter &journal)
{
    static HeardSound heard;
    ProcessContext &process = CurrentProcess();
    process.modulePath = options.modulePath;
    process.workFolder = options.workFolder;
    process.hostProgram = host::ToUtf8(host::ProgramPath());
    process.minutes = options.minutes;
    process.events = &journal;
    process.heard = &heard;
}

int MakeCheck(const CheckProcessOptions &options, JournalWriter &journal, HANDLE ending)
{
    CheckRun run(options, FindCheck(options.name), journal);
    run.Make();
    journal.OnVerdict();
    if (ending != nullptr) {
        SetEvent(ending);
    }
    run.Free();
    journal.OnEnd();
    return host::EXIT_OK;
}

} // namespace

ProcessContext &CurrentProcess()
{
    static ProcessContext process;
    return process;
}

int RunCheckProcess(const CheckProcessOptions &options)
{
    JournalWriter &journal = BeginJournal(options.journal);
    try {
        const HANDLE ending = OpenEnding(options.ending);
        WatchCrashes(
            {host::ToWide(options.journal), FileNameOf(options.modulePath), options.dumpFile, ending});
        FillProcessContext(options, journal);
        return MakeCheck(options, journal, ending);
    } catch (const std::exception &error) {
        journal.OnBroken(error.what());
        return host::EXIT_CHECK_BROKEN;
    }
}

int RunEndProcess(const EndProcessOptions &options)
{
    JournalWriter &journal = BeginJournal(options.journal);
    WatchCrashes({host::ToWide(options.journal), FileNameOf(options.modulePath), {}, nullptr});
    CurrentProcess().modulePath = options.modulePath;
    CurrentProcess().events = &journal;
    return EndProcessWhile(options.modulePath, options.how, options.exitCode);
}

} // namespace velto::check
