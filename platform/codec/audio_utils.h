// Entering and leaving COM for code that does not know its calling thread.
#pragma once

// What GetCOMLoadedStatus found, and so what UnloadCOM has to undo.
enum COMLoadStatus {
    COM_LOADED = 0,         // entered by this call
    COM_ALREADY_LOADED = 1, // the thread was inside; entered once more
    COM_OTHER_MODEL = 2,    // the thread is in another kind of apartment, which serves as well
    COM_NOT_LOADED = 3,     // COM is not available
};

class AudioUtils {
public:
    // Enters the multithreaded apartment on the calling thread.
    // https://learn.microsoft.com/windows/win32/api/combaseapi/nf-combaseapi-coinitializeex
    static COMLoadStatus GetCOMLoadedStatus();

    // Leaves COM on the same thread, if that status says that the thread entered it.
    static void UnloadCOM(COMLoadStatus status);
};
