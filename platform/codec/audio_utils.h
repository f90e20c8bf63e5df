// Enters and leaves COM, for code that can run on any thread.
#pragma once

// Result of GetCOMLoadedStatus; determines what UnloadCOM undoes.
enum COMLoadStatus {
    COM_LOADED = 0,         // this call entered COM
    COM_ALREADY_LOADED = 1, // the thread had entered COM; this call entered it once more
    COM_OTHER_MODEL = 2,    // the thread is in a single-threaded apartment, which is usable; nothing to undo
    COM_NOT_LOADED = 3,     // COM is not available
};

class AudioUtils {
public:
    // Enters the multithreaded apartment on the calling thread.
    // https://learn.microsoft.com/windows/win32/api/combaseapi/nf-combaseapi-coinitializeex
    static COMLoadStatus GetCOMLoadedStatus();

    // Leaves COM if `status` says that GetCOMLoadedStatus entered it. Must run on the same thread.
    static void UnloadCOM(COMLoadStatus status);
};
