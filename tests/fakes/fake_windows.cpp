// Handles, waits, the simulated clock, threads.
#include "tests/fakes/fake_windows.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "tests/fakes/fake_windows_state.h"
#include "tests/fakes/journal.h"

namespace fakewin {
namespace {

using namespace std::chrono_literals;

constexpr DWORD minClockWaitMs = 1000; // shorter waits do not use the simulated clock
constexpr std::chrono::microseconds defaultShortWait = 50us;
constexpr size_t maxRecords = 10000;
constexpr std::chrono::milliseconds defaultLongestNotification = 10s;

struct Waitable {
    bool isEvent;
    bool manualReset;
    bool signalled;
};

struct ClockWaiter {
    HANDLE handle; // null: a sleep
    uint64_t deadlineMs;
};

// Never destroyed: the module's static objects make calls when the process ends.
struct State {
    std::mutex mutex;
    std::condition_variable changed; // a handle or the clock changed, or a thread ended
    std::map<HANDLE, Waitable> handles;
    uintptr_t nextHandle = 0x100;
    uint64_t clockMs = 0;
    std::list<ClockWaiter> clockWaiters;
    int liveThreads = 0;
    std::vector<std::thread> threads; // created and not joined
    std::vector<EventRecord> events;
    std::vector<WaitRecord> waits;
    uint64_t waitedMs = 0;
    std::chrono::microseconds shortWait = defaultShortWait;
    std::vector<std::string> violations;
    std::shared_ptr<const std::function<void(Call)>> callHook;
    std::chrono::milliseconds longestNotification = defaultLongestNotification;
    uint64_t notifications = 0;              // numbers them from 1
    std::set<uint64_t> runningNotifications; // those that have not returned
    std::vector<ThreadTally> tallies;
    int resets = 0;
};

State &TheState()
{
    static auto *state = new State;
    return *state;
}

// Windows documents the last error of a call only where the call fails. A successful call may change it.
constexpr DWORD lastErrorOfSuccess = 0x2BAD;

thread_local DWORD lastError = 0;
// Trivial types only: MinGW runs the destructors of thread-local objects after freeing their storage.
thread_local uint64_t deliveredNotification = 0; // the notification that this thread delivers; 0 for none
thread_local uint64_t startingNotification = 0;  // the one that started this thread; 0 once it has returned
thread_local int threadDepth = 0;
thread_local bool startedByNotification = false;
thread_local size_t tallyIndex = 0;
thread_local int tallyResets = -1; // State::resets when this thread got its index

// Needs the lock.
ThreadTally &OwnTally(State &state)
{
    if (tallyResets != state.resets) {
        state.tallies.emplace_back(); // first, because a test can make it throw
        tallyIndex = state.tallies.size() - 1;
        tallyResets = state.resets;
    }
    return state.tallies[tallyIndex];
}

void CountWait(State &state, DWORD milliseconds)
{
    state.waitedMs += milliseconds;
    OwnTally(state).waitedMs += milliseconds;
}

// Blocks a thread that a notification started until the notification has returned.
void AwaitStartingNotification()
{
    if (startingNotification == 0) {
        return;
    }
    State &state = TheState();
    std::unique_lock lock(state.mutex);
    const auto hasReturned = [&] { return state.runningNotifications.count(startingNotification) == 0; };
    if (!state.changed.wait_for(lock, state.longestNotification, hasReturned)) {
        state.violations.push_back("a notification waits for more than the start of a thread");
    }
    startingNotification = 0;
}

void RunCallHook(Call call)
{
    std::shared_ptr<const std::function<void(Call)>> hook;
    {
        State &state = TheState();
        const std::lock_guard lock(state.mutex);
        hook = state.callHook;
    }
    if (hook != nullptr) {
        (*hook)(call);
    }
}

HANDLE AddHandle(State &state, Waitable waitable)
{
    const auto handle = reinterpret_cast<HANDLE>(state.nextHandle += 4);
    state.handles[handle] = waitable;
    return handle;
}

void Record(State &state, WaitRecord record)
{
    if (state.waits.size() < maxRecords || record.waitMs >= minClockWaitMs) {
        state.waits.push_back(record);
    }
}

// Blocks until `done` or until the simulated clock has advanced by `waitMs`. Needs the lock.
template <typename Done>
void WaitOnClock(State &state, std::unique_lock<std::mutex> &lock, HANDLE handle, DWORD waitMs, Done done)
{
    const uint64_t deadline = state.clockMs + waitMs;
    const auto self = state.clockWaiters.insert(state.clockWaiters.end(), {handle, deadline});
    state.changed.notify_all();
    state.changed.wait(lock, [&] { return done() || state.clockMs >= deadline; });
    state.clockWaiters.erase(self);
    state.changed.notify_all();
}

// Counts the threads that wait on the clock, except those that were woken but have not run yet. Needs the
// lock.
int BlockedClockWaiters(const State &state)
{
    return static_cast<int>(
        std::count_if(state.clockWaiters.begin(), state.clockWaiters.end(), [&](const ClockWaiter &waiter) {
            const auto found = state.handles.find(waiter.handle);
            const bool woken = found != state.handles.end() && found->second.signalled;
            return !woken && state.clockMs < waiter.deadlineMs;
        }));
}

BOOL ChangeEvent(Call call, HANDLE event, bool signalled)
{
    if (const auto fault = Enter(call)) {
        lastError = static_cast<DWORD>(*fault);
        return FALSE;
    }
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    const auto found = state.handles.find(event);
    if (found == state.handles.end() || !found->second.isEvent) {
        if (event != nullptr) {
            state.violations.push_back("SetEvent or ResetEvent of a handle that is not an open event");
        }
        lastError = ERROR_INVALID_HANDLE;
        return FALSE;
    }
    found->second.signalled = signalled;
    state.changed.notify_all();
    return TRUE;
}

} // namespace

fakes::FaultScript<Call> &Script()
{
    static auto *script = new fakes::FaultScript<Call>;
    return *script;
}

std::optional<int64_t> Enter(Call call)
{
    // Inside a notification the module may only start a thread. The start needs these calls.
    const bool startsThread = call == Call::CreateThread || call == Call::GetModuleHandleExW ||
                              call == Call::CloseHandle || call == Call::FreeLibrary;
    if (InNotification() && !startsThread) {
        AddViolation("a system call was made inside a notification");
    }
    AwaitStartingNotification();
    RunCallHook(call);
    CountCallOfThread();
    auto result = Script().Next(call);
    lastError = lastErrorOfSuccess; // a failing call then stores its error
    return result;
}

void Fail(Call call, int64_t result, int nth, int times)
{
    Script().Fail(call, result, nth, times);
}
void Before(Call call, std::function<void()> action, int nth)
{
    Script().Before(call, std::move(action), nth);
}
void ClearFaults()
{
    Script().ClearFaults();
}
int Count(Call call)
{
    return Script().Count(call);
}
int TotalCalls()
{
    return Script().TotalCount();
}

void SetCallHook(std::function<void(Call)> hook)
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    state.callHook = std::make_shared<const std::function<void(Call)>>(std::move(hook));
}

