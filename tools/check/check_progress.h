// What `velto-host check` prints on stderr while it runs.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "check/portable/check.h"
#include "check/portable/results.h"

namespace velto::check {

// A line for each check that has ended. On a console, the names of the running checks are below it, on a line
// that is rewritten. One thread at a time.
class CheckProgress {
public:
    explicit CheckProgress(size_t checks);
    ~CheckProgress();
    CheckProgress(const CheckProgress &) = delete;
    CheckProgress &operator=(const CheckProgress &) = delete;

    void Begin(const Check &check);
    void End(const CheckResult &result);

private:
    void ShowRunning();
    void ClearRunning();

    const bool m_isConsole;
    const size_t m_checks;
    size_t m_ended = 0;
    size_t m_shown = 0; // letters of the line that is rewritten
    std::vector<std::string> m_running;
};

} // namespace velto::check
