// The module's sources on the fakes, as a check gets them: an entry, a table, and an environment.
#pragma once

#include <cstdint>

#include "environment_fakes.h"
#include "velto/audio_handler.h"

namespace velto_test {

// One object at a time. The destructor ends what a check left behind, also recordings that a second opening
// replaced, and expects that the module broke no rule of Windows.
class ModuleOnFakes {
public:
    explicit ModuleOnFakes(Endpoints endpoints);
    ~ModuleOnFakes();
    ModuleOnFakes(const ModuleOnFakes &) = delete;
    ModuleOnFakes &operator=(const ModuleOnFakes &) = delete;

    // The module's entry. Three slots of its tables are replaced by functions that call the module's and that
    // - remember recordings that an opening replaces,
    // - let the time pass that a read without a packet waited for.
    static int32_t Entry(AudioHandlerTable *table);

    FakesEnvironment &Environment() { return m_environment; }
    const AudioHandlerTable &Table() const { return m_table; }

private:
    void CloseRecordings();
    static void ReleaseSpeakers();

    FakesEnvironment m_environment;
    AudioHandlerTable m_table{};
    const int m_earlierReferences;
};

} // namespace velto_test