void CountCallOfThread()
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    ++OwnTally(state).calls;
}

std::vector<ThreadTally> ThreadTallies()
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    return state.tallies;
}

void AddViolation(const std::string &text)
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    state.violations.push_back(text);
}

std::vector<std::string> Violations()
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    return state.violations;
}

void Reset()
{
    State &state = TheState();
    std::unique_lock lock(state.mutex);
    const bool ended = state.changed.wait_for(lock, 10s, [&] { return state.liveThreads == 0; });
    lock.unlock();
    LiveThreads(); // joins them
    lock.lock();
    state.events.clear();
    state.waits.clear();
    state.waitedMs = 0;
    state.shortWait = defaultShortWait;
    state.callHook = nullptr;
    state.longestNotification = defaultLongestNotification;
    state.tallies.clear();
    ++state.resets;
    state.violations.clear();
    if (!ended) {
        state.violations.push_back("a thread of the previous test is still running");
    }
    lock.unlock();
    Script().Reset();
    ResetCom();
    ResetRegistry();
}

// --- Events and waits ------------------------------------------------------------------------

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCWSTR name)
{
    if (const auto fault = Enter(Call::CreateEventW)) {
        lastError = static_cast<DWORD>(*fault);
        return nullptr;
    }
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    const HANDLE handle = AddHandle(state, {true, manualReset != FALSE, initialState != FALSE});
    state.events.push_back(
        {handle, manualReset != FALSE, initialState != FALSE, security == nullptr && name == nullptr});
    return handle;
}

BOOL SetEvent(HANDLE event)
{
    return ChangeEvent(Call::SetEvent, event, true);
}
BOOL ResetEvent(HANDLE event)
{
    return ChangeEvent(Call::ResetEvent, event, false);
}

DWORD WaitForSingleObject(HANDLE handle, DWORD waitMs)
{
    const auto fault = Enter(Call::WaitForSingleObject);
    State &state = TheState();
    std::unique_lock lock(state.mutex);
    Record(state, {Call::WaitForSingleObject, handle, waitMs});
    if (fault) {
        lastError = ERROR_INVALID_HANDLE;
        return static_cast<DWORD>(*fault);
    }
    const auto closed = [&] { return state.handles.find(handle) == state.handles.end(); };
    if (closed()) {
        if (handle != nullptr) {
            state.violations.push_back("WaitForSingleObject of a handle that is not open");
        }
        lastError = ERROR_INVALID_HANDLE;
        return WAIT_FAILED;
    }
    const auto ended = [&] { return closed() || state.handles[handle].signalled; };
    if (!ended()) {
        if (waitMs == INFINITE) {
            state.changed.wait(lock, ended);
        } else if (waitMs >= minClockWaitMs) {
            WaitOnClock(state, lock, handle, waitMs, ended);
        } else if (waitMs > 0) {
            state.changed.wait_for(lock, state.shortWait, ended);
        }
    }
    if (closed()) {
        state.violations.push_back("a handle was closed while a thread waited for it");
        return WAIT_FAILED;
    }
    Waitable &waitable = state.handles[handle];
    if (!waitable.signalled) {
        CountWait(state, waitMs);
        return WAIT_TIMEOUT;
    }
    waitable.signalled = waitable.manualReset;
    return WAIT_OBJECT_0;
}

