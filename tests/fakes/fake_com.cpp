// COM's apartments and memory, and references to modules.
#include <cstdlib>
#include <map>
#include <mutex>
#include <set>

#include "tests/fakes/fake_windows.h"
#include "tests/fakes/fake_windows_state.h"
#include "tests/fakes/journal.h"

namespace fakewin {
namespace {

// Never destroyed: the module's static objects make calls when the process ends.
struct State {
    std::mutex mutex;
    ClassFactory factory;
    std::vector<Instantiation> instantiations;
    std::vector<DWORD> models;
    std::set<void *> blocks;
    int openApartments = 0;
    std::set<const void *> implementationAddresses;
    std::map<HMODULE, int> references;
    int unloads = 0;
};

State &TheState()
{
    static auto *state = new State;
    return *state;
}

// A thread must leave COM as often as it entered it. Its end is checked in native builds only: MinGW runs the
// destructors of thread-local objects after freeing their storage. There a test can only compare the number
// of open apartments.
struct Apartment {
    int depth = 0;
    DWORD model = 0;

#ifndef _WIN32
    ~Apartment()
    {
        if (depth > 0) {
            AddViolation("a thread ended inside its apartment");
            const std::lock_guard lock(TheState().mutex);
            TheState().openApartments -= depth;
        }
    }
#endif
};
thread_local Apartment apartment;

bool SameModel(DWORD left, DWORD right)
{
    return (left & COINIT_APARTMENTTHREADED) == (right & COINIT_APARTMENTTHREADED);
}

// Unloads the endpoints' DLL if no thread is in an apartment and nothing references it, as COM does. Needs
// the lock.
void UnloadIfUnused(State &state)
{
    if (state.openApartments == 0 && state.references[ImplementationModule()] == 0) {
        ++state.unloads;
    }
}

} // namespace

void ResetCom()
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    state.factory = nullptr;
    state.instantiations.clear();
    state.models.clear();
    // All other threads have ended, so none of them is in an apartment.
    state.openApartments = 0;
    apartment.depth = 0;
}

// --- Apartments ------------------------------------------------------------------------------

HRESULT CoInitializeEx(LPVOID, DWORD model)
{
    const auto fault = Enter(Call::CoInitializeEx);
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    state.models.push_back(model);
    if (fault && FAILED(*fault)) {
        return static_cast<HRESULT>(*fault);
    }
    if (apartment.depth > 0 && !SameModel(apartment.model, model)) {
        return RPC_E_CHANGED_MODE;
    }
    apartment.model = model;
    ++state.openApartments;
    const HRESULT entered = apartment.depth++ == 0 ? S_OK : S_FALSE;
    return fault ? static_cast<HRESULT>(*fault) : entered;
}

void CoUninitialize()
{
    Enter(Call::CoUninitialize);
    fakes::Note("CoUninitialize");
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    if (apartment.depth == 0) {
        AddViolation("CoUninitialize on a thread that is not in an apartment");
        return;
    }
    --apartment.depth;
    --state.openApartments;
    UnloadIfUnused(state);
}

HRESULT CoCreateInstance(REFCLSID classId, LPUNKNOWN outer, DWORD context, REFIID iid, LPVOID *object)
{
    const auto fault = Enter(Call::CoCreateInstance);
    *object = nullptr;
    ClassFactory factory;
    {
        State &state = TheState();
        const std::lock_guard lock(state.mutex);
        state.instantiations.push_back({classId, iid, context, outer != nullptr});
        factory = state.factory;
    }
    if (fault && fakes::HasBadPointer(*fault)) {
        fakes::StoreBadPointer(object);
    }
    if (fault && (FAILED(*fault) || *fault == fakes::nullResult)) {
        return static_cast<HRESULT>(*fault);
    }
    if (apartment.depth == 0) {
        return CO_E_NOTINITIALIZED;
    }
    const HRESULT result = factory ? factory(classId, iid, object) : REGDB_E_CLASSNOTREG;
    return fault && SUCCEEDED(result) ? static_cast<HRESULT>(*fault) : result;
}

