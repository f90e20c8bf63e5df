// The renderer's log lines, for the classes of this folder. The texts, the repetition of a failed call and
// the numbers after "Line:" are part of the log contract.
#pragma once

#include <windows.h>

#include "handler/log.h"

namespace velto {

template <typename... Values>
void LogPlayerInfo(const char *tag, const Values &...values) noexcept
{
    LogInfo(tag, "AudioPlayerWas ", values...);
}

template <typename... Values>
void LogPlayerError(const char *tag, const Values &...values) noexcept
{
    LogError(tag, "AudioPlayerWas ", values...);
}

struct NothingToUndo {
    void operator()() const {}
};

// Repeats the failed call and returns the second result, the one that the log line shows. If the repeat
// succeeds, `undo` releases what it acquired, unless a member owns that.
template <typename Call, typename Undo = NothingToUndo>
HRESULT ResultOfSecondCall(Call &&call, Undo &&undo = {})
{
    const auto result = static_cast<HRESULT>(call());
    if (result >= 0) {
        undo();
    }
    return result;
}

// Makes a call and logs its failure. True when the call succeeded.
template <typename Call, typename Undo = NothingToUndo>
bool CallSucceeded(const char *tag, int line, Call &&call, Undo &&undo = {})
{
    if (call() >= 0) {
        return true;
    }
    LogPlayerError(tag, "function fail with ", ResultOfSecondCall(call, undo),
                   ". Release resource. Line:", line);
    return false;
}

// Logs a null pointer. True when the pointer is not null.
inline bool PointerPresent(const char *tag, int line, const void *pointer)
{
    if (pointer != nullptr) {
        return true;
    }
    LogPlayerError(tag, "memory fail with ", pointer, ". Release resource. Line:", line);
    return false;
}

} // namespace velto