BOOL CloseHandle(HANDLE handle)
{
    Enter(Call::CloseHandle);
    fakes::Note("CloseHandle", handle);
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    if (state.handles.erase(handle) == 0) {
        state.violations.push_back("CloseHandle of a handle that is not open");
        lastError = ERROR_INVALID_HANDLE;
        return FALSE;
    }
    state.changed.notify_all();
    return TRUE;
}

void Sleep(DWORD sleepMs)
{
    Enter(Call::Sleep);
    State &state = TheState();
    std::unique_lock lock(state.mutex);
    Record(state, {Call::Sleep, nullptr, sleepMs});
    CountWait(state, sleepMs);
    if (sleepMs >= minClockWaitMs) {
        WaitOnClock(state, lock, nullptr, sleepMs, [] { return false; });
        return;
    }
    const auto shortWait = state.shortWait;
    lock.unlock();
    std::this_thread::sleep_for(shortWait);
}

std::vector<EventRecord> CreatedEvents()
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    return state.events;
}

int LiveHandles()
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    return static_cast<int>(state.handles.size());
}

std::vector<WaitRecord> Waits()
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    return state.waits;
}

void SkipShortWaits()
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    state.shortWait = 0us;
}

uint64_t WaitedMs()
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    return state.waitedMs;
}

// --- Clock -----------------------------------------------------------------------------------

void AdvanceClock(uint64_t milliseconds)
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    state.clockMs += milliseconds;
    state.changed.notify_all();
}

bool AwaitClockWaiters(int count)
{
    State &state = TheState();
    std::unique_lock lock(state.mutex);
    return state.changed.wait_for(lock, 10s, [&] { return BlockedClockWaiters(state) == count; });
}

ULONGLONG GetTickCount64()
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    return state.clockMs;
}

// --- Threads and errors ----------------------------------------------------------------------

HANDLE CreateThread(LPSECURITY_ATTRIBUTES, SIZE_T stackBytes, LPTHREAD_START_ROUTINE start, LPVOID parameter,
                    DWORD flags, LPDWORD threadId)
{
    if (stackBytes != 0 || flags != 0) {
        AddViolation("CreateThread with a stack size or flags");
    }
    if (const auto fault = Enter(Call::CreateThread)) {
        lastError = static_cast<DWORD>(*fault);
        return nullptr;
    }
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    const HANDLE handle = AddHandle(state, {false, true, false});
    ++state.liveThreads;
    if (threadId != nullptr) {
        *threadId = static_cast<DWORD>(reinterpret_cast<uintptr_t>(handle));
    }
    const bool byNotification = startedByNotification || deliveredNotification != 0;
    state.threads.emplace_back([start, parameter, handle, notification = deliveredNotification,
                                byNotification, depth = threadDepth + 1] {
        startingNotification = notification;
        startedByNotification = byNotification;
        threadDepth = depth;
        start(parameter);
        State &atEnd = TheState();
        const std::lock_guard endLock(atEnd.mutex);
        --atEnd.liveThreads;
        if (const auto found = atEnd.handles.find(handle); found != atEnd.handles.end()) {
            found->second.signalled = true;
        }
        atEnd.changed.notify_all();
    });
    return handle;
}

int ThreadDepth()
{
    return threadDepth;
}
bool StartedByNotification()
{
    return startedByNotification;
}

int LiveThreads()
{
    State &state = TheState();
    std::vector<std::thread> ended;
    {
        const std::lock_guard lock(state.mutex);
        if (state.liveThreads > 0) {
            return state.liveThreads;
        }
        ended.swap(state.threads);
    }
    for (std::thread &thread : ended) {
        thread.join();
    }
    return 0;
}

// A thread can still run when the process ends. ThreadSanitizer reports every thread that was neither joined
// nor detached.
const struct ThreadsAtEnd {
    ~ThreadsAtEnd()
    {
        if (LiveThreads() > 0) {
            State &state = TheState();
            const std::lock_guard lock(state.mutex);
            for (std::thread &thread : state.threads) {
                thread.detach();
            }
            state.threads.clear();
        }
    }
} threadsAtEnd;

DWORD GetLastError()
{
    return lastError;
}
void SetLastError(DWORD error)
{
    lastError = error;
}

// --- Notifications ---------------------------------------------------------------------------

NotificationScope::NotificationScope()
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    deliveredNotification = ++state.notifications;
    state.runningNotifications.insert(deliveredNotification);
}
NotificationScope::~NotificationScope()
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    state.runningNotifications.erase(deliveredNotification);
    deliveredNotification = 0;
    state.changed.notify_all();
}
bool InNotification()
{
    return deliveredNotification != 0;
}
void SetLongestNotification(std::chrono::milliseconds time)
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    state.longestNotification = time;
}

} // namespace fakewin
