// The order in which the module releases what it owns.
#pragma once

#include <windows.h>
#include <objbase.h>

#include <vector>

namespace fakes {

// One release. The calls are CoTaskMemFree, CloseHandle, CoUninitialize and, for the last Release of a fake
// object, "Release " and the name of its interface. A test may note further calls.
struct JournalEntry {
    const char *call = "";
    const void *subject = nullptr; // the block, the handle or the object; null for CoUninitialize
};

// Thread-safe.
void Note(const char *call, const void *subject = nullptr) noexcept; // `call` is a literal
void NoteRelease(const IID &iid, const void *object) noexcept;
std::vector<JournalEntry> Journal(); // since the last ResetAll or ClearJournal
void ClearJournal();

} // namespace fakes
