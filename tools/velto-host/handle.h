// A handle of Windows that is closed at the end of its life.
#pragma once

#include <windows.h>

#include <memory>

namespace velto::host {

struct HandleCloser {
    using pointer = HANDLE;
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
// Null without a handle, never INVALID_HANDLE_VALUE.
using Handle = std::unique_ptr<HANDLE, HandleCloser>;

} // namespace velto::host
