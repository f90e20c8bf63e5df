#include "journal.h"

#include <audioclient.h>
#include <mmdeviceapi.h>

#include <mutex>
#include <new>

namespace fakes {
namespace {

// Never destroyed: the module's static objects release their resources when the process ends.
struct State {
    std::mutex mutex;
    std::vector<JournalEntry> entries;
};

State &TheState()
{
    static auto *state = new State;
    return *state;
}

const char *ReleaseOf(const IID &iid)
{
    if (IsEqualIID(iid, __uuidof(IMMDeviceEnumerator))) {
        return "Release IMMDeviceEnumerator";
    }
    if (IsEqualIID(iid, __uuidof(IMMDevice))) {
        return "Release IMMDevice";
    }
    if (IsEqualIID(iid, __uuidof(IAudioClient))) {
        return "Release IAudioClient";
    }
    return IsEqualIID(iid, __uuidof(IAudioRenderClient)) ? "Release IAudioRenderClient" : "Release object";
}

} // namespace

void Note(const char *call, const void *subject) noexcept
{
    try {
        const std::lock_guard lock(TheState().mutex);
        TheState().entries.push_back({call, subject});
    } catch (const std::bad_alloc &) {
        return; // a test makes an allocation of the module's thread fail
    }
}

void NoteRelease(const IID &iid, const void *object) noexcept
{
    Note(ReleaseOf(iid), object);
}

std::vector<JournalEntry> Journal()
{
    const std::lock_guard lock(TheState().mutex);
    return TheState().entries;
}

void ClearJournal()
{
    const std::lock_guard lock(TheState().mutex);
    TheState().entries.clear();
}

} // namespace fakes