void SetClassFactory(ClassFactory factory)
{
    const std::lock_guard lock(TheState().mutex);
    TheState().factory = std::move(factory);
}

std::vector<Instantiation> Instantiations()
{
    const std::lock_guard lock(TheState().mutex);
    return TheState().instantiations;
}

std::vector<DWORD> ApartmentModels()
{
    const std::lock_guard lock(TheState().mutex);
    return TheState().models;
}

int ApartmentDepth()
{
    return apartment.depth;
}

int OpenApartments()
{
    const std::lock_guard lock(TheState().mutex);
    return TheState().openApartments;
}

// --- Memory ----------------------------------------------------------------------------------

LPVOID CoTaskMemAlloc(SIZE_T bytes)
{
    if (Enter(Call::CoTaskMemAlloc)) {
        return nullptr;
    }
    void *block = std::malloc(bytes);
    const std::lock_guard lock(TheState().mutex);
    TheState().blocks.insert(block);
    return block;
}

void CoTaskMemFree(LPVOID block)
{
    Enter(Call::CoTaskMemFree);
    if (block == nullptr) {
        return;
    }
    bool known = false;
    {
        const std::lock_guard lock(TheState().mutex);
        known = TheState().blocks.erase(block) == 1;
    }
    if (!known) {
        AddViolation("CoTaskMemFree of a block that is not allocated");
        return;
    }
    fakes::Note("CoTaskMemFree", block);
    std::free(block);
}

int LiveTaskBlocks()
{
    const std::lock_guard lock(TheState().mutex);
    return static_cast<int>(TheState().blocks.size());
}

// --- Modules ---------------------------------------------------------------------------------

HMODULE ThisModule()
{
    return reinterpret_cast<HMODULE>(uintptr_t{0x10000000});
}
HMODULE ImplementationModule()
{
    return reinterpret_cast<HMODULE>(uintptr_t{0x20000000});
}

void DeclareImplementation(const void *address)
{
    const std::lock_guard lock(TheState().mutex);
    TheState().implementationAddresses.insert(address);
}

BOOL GetModuleHandleExW(DWORD flags, LPCWSTR nameOrAddress, HMODULE *module)
{
    if (const auto fault = Enter(Call::GetModuleHandleExW)) {
        fakewin::SetLastError(static_cast<DWORD>(*fault));
        return FALSE;
    }
    if ((flags & GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS) == 0) {
        fakewin::SetLastError(ERROR_FILE_NOT_FOUND);
        return FALSE;
    }
    if ((flags & 1) != 0) { // GET_MODULE_HANDLE_EX_FLAG_PIN
        AddViolation("a module was pinned");
    }
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    *module = state.implementationAddresses.count(nameOrAddress) != 0 ? ImplementationModule() : ThisModule();
    if ((flags & GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT) == 0) {
        ++state.references[*module];
    }
    return TRUE;
}

BOOL FreeLibrary(HMODULE module)
{
    Enter(Call::FreeLibrary);
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    if (state.references[module] == 0) {
        AddViolation("a module was freed more often than it was referenced");
        return FALSE;
    }
    --state.references[module];
    if (module == ImplementationModule()) {
        UnloadIfUnused(state);
    }
    return TRUE;
}

void FreeLibraryAndExitThread(HMODULE module, DWORD)
{
    Enter(Call::FreeLibraryAndExitThread);
    const std::lock_guard lock(TheState().mutex);
    if (TheState().references[module]-- == 0) {
        AddViolation("a module was freed more often than it was referenced");
    }
}

int ModuleReferences(HMODULE module)
{
    const std::lock_guard lock(TheState().mutex);
    return TheState().references[module];
}

int ImplementationUnloads()
{
    const std::lock_guard lock(TheState().mutex);
    return TheState().unloads;
}

} // namespace fakewin
