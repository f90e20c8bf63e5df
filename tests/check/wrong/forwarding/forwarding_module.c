/* See forwarding_module.h. */
#include <windows.h>

#include <string.h>

#include "forwarding_module.h"

AudioHandlerTable real;

int32_t ForwardEntry(AudioHandlerTable *table)
{
    const int32_t result = RealGetAudioHandler(table);

    if (result == VELTO_OK) {
        real = *table;
        ChangeTable(table);
    }
    return result;
}

/* ---- The real module's imports ---------------------------------------------------------------- */

static HMODULE ModuleOf(const void *address)
{
    HMODULE module = NULL;

    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       (LPCWSTR)address, &module);
    return module;
}

static HMODULE RealModule(void)
{
    return ModuleOf((const void *)(uintptr_t)&RealGetAudioHandler);
}

/* The pointer through which the real module calls a function; null if it does not import it by name. */
static void **FindImport(const char *function)
{
    uint8_t *const image = (uint8_t *)RealModule();
    const IMAGE_NT_HEADERS *headers =
        (const IMAGE_NT_HEADERS *)(image + ((IMAGE_DOS_HEADER *)image)->e_lfanew);
    const IMAGE_DATA_DIRECTORY *directory =
        &headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    const IMAGE_IMPORT_DESCRIPTOR *dll = (const IMAGE_IMPORT_DESCRIPTOR *)(image + directory->VirtualAddress);

    for (; dll->Name != 0; ++dll) {
        const IMAGE_THUNK_DATA *name = (const IMAGE_THUNK_DATA *)(image + dll->OriginalFirstThunk);
        IMAGE_THUNK_DATA *pointer = (IMAGE_THUNK_DATA *)(image + dll->FirstThunk);

        for (; name->u1.AddressOfData != 0; ++name, ++pointer) {
            if (!IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal) &&
                strcmp(((IMAGE_IMPORT_BY_NAME *)(image + name->u1.AddressOfData))->Name, function) == 0) {
                return (void **)&pointer->u1.Function;
            }
        }
    }
    return NULL;
}

const void *ReplaceImport(const char *function, const void *replacement)
{
    void **const pointer = FindImport(function);
    const void *original;
    DWORD protection;

    if (pointer == NULL || !VirtualProtect(pointer, sizeof(*pointer), PAGE_READWRITE, &protection)) {
        return NULL;
    }
    original = *pointer;
    memcpy(pointer, &replacement, sizeof(*pointer));
    VirtualProtect(pointer, sizeof(*pointer), protection, &protection);
    return original;
}

/* ---- The life of this DLL --------------------------------------------------------------------- */

/* The real module has references to itself while its threads run, which keep it mapped. This DLL has to stay
   mapped for as long, as a module does that contains these threads. So the real module takes and drops a
   reference to this DLL with each reference to itself. */

static BOOL WINAPI AcquireBoth(DWORD flags, LPCWSTR name, HMODULE *module)
{
    const BOOL acquired = GetModuleHandleExW(flags, name, module);
    HMODULE self;

    if (acquired && *module == RealModule() && !(flags & GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT)) {
        GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, (LPCWSTR)&real, &self);
    }
    return acquired;
}

static BOOL WINAPI FreeBoth(HMODULE module)
{
    if (module == RealModule()) {
        FreeLibrary(ModuleOf(&real)); /* never the last reference: the real module calls this function */
    }
    return FreeLibrary(module);
}

static void WINAPI FreeBothAndExitThread(HMODULE module, DWORD exitCode)
{
    if (module == RealModule()) {
        FreeLibrary(module); /* not the last reference: this DLL imports the real module */
        module = ModuleOf(&real);
    }
    FreeLibraryAndExitThread(module, exitCode);
}

/* Runs when this DLL is loaded, before the real module can start a thread. */
__attribute__((constructor)) static void ShareReferences(void)
{
    ReplaceImport("GetModuleHandleExW", (const void *)(uintptr_t)&AcquireBoth);
    ReplaceImport("FreeLibrary", (const void *)(uintptr_t)&FreeBoth);
    ReplaceImport("FreeLibraryAndExitThread", (const void *)(uintptr_t)&FreeBothAndExitThread);
}
